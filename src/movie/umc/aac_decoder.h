// aac_decoder.h - AAC frames to 16-bit PCM, little-endian and interleaved; the work is done by
// libavcodec.
//
//   AACDecoderParams params;
//   params.data = &config;                        // the AudioSpecificConfig, see aac_config.h
//   params.info.streamType = kStreamAacConfigured;
//   decoder.Init(&params), decoder.GetInfo(&params), pcm.Alloc(params.suggestedOutputSize)
//   then for each sample: in.SetBufferPointer, in.SetDataSize, decoder.GetFrame(&in, &pcm)
//
// What the stream really holds is known for certain after its first frame: band replication may
// turn up that the configuration didn't announce. GetInfo tells the state of the last frame.
#pragma once

#include "movie/umc/codec.h"
#include "movie/umc/codec_state.h"

namespace tarn::UMC {

struct AACDecoderParams : AudioDecoderParams {
    ParamsType GetType() const override { return ParamsType::kAacDecoder; }
    int32_t decodeMode = 18;
    int32_t downsample = 1;
    int32_t sbrSupport = 777;
    int32_t psSupport =
        0;  // 0: a mono stream with parametric stereo stays mono; 1, 111, 411: stereo
    int32_t layer = -1;
};

class AACDecoder final : public AudioDecoder {
public:
    AACDecoder();
    ~AACDecoder() override;

    // With a stream type of kStreamAacConfigured `data` holds the AudioSpecificConfig, or Init
    // fails; object type, channels and rate are taken from it. With any other type and no `data`
    // the frames must bring ADTS headers. NotImplemented for AAC that the library can't decode.
    Status Init(BaseCodecParams* params) override;
    // Consumes the input, one coded frame (of ADTS data: the first frame), and replaces the data
    // of `out`. A frame that can't be decoded is consumed too and gives BadParameter; the next one
    // may be tried. TargetTooSmall, with nothing consumed, below the suggested output size.
    // NoData before Init or for an empty input.
    Status GetFrame(MediaData* in, MediaData* out) override;
    // Before the first frame of a stream without configuration: the sizes only, and NoStreamYet.
    Status GetInfo(BaseCodecParams* params) override;
    Status Close() override;
    Status Reset() override;
    // Changes nothing unless decodeMode is 18 or 28 and downsample 0 or 1.
    Status SetParams(BaseCodecParams* params) override;
    // Seconds of sound given since Init or Reset.
    virtual Status GetDuration(float* seconds);

private:
    struct State;
    CodecState<State> m_state;
};

}  // namespace tarn::UMC

// aac_encoder.h - 16-bit PCM to AAC-LC frames; the work is done by libavcodec.
//
//   AACEncoderParams params;                  // set objectType, bitRate, channels, sampleRate ...
//   encoder.Init(&params), encoder.GetInfo(&params), out.Alloc(params.suggestedOutputSize)
//   while (pcm.GetDataSize() > 0) { encoder.GetFrame(&pcm, &out); ...; out.Reset(); }
//   while (encoder.Drain(&out) == kStatusOk) ...
//
// Each full block of 1024 sample frames gives one AAC frame, the first block included: the encoder
// is fed a block of silence in Init. The sound of the blocks therefore comes out of a decoder
// GetDelay() samples late, and Drain gives the frames that are still inside at the end.
#pragma once

#include <span>

#include "movie/umc/codec.h"
#include "movie/umc/codec_state.h"

namespace tarn::UMC {

struct AACEncoderParams : AudioEncoderParams {
    ParamsType GetType() const override { return ParamsType::kAacEncoder; }
    int32_t objectType = kAacLc;  // or kAacLtp
    int32_t auxObjectType = 0;
    int32_t stereoMode = 1;    // 0: left and right are never coded jointly
    int32_t outputFormat = 0;  // 0 ADTS headers, 1 an ADIF header on the first frame, 2 bare frames
    int32_t extraFlag = 0;     // kept for callers; changes nothing
};

class AACEncoder final : public AudioEncoder {
public:
    static constexpr uint32_t kBlockFrames = 1024;  // sample frames in a block

    // Whether a stream of this rate and channel count can be made: 8 to 96 kHz of the rates that
    // AAC knows, 1 to 6 channels. To be asked before a job starts.
    static bool CanEncode(int32_t sampleRate, int32_t channels);

    AACEncoder();
    ~AACEncoder() override;

    // Takes bitRate, channels, sampleRate and bitsPerSample (16) of `info`. A bit rate above
    // 3 bits a sample (288 kbit/s for stereo at 48 kHz) is lowered to that; GetInfo tells.
    // NotImplemented where CanEncode says no and for band replication, BadParameter for values out
    // of range.
    Status Init(BaseCodecParams* params) override;
    // Consumes one block and replaces the data of `out` with its frame. With less than a block:
    // NoData, nothing consumed. TargetTooSmall, nothing consumed, below the suggested output size.
    Status GetFrame(MediaData* in, MediaData* out) override;
    Status GetInfo(BaseCodecParams* params) override;
    Status Close() override;
    Status Reset() override { return kStatusNotImplemented; }
    Status SetParams(BaseCodecParams* /*params*/) override { return kStatusNotImplemented; }
    // Seconds of sound taken since Init.
    virtual Status GetDuration(float* seconds);

    // The next of the frames still inside, NoData once there are none. After the first call
    // GetFrame answers NoData.
    Status Drain(MediaData* out);
    // Samples by which the decoded sound comes late, the block of silence included; 0 before Init.
    uint32_t GetDelay() const { return m_delay; }
    // The AudioSpecificConfig of the frames, for a sound entry; empty before Init.
    std::span<const uint8_t> GetDecoderSpecificInfo() const { return {m_config, m_configSize}; }

private:
    struct State;
    CodecState<State> m_state;
    uint32_t m_delay = 0;
    uint32_t m_configSize = 0;
    uint8_t m_config[2] = {};
};

}  // namespace tarn::UMC

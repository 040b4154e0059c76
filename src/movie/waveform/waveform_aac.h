// waveform_aac.h - the AAC samples of a track as PCM, one after the other.
#pragma once

#include <cstdint>
#include <span>

#include "movie/objects/movie_reader.h"
#include "movie/umc/aac_decoder.h"

namespace tarn {

class AacSound {
public:
    // False where there is no configuration that can be decoded. `rate` is what the file says, in
    // hertz. `foreign` for a clip that is not the camera's: its mono may hold a parametric stereo.
    bool Init(const CAudioSampleDescriptionInfo& description, uint32_t rate, bool foreign);
    // Frames of Channels() samples each, good until the next call. A sample that is empty, or that
    // holds no sound (fill elements alone), is one frame's length of silence. After a sample that
    // can't be decoded the next one may be tried.
    UMC::Status Decode(CReadBuffer* sample, std::span<const int16_t>* pcm);

    // As configured, then of the last sample: band replication may turn up in the first one.
    uint32_t Channels() const { return static_cast<uint32_t>(m_params.info.channels); }
    uint32_t Rate() const { return static_cast<uint32_t>(m_params.info.sampleRate); }
    // What a sample decodes to, in frames: as configured, then as the last one did.
    uint32_t FrameLength() const { return m_frameLength; }

private:
    UMC::Status DecodeInto(CReadBuffer* sample);
    UMC::Status Give(CReadBuffer* sample);

    UMC::AACDecoder m_decoder;
    UMC::AACDecoderParams m_params;
    UMC::AudioData m_out;
    uint32_t m_frameLength = 0;
    std::vector<int16_t> m_silence;
};

}  // namespace tarn

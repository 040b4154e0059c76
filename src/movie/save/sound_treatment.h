// sound_treatment.h - a clip's sound samples on their way to 16-bit stereo PCM with the studio
// effects on it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "base/reason.h"
#include "effects/effect_chain.h"
#include "movie/movie_codes.h"
#include "movie/objects/movie_info.h"
#include "movie/waveform/waveform_aac.h"

namespace tarn {

class SoundTreatment {
public:
    // Settles codec and rate. `settings` are copied; the range is that of the fade, in
    // milliseconds of the positions handed to Treat. FF4_RET_FORMAT for sound that is not served.
    MovieCode Open(const CAudioSampleDescriptionInfo& sound, const AMPEffectSettings& settings,
                   uint32_t startMs, uint32_t endMs);

    // Samples of PCM ('twos', 'sowt') come in any number, AAC one at a time.
    bool IsPcm() const { return m_swap != Swap::kNone; }
    uint32_t SampleRate() const { return m_rate; }

    // No more frames than this can come of so many samples of so many bytes together.
    uint64_t MostFrames(uint64_t samples, uint64_t bytes) const;

    // The samples as stereo frames, treated. What stands in `Pcm` is good until the next call.
    // kMovieCodec when they can't be decoded; the next one may be tried after that.
    MovieCode Treat(const std::vector<uint8_t>& samples, uint32_t positionMs);
    // In place of `samples` of them that can't be decoded: the effects hear silence.
    void TreatSilence(uint32_t samples, uint32_t positionMs);
    // Decodes without treating: what a decoder has to have heard before the first sample.
    MovieCode WarmUp(const std::vector<uint8_t>& samples);

    std::vector<int16_t>& Pcm() { return m_pcm; }
    uint32_t Frames() const { return static_cast<uint32_t>(m_pcm.size() / 2); }
    // The treated PCM as the source's samples have it: with its byte order. PCM alone.
    const std::vector<uint8_t>& AsSource();

private:
    enum class Swap { kNone, kBigEndian, kLittleEndian };
    MovieCode OpenDecoder(const CAudioSampleDescriptionInfo& sound);
    MovieCode Decode(const std::vector<uint8_t>& samples);
    MovieCode DecodeAac(const std::vector<uint8_t>& sample);
    void Process(uint32_t positionMs);

    Swap m_swap = Swap::kNone;
    uint32_t m_rate = 0;
    AMPEffectChainPtr m_chain;
    AacSound m_decoder;
    CReadBuffer m_sample;  // the decoder's own copy
    std::vector<uint8_t> m_bytes;
    std::vector<int16_t> m_pcm;
};

// What keeps the sound of the clip `file` from being treated and saved. `encode`: it is to become
// AAC again.
Reason WhySoundCannotBeSaved(const CAudioSampleDescriptionInfo& sound, const std::string& file,
                             bool encode);

}  // namespace tarn

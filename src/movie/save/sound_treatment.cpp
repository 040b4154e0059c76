#include "movie/save/sound_treatment.h"

#include <utility>

#include "movie/facts/clip_info.h"
#include "movie/facts/movie_text.h"
#include "movie/umc/aac_config.h"
#include "movie/umc/aac_encoder.h"

namespace tarn {
namespace {

constexpr uint32_t kFrameBytes = 4;  // 16-bit left and right
constexpr uint32_t kMostAacSample = 65536;
constexpr uint32_t kMostAacFrames = 2048;  // of a sample, with band replication

UMC::AacConfig config_of(const CAudioSampleDescriptionInfo& sound, bool* good) {
    UMC::AacConfig config;
    const auto bytes = UMC::FindDecoderSpecificInfo(sound.decoderConfig);
    *good = !bytes.empty() && UMC::ParseAacConfig(bytes, &config) == UMC::kStatusOk;
    return config;
}

}  // namespace

Reason WhySoundCannotBeSaved(const CAudioSampleDescriptionInfo& sound, const std::string& file,
                             bool encode) {
    using enum ReasonCode;
    const auto why = [&](ReasonCode code, std::vector<ReasonArgument> arguments = {}) {
        return Reason{code, ReasonSide::kSource, file, std::move(arguments)};
    };
    if (std::string other = ObjectTypeName(sound.objectType); !other.empty())
        return why(kSoundNotDecoded, {std::move(other)});
    const uint64_t channels = SoundChannels(sound);
    if (channels == 1) return why(kSoundMono);
    if (channels != 2) return why(kSoundChannels, {channels});
    if (sound.entry.format != fourcc("mp4a")) {
        const uint64_t bits = sound.entry.sample_size;
        return bits == 16 ? Reason{} : why(kSoundBits, {bits});
    }
    bool good = false;
    const UMC::AacConfig config = config_of(sound, &good);
    if (!good) return why(kSoundConfiguration);
    if (!encode) return {};
    if (config.sbr || config.ps) return why(kSoundReplicated);
    if (config.frameLength != static_cast<int32_t>(UMC::AACEncoder::kBlockFrames))
        return why(kSoundFrameLength);
    if (!UMC::AACEncoder::CanEncode(config.sampleRate, 2))
        return why(kSoundRate, {static_cast<uint64_t>(config.sampleRate)});
    return {};
}

MovieCode SoundTreatment::Open(const CAudioSampleDescriptionInfo& sound,
                               const AMPEffectSettings& settings, uint32_t startMs,
                               uint32_t endMs) {
    if (WhySoundCannotBeSaved(sound, {}, false)) return movie_code(FF4_RET_FORMAT);
    switch (sound.entry.format) {
        case fourcc("twos"):
            m_swap = Swap::kBigEndian;
            break;
        case fourcc("sowt"):
            m_swap = Swap::kLittleEndian;
            break;
        default:
            m_swap = Swap::kNone;
    }
    m_rate = sound.entry.sampling_rate;
    if (!IsPcm()) MOVIE_TRY(OpenDecoder(sound));
    m_chain.reset(AMPEffectCreate(m_rate));
    if (!m_chain) return movie_code(FF4_RET_FORMAT);
    AMPEffectSetRange(m_chain.get(), startMs, endMs);
    return AMPEffectSetParameters(m_chain.get(), settings) ? kMovieOk : movie_code(FF4_RET_NOMEM);
}

uint64_t SoundTreatment::MostFrames(uint64_t samples, uint64_t bytes) const {
    return IsPcm() ? bytes / kFrameBytes : samples * kMostAacFrames;
}

MovieCode SoundTreatment::OpenDecoder(const CAudioSampleDescriptionInfo& sound) {
    bool good = false;
    const UMC::AacConfig config = config_of(sound, &good);
    if (!good) return kMovieCodec;
    m_rate = static_cast<uint32_t>(config.outputRate != 0 ? config.outputRate : config.sampleRate);
    return m_decoder.Init(sound, m_rate, true) ? kMovieOk : kMovieCodec;
}

MovieCode SoundTreatment::Decode(const std::vector<uint8_t>& samples) {
    if (IsPcm()) {
        const bool big = m_swap == Swap::kBigEndian;
        m_pcm.resize(samples.size() / kFrameBytes * 2);
        for (size_t i = 0; i < m_pcm.size(); ++i) {
            const uint8_t high = samples[2 * i + (big ? 0 : 1)];
            const uint8_t low = samples[2 * i + (big ? 1 : 0)];
            m_pcm[i] = static_cast<int16_t>(high << 8 | low);
        }
        return kMovieOk;
    }
    return DecodeAac(samples);
}

MovieCode SoundTreatment::DecodeAac(const std::vector<uint8_t>& sample) {
    m_pcm.clear();
    if (sample.size() > kMostAacSample) return kMovieCodec;
    m_sample.data = sample;
    std::span<const int16_t> pcm;
    const UMC::Status status = m_decoder.Decode(&m_sample, &pcm);
    if (status == UMC::kStatusNoMemory) return movie_code(FF4_RET_NOMEM);
    // Not what the configuration said: another channel count in the frames.
    if (status != UMC::kStatusOk || m_decoder.Channels() != 2) return kMovieCodec;
    m_pcm.assign(pcm.begin(), pcm.end());
    return kMovieOk;
}

MovieCode SoundTreatment::WarmUp(const std::vector<uint8_t>& samples) {
    return IsPcm() ? kMovieOk : Decode(samples);
}

MovieCode SoundTreatment::Treat(const std::vector<uint8_t>& samples, uint32_t positionMs) {
    MOVIE_TRY(Decode(samples));
    Process(positionMs);
    return kMovieOk;
}

void SoundTreatment::TreatSilence(uint32_t samples, uint32_t positionMs) {
    const size_t frames = size_t{samples} * (IsPcm() ? 1 : m_decoder.FrameLength());
    m_pcm.assign(2 * frames, 0);
    Process(positionMs);
}

void SoundTreatment::Process(uint32_t positionMs) {
    if (!m_pcm.empty())
        AMPEffectProcess(m_chain.get(), m_pcm.data(), m_pcm.data(), Frames(), positionMs);
}

const std::vector<uint8_t>& SoundTreatment::AsSource() {
    const bool big = m_swap == Swap::kBigEndian;
    m_bytes.resize(m_pcm.size() * 2);
    for (size_t i = 0; i < m_pcm.size(); ++i) {
        const auto value = static_cast<uint16_t>(m_pcm[i]);
        m_bytes[2 * i + (big ? 0 : 1)] = static_cast<uint8_t>(value >> 8);
        m_bytes[2 * i + (big ? 1 : 0)] = static_cast<uint8_t>(value);
    }
    return m_bytes;
}

}  // namespace tarn

#include "movie/save/effect_writer.h"

#include <algorithm>

namespace tarn {
namespace {

constexpr int32_t kBitRate = 128000;
constexpr uint32_t kProfileKbit = 128;
constexpr uint32_t kWarmUpSamples = 2;
constexpr uint32_t kMostPcmRun = 16384;  // frames read and treated together

uint32_t block_units(uint32_t timescale, uint32_t rate) {
    uint64_t units = 0;
    static_cast<void>(mp4_mul_div(UMC::AACEncoder::kBlockFrames, timescale, rate, &units));
    return static_cast<uint32_t>(units);
}

}  // namespace

MovieCode SoundReader::Open(CMP4MovieRead* reader, const AMPEffectSettings& settings,
                            uint32_t startMs, uint32_t endMs, bool warmUp) {
    m_reader = reader;
    m_startMs = startMs;
    m_warmUp = warmUp;
    const auto& list = reader->GetInfo().audioDescriptions;
    if (list.empty()) return movie_code(FF4_RET_FORMAT);
    return m_treatment.Open(list[0], settings, startMs, endMs);
}

// A decoder needs the sample before to give the first one whole.
MovieCode SoundReader::WarmUp() {
    for (uint32_t back = kWarmUpSamples; back > 0; --back) {
        if (back >= m_reader->GetInfo().audio.currentSample) continue;
        MOVIE_TRY(m_reader->PeekAudioSample(back, &m_buffer));
        // A broken one is no loss: it is not part of the selection.
        static_cast<void>(m_treatment.WarmUp(m_buffer.data));
    }
    return kMovieOk;
}

uint32_t SoundReader::Position(int64_t startsAt) const {
    const int64_t at = static_cast<int64_t>(m_time) - startsAt;
    uint64_t ms = 0;
    static_cast<void>(mp4_mul_div(static_cast<uint64_t>(std::max<int64_t>(at, 0)), 1000,
                                  m_reader->GetInfo().audio.timescale, &ms));
    return static_cast<uint32_t>(std::min<uint64_t>(m_startMs + ms, UINT32_MAX));
}

MovieCode SoundReader::Next(uint64_t most, int64_t startsAt, uint64_t* taken) {
    *taken = 0;
    if (!m_started && m_warmUp) MOVIE_TRY(WarmUp());
    m_started = true;
    ReadSampleInfo info;
    const uint32_t run = m_treatment.IsPcm() ? kMostPcmRun : 1;
    MOVIE_TRY(m_reader->ReadAudioRun(run, most, &m_buffer, &info, &m_samples));
    if (m_samples == 0) return kMovieOk;
    m_duration = info.duration;
    m_description = info.description;
    MOVIE_TRY(m_treatment.Treat(m_buffer.data, Position(startsAt)));
    *taken = uint64_t{m_samples} * m_duration;
    m_time += *taken;
    return kMovieOk;
}

MovieCode CMP4MovieWriteWithAudioEffect::DescribeSound() {
    MOVIE_TRY(m_sound.Open(&Reader(), m_settings, m_inMs, m_outMs, Options().compensateDelay));
    if (m_sound.Treated().IsPcm()) return CMP4MovieWrite::DescribeSound();
    MOVIE_TRY(OpenEncoder());
    return DescribeAac();
}

MovieCode CMP4MovieWriteWithAudioEffect::OpenEncoder() {
    UMC::AACEncoderParams params;
    params.objectType = UMC::kAacLc;
    params.outputFormat = 2;
    params.info.bitRate = kBitRate;
    params.info.streamType = 1;
    params.info.channels = 2;
    params.info.sampleRate = static_cast<int32_t>(m_sound.Treated().SampleRate());
    params.info.bitsPerSample = 16;
    if (m_encoder.Init(&params) != UMC::kStatusOk || m_encoder.GetInfo(&params) < 0)
        return kMovieCodec;
    if (m_frame.Alloc(params.suggestedOutputSize) != UMC::kStatusOk)
        return movie_code(FF4_RET_NOMEM);
    if (!Options().compensateDelay) return kMovieOk;
    // Frame k then holds what went in D samples earlier, so its duration is that block's.
    const uint32_t rate = m_sound.Treated().SampleRate();
    const uint32_t timescale = Source().audio.timescale;
    MOVIE_TRY(mp4_mul_div(m_encoder.GetDelay(), timescale, rate, &m_delay));
    uint64_t left = m_delay;
    for (const uint32_t block = block_units(timescale, rate); left > 0 && block > 0;) {
        m_durations.push_back(static_cast<uint32_t>(std::min<uint64_t>(left, block)));
        left -= m_durations.back();
    }
    return kMovieOk;
}

MovieCode CMP4MovieWriteWithAudioEffect::DescribeAac() {
    const auto config = m_encoder.GetDecoderSpecificInfo();
    uint8_t specific[2] = {};
    std::copy_n(config.begin(), std::min<size_t>(config.size(), sizeof specific), specific);
    Mp4SampleEntry entry{};
    entry.kind = kEntryAudio;
    entry.format = fourcc("mp4a");
    entry.data_reference_index = 1;
    entry.audio.channel_count = 2;
    entry.audio.sample_size = 16;
    entry.audio.sampling_rate = m_sound.Treated().SampleRate();
    // Rates above 65,535 do not fit the field and stand in the configuration alone.
    if (entry.audio.sampling_rate <= UINT16_MAX)
        entry.audio.sample_rate = entry.audio.sampling_rate << 16;
    entry.es.has_es = true;
    entry.es.has_config = true;
    entry.es.object_type_indication = 0x40;
    entry.es.stream_type = 5;
    entry.es.buffer_size_db = m_frame.GetBufferSize();
    entry.es.max_bitrate = entry.es.avg_bitrate = kBitRate;
    entry.es.has_specific_info = true;
    entry.es.decoder_specific_info = {specific, static_cast<uint32_t>(config.size())};
    uint32_t index = 0;
    return movie_code(mp4_add_track_description(Session(), Sound().number, entry, &index));
}

void CMP4MovieWriteWithAudioEffect::AdjustProfile(Mp4ProfileBuild* profile) const {
    if (profile->audio.codec != fourcc("mp4a")) return;
    profile->audio.max_bitrate = profile->audio.average_bitrate = kProfileKbit;
}

MovieCode CMP4MovieWriteWithAudioEffect::TakeSound(uint64_t most, Chunk* chunk, uint64_t* taken) {
    MOVIE_TRY(m_sound.Next(most, SoundStart(), taken));
    if (*taken == 0) return kMovieOk;
    m_started = true;
    if (!m_sound.Treated().IsPcm()) {
        chunk->description = 1;
        m_durations.push_back(m_sound.SampleDuration());
        return Encode(chunk);
    }
    chunk->description = m_sound.Description();
    const std::vector<uint8_t>& bytes = m_sound.Treated().AsSource();
    const uint32_t samples = m_sound.Samples();
    return Store(
        bytes.data(), bytes.size(),
        {samples, static_cast<uint32_t>(bytes.size() / samples), m_sound.SampleDuration(), 0, true},
        chunk);
}

// One block in, one frame out. A short block of a last sample is filled up with silence.
MovieCode CMP4MovieWriteWithAudioEffect::Encode(Chunk* chunk) {
    m_block = m_sound.Treated().Pcm();
    if (m_block.size() > 2 * UMC::AACEncoder::kBlockFrames) return kMovieCodec;
    m_block.resize(2 * UMC::AACEncoder::kBlockFrames);
    UMC::MediaData pcm;
    const auto size = static_cast<uint32_t>(m_block.size() * sizeof(int16_t));
    if (pcm.SetBufferPointer(reinterpret_cast<uint8_t*>(m_block.data()), size) != UMC::kStatusOk ||
        pcm.SetDataSize(size) != UMC::kStatusOk)
        return kMovieCodec;
    m_frame.Reset();
    if (m_encoder.GetFrame(&pcm, &m_frame) != UMC::kStatusOk) return kMovieCodec;
    return StoreFrame(chunk);
}

MovieCode CMP4MovieWriteWithAudioEffect::StoreFrame(Chunk* chunk) {
    if (m_durations.empty()) return kMovieCodec;
    const uint32_t duration = m_durations.front();
    m_durations.pop_front();
    const uint32_t size = m_frame.GetDataSize();
    return Store(m_frame.GetDataPointer(), size, {1, size, duration, 0, true}, chunk);
}

// The frames that the encoder still holds belong to the last samples that went in.
MovieCode CMP4MovieWriteWithAudioEffect::FinishSound(Chunk* chunk) {
    if (!m_started || m_sound.Treated().IsPcm() || !Options().compensateDelay) return kMovieOk;
    chunk->description = 1;
    while (!m_durations.empty()) {
        m_frame.Reset();
        const UMC::Status status = m_encoder.Drain(&m_frame);
        if (status == UMC::kStatusNoData) break;
        if (status != UMC::kStatusOk) return kMovieCodec;
        MOVIE_TRY(StoreFrame(chunk));
    }
    return kMovieOk;
}

}  // namespace tarn

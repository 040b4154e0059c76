#include "movie/save/effect_writer.h"

#include <algorithm>

#include "movie/umc/aac_config.h"

namespace tarn {
namespace {

constexpr int32_t kBitRate = 128000;
constexpr uint32_t kMostPcmRun = 16384;  // frames read and treated together

// The largest frame of AAC in stereo, and how many frames the encoder can hold back.
constexpr uint64_t kMostAacFrame = 2 * 6144 / 8;
constexpr uint64_t kMostFramesHeld = 8;
// Room for what is not media: headers and tables, generously.
constexpr uint64_t kHeadRoom = 1 << 20;
constexpr uint64_t kTableBytesPerSample = 32;

// The most that the media of a save can take: pictures as they are, sound at its new rate or, PCM,
// as it is. Headers may claim any length; no more sound comes out than there are samples.
uint64_t most_media_bytes(const MovieRange& range) {
    const uint64_t ms = range.actualOutMs - std::min(range.actualOutMs, range.actualInMs);
    const uint64_t frames = uint64_t{range.audio.end - range.audio.first} + kMostFramesHeld;
    return range.video.bytes + range.audio.bytes +
           std::min((ms / 1000 + 1) * (kBitRate / 8), frames * kMostAacFrame);
}

uint64_t table_bytes(const MovieRange& range) {
    const uint64_t samples =
        uint64_t{range.video.end - range.video.first} + (range.audio.end - range.audio.first);
    return samples * kTableBytesPerSample;
}

uint32_t block_units(uint32_t timescale, uint32_t rate) {
    return static_cast<uint32_t>(mp4_mul_div_or(UMC::AACEncoder::kBlockFrames, timescale, rate, 0));
}

}  // namespace

MovieCode SoundReader::Open(CMP4MovieRead* reader, const AMPEffectSettings& settings,
                            uint32_t startMs, uint32_t endMs, bool warmUp) {
    m_reader = reader;
    m_startMs = startMs;
    m_warmUp = warmUp;
    const auto& list = reader->GetInfo().audioDescriptions;
    if (list.empty()) return movie_code(FF4_RET_FORMAT);
    m_selected = reader->GetRange().audio.end - reader->GetRange().audio.first;
    return m_treatment.Open(list[0], settings, startMs, endMs);
}

// A decoder needs the sample before to give the first one whole.
MovieCode SoundReader::WarmUp() {
    for (uint32_t back = kWarmUpSamples; back > 0; --back) {
        if (back >= m_reader->GetCursor(CMP4MovieRead::Track::kAudio).currentSample) continue;
        MOVIE_TRY(m_reader->PeekAudioSample(back, &m_buffer));
        // A broken one is no loss: it is not part of the selection.
        static_cast<void>(m_treatment.WarmUp(m_buffer.data));
    }
    return kMovieOk;
}

uint32_t SoundReader::Position(int64_t startsAt) const {
    const int64_t at = std::max<int64_t>(static_cast<int64_t>(m_time) - startsAt, 0);
    const uint64_t ms =
        mp4_mul_div_or(static_cast<uint64_t>(at), 1000, m_reader->GetInfo().audio.timescale, 0);
    return static_cast<uint32_t>(std::min<uint64_t>(m_startMs + ms, UINT32_MAX));
}

MovieCode SoundReader::Next(uint64_t most, int64_t startsAt) {
    if (!m_started && m_warmUp) MOVIE_TRY(WarmUp());
    m_started = true;
    ReadSampleInfo info;
    const uint32_t run = m_treatment.IsPcm() ? kMostPcmRun : 1;
    MOVIE_TRY(m_reader->ReadAudioRun(run, most, &m_buffer, &info, &m_samples));
    if (m_samples == 0) return kMovieOk;
    m_duration = info.duration;
    m_description = info.description;
    MOVIE_TRY(TreatSamples(info, Position(startsAt)));
    m_time += Taken();
    return kMovieOk;
}

MovieCode SoundReader::TreatSamples(const ReadSampleInfo& info, uint32_t positionMs) {
    const TrackCursor& cursor = m_reader->GetCursor(CMP4MovieRead::Track::kAudio);
    const uint32_t number = cursor.currentSample - m_samples;
    if (!IsAsDescribed()) return Refuse(ReasonCode::kSoundChanges, number);
    const MovieCode code =
        info.isMissing ? kMovieCodec : m_treatment.Treat(m_buffer.data, positionMs);
    if (code != kMovieCodec) return code;
    if (!m_reader->GetReadOptions().silenceDamage)
        return Refuse(ReasonCode::kDamagedSample, number);
    if (m_damage.samples == 0) m_damage.firstTime = cursor.currentTime - Taken();
    m_damage.samples += m_samples;
    if (m_damage.samples > m_selected / 2)
        return Refuse(ReasonCode::kSoundMostlyDamaged, m_selected);
    m_treatment.TreatSilence(m_samples, positionMs);
    return kMovieOk;
}

// The decoder and the chain were set up for the first description.
bool SoundReader::IsAsDescribed() const {
    const auto& list = m_reader->GetInfo().audioDescriptions;
    if (m_description <= 1 || m_description > list.size()) return true;
    const CAudioSampleDescriptionInfo &first = list[0], &other = list[m_description - 1];
    return first.entry.format == other.entry.format &&
           first.entry.channel_count == other.entry.channel_count &&
           first.entry.sample_size == other.entry.sample_size &&
           first.entry.sampling_rate == other.entry.sampling_rate &&
           std::ranges::equal(UMC::FindDecoderSpecificInfo(first.decoderConfig),
                              UMC::FindDecoderSpecificInfo(other.decoderConfig));
}

MovieCode SoundReader::Refuse(ReasonCode code, uint64_t number) {
    m_reason = {code, ReasonSide::kSource, m_reader->Path(), {number}};
    return kMovieCodec;
}

MovieCode EffectSound::Open(CMP4MovieRead* reader, const MovieWriteOptions& options) {
    m_compensateDelay = options.compensateDelay;
    MOVIE_TRY(m_sound.Open(reader, m_settings, m_inMs, m_outMs, m_compensateDelay));
    if (m_sound.Treated().IsPcm()) return kMovieOk;
    MOVIE_TRY(OpenEncoder(reader->GetInfo().audio.timescale));
    Describe();
    return kMovieOk;
}

MovieCode EffectSound::OpenEncoder(uint32_t timescale) {
    const uint32_t rate = m_sound.Treated().SampleRate();
    UMC::AACEncoderParams params;
    params.objectType = UMC::kAacLc;
    params.outputFormat = 2;
    params.info.bitRate = kBitRate;
    params.info.streamType = 1;
    params.info.channels = 2;
    params.info.sampleRate = static_cast<int32_t>(rate);
    params.info.bitsPerSample = 16;
    if (m_encoder.Init(&params) != UMC::kStatusOk || m_encoder.GetInfo(&params) < 0)
        return kMovieCodec;
    if (m_frame.Alloc(params.suggestedOutputSize) != UMC::kStatusOk)
        return movie_code(FF4_RET_NOMEM);
    if (!m_compensateDelay) return kMovieOk;
    // Frame k then holds what went in D samples earlier, so its duration is that block's.
    MOVIE_TRY(mp4_mul_div(m_encoder.GetDelay(), timescale, rate, &m_delay));
    uint64_t left = m_delay;
    for (const uint32_t block = block_units(timescale, rate); left > 0 && block > 0;) {
        m_durations.push_back(static_cast<uint32_t>(std::min<uint64_t>(left, block)));
        left -= m_durations.back();
    }
    return kMovieOk;
}

void EffectSound::Describe() {
    const auto config = m_encoder.GetDecoderSpecificInfo();
    m_config.assign(config.begin(), config.end());
    m_entry = {};
    m_entry.kind = kEntryAudio;
    m_entry.format = fourcc("mp4a");
    m_entry.data_reference_index = 1;
    m_entry.audio.channel_count = 2;
    m_entry.audio.sample_size = 16;
    m_entry.audio.sampling_rate = m_sound.Treated().SampleRate();
    // Rates above 65,535 do not fit the field and stand in the configuration alone.
    if (m_entry.audio.sampling_rate <= UINT16_MAX)
        m_entry.audio.sample_rate = m_entry.audio.sampling_rate << 16;
    m_entry.es.has_es = true;
    m_entry.es.has_config = true;
    m_entry.es.object_type_indication = 0x40;
    m_entry.es.stream_type = 5;
    m_entry.es.buffer_size_db = m_frame.GetBufferSize();
    m_entry.es.max_bitrate = m_entry.es.avg_bitrate = kBitRate;
    m_entry.es.has_specific_info = true;
    m_entry.es.decoder_specific_info = {m_config.data(), static_cast<uint32_t>(m_config.size())};
}

const Mp4SampleEntry* EffectSound::Description() const {
    return m_sound.Treated().IsPcm() ? nullptr : &m_entry;
}

MovieCode EffectSound::Next(uint64_t most, int64_t startsAt, SoundBlock* block) {
    MOVIE_TRY(m_sound.Next(most, startsAt));
    block->samples = m_sound.Samples();
    if (block->samples == 0) return kMovieOk;
    block->taken = m_sound.Taken();
    m_started = true;
    if (!m_sound.Treated().IsPcm()) {
        m_durations.push_back(m_sound.SampleDuration());
        return Encode(block);
    }
    const std::vector<uint8_t>& bytes = m_sound.Treated().AsSource();
    block->data = bytes.data();
    block->size = bytes.size();
    const auto size = static_cast<uint32_t>(bytes.size() / block->samples);
    block->run = {block->samples, size, m_sound.SampleDuration(), 0, true};
    block->description = m_sound.Description();
    return kMovieOk;
}

// One block in, one frame out. A short block of a last sample is filled up with silence.
MovieCode EffectSound::Encode(SoundBlock* block) {
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
    return TakeFrame(block);
}

MovieCode EffectSound::TakeFrame(SoundBlock* block) {
    if (m_durations.empty()) return kMovieCodec;
    block->data = m_frame.GetDataPointer();
    block->size = m_frame.GetDataSize();
    block->run = {1, m_frame.GetDataSize(), m_durations.front(), 0, true};
    m_durations.pop_front();
    return kMovieOk;
}

// The frames that the encoder still holds belong to the last samples that went in.
MovieCode EffectSound::NextHeld(SoundBlock* block) {
    const bool holds = m_started && !m_sound.Treated().IsPcm() && m_compensateDelay;
    if (!holds || m_durations.empty()) return kMovieEndOfSamples;
    m_frame.Reset();
    const UMC::Status status = m_encoder.Drain(&m_frame);
    if (status == UMC::kStatusNoData) return kMovieEndOfSamples;
    return status == UMC::kStatusOk ? TakeFrame(block) : kMovieCodec;
}

MovieCode CMP4MovieWriteWithAudioEffect::Open(const XpSharedPtr<CMP4MovieRead>& reader) {
    const MovieRange& range = reader->GetRange();
    const uint64_t media = most_media_bytes(range);
    m_mostBytes = media + table_bytes(range) + kHeadRoom;
    return Open(reader, kMovieAfterMedia, media);
}

}  // namespace tarn

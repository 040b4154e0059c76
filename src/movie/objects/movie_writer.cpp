#include "movie/objects/movie_writer.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <utility>

#include "movie/engine/descriptions.h"
#include "mp4format/time_math.h"

namespace tarn {
namespace {

constexpr uint32_t kStagingBytes = 1000000;
constexpr uint32_t kMinorVersion = 0x146008A;
constexpr uint32_t kSoundKbit = 128;  // of re-encoded sound, in a camera clip's profile
// A chunk of AVC or HEVC is a second at most, of any other picture five. Intended to differ.
constexpr uint64_t kAvcChunkMs = 1000;
constexpr uint64_t kOtherChunkMs = 5000;
constexpr uint64_t kSoundChunkMs = 1000;  // of a movie without picture
constexpr uint64_t kSecondsFrom1904To1970 = 2082844800;

void add_run(const Mp4SampleRun& run, std::vector<Mp4SampleRun>* runs) {
    if (!runs->empty()) {
        Mp4SampleRun& last = runs->back();
        if (last.size == run.size && last.duration == run.duration &&
            last.composition_offset == run.composition_offset && last.is_sync == run.is_sync) {
            last.count += run.count;
            return;
        }
    }
    runs->push_back(run);
}

}  // namespace

CMP4MovieWrite::~CMP4MovieWrite() {
    if (m_session) static_cast<void>(mp4_close_write(m_host, m_session));
    mp4_free_host(m_host);
}

MovieCode CMP4MovieWrite::Failed(int error) {
    m_reason = MovieReason(kMovieSystem, ReasonSide::kTarget, m_path, error != 0 ? error : EIO);
    return kMovieSystem;
}

// A failed file call of the engine becomes the system's own error.
MovieCode CMP4MovieWrite::Written(Mp4Result result) {
    if (result == FF4_RET_FILE) return Failed(m_output.File().LastError());
    return movie_code(result);
}

MovieCode CMP4MovieWrite::Open(XpSharedPtr<CMP4MovieRead> reader, Mp4Layout layout,
                               uint64_t totalBytes) {
    if (!reader || !m_sound || m_path.empty()) return movie_code(FF4_RET_ARGS);
    m_reader = std::move(reader);
    m_total = m_reader->GetSelectedSampleCount();
    if (!m_stagingBuffer.Allocate(kStagingBytes)) return kMovieBuffer;
    if (const int error = m_output.Create(m_path)) return Failed(error);
    MOVIE_TRY(OpenSession());
    MOVIE_TRY(AddHead());
    if (m_reader->HasVideo()) MOVIE_TRY(AddTrack(Source().video, fourcc("vide"), &m_video));
    if (m_reader->HasAudio()) MOVIE_TRY(AddTrack(Source().audio, fourcc("soun"), &m_audio));
    if (Source().hasBrandMsnv) MOVIE_TRY(AddProfile());
    return Written(mp4_begin_media(m_session, layout, totalBytes, &m_dataOffset));
}

MovieCode CMP4MovieWrite::OpenSession() {
    Mp4HostCallbacks callbacks{};
    mp4_init_file_callbacks(&callbacks);
    callbacks.userData = &m_output.File();
    MOVIE_TRY(mp4_create_host(callbacks, &m_host));
    return movie_code(mp4_open_write(m_host, reinterpret_cast<Mp4File*>(&m_output.File()),
                                     kWriteAsNeeded, &m_session));
}

MovieCode CMP4MovieWrite::AddHead() {
    const CMovieInfoType& source = Source();
    if (source.timescale == 0) return movie_code(FF4_RET_FORMAT);
    Mp4MovieHeader header{};
    header.timescale = source.timescale;
    MOVIE_TRY(mp4_create_movie(m_session, kFieldTimescale, header));

    std::vector<uint32_t> brands;
    if (source.hasBrandMsnv) brands.push_back(fourcc("MSNV"));
    if (source.hasBrandIsom) brands.push_back(fourcc("isom"));
    if (source.hasBrandMp42) brands.push_back(fourcc("mp42"));
    MOVIE_TRY(mp4_set_file_type(m_session, source.majorBrand, kMinorVersion, brands.data(),
                                static_cast<uint32_t>(brands.size())));
    return AddMetadata();
}

MovieCode CMP4MovieWrite::AddMetadata() {
    for (const CMetaDataInfo& text : Source().metaData) {
        Mp4MetaItem item{};
        item.type = text.type;
        item.flag = text.flag;
        item.language = text.language;
        item.encoding = text.encoding;
        item.loaded = true;
        // The engine copies what it is handed.
        item.data = {const_cast<uint8_t*>(text.data.data()),
                     static_cast<uint32_t>(text.data.size())};
        MOVIE_TRY(mp4_add_meta_text(m_session, 0, item));
    }
    for (const CMetaTypeDefinition& type : Source().metaTypes) {
        Mp4MetaItem item{};
        item.type = type.type;
        item.language = type.field1;
        item.encoding = type.field2;
        item.loaded = true;
        // Intended: the name goes along, the payload does not.
        item.data = {const_cast<uint8_t*>(type.name), sizeof type.name};
        MOVIE_TRY(mp4_add_meta_file(m_session, 0, item));
    }
    return kMovieOk;
}

MovieCode CMP4MovieWrite::AddTrack(const MovieTrackInfo& source, uint32_t handler,
                                   WrittenTrack* track) {
    Mp4TrackHeaderInfo header{};
    MOVIE_TRY(mp4_get_track_header(m_reader->Session(), source.trackNumber, &header));
    const Mp4OpenTrack* open = mp4_find_open_track(m_reader->Session(), source.trackNumber);
    Mp4NewTrack made{};
    made.handler_type = handler;
    made.timescale = source.timescale;
    made.visibility = 1;
    made.language = m_language;
    made.layer = header.layer;
    made.alternate_group = header.alternate_group;
    made.width_integer = header.width_integer;
    made.width_fraction = header.width_fraction;
    made.height_integer = header.height_integer;
    made.height_fraction = header.height_fraction;
    std::copy(std::begin(header.matrix), std::end(header.matrix), made.matrix);
    const bool pcm = handler == fourcc("soun") && !Source().audioDescriptions.empty() &&
                     Source().audioDescriptions[0].entry.format != fourcc("mp4a");
    if (pcm && open) made.constant_size = open->tables.sample_size;
    MOVIE_TRY(mp4_add_track(m_session, made, &track->number, &track->id));
    MOVIE_TRY(mp4_add_track_data_ref(m_session, track->number, fourcc("url "), nullptr, nullptr));
    if (Source().hasBrandMsnv)
        MOVIE_TRY(mp4_add_track_role(m_session, track->number, kRoleMain, source.roleDetail));
    if (handler == fourcc("soun")) return DescribeSound();
    return CopyDescriptions(source, track->number);
}

// All descriptions of a source track with their indexes.
MovieCode CMP4MovieWrite::CopyDescriptions(const MovieTrackInfo& source, uint32_t track) {
    const auto add = [&](uint32_t index, const Mp4SampleEntry& entry) {
        Mp4SampleEntry copy = entry;  // shallow: only the reference is changed
        copy.data_reference_index = 1;
        return mp4_add_track_description(m_session, track, copy, &index);
    };
    return movie_code(
        mp4_visit_sample_entries(m_reader->Session(), source.trackNumber, UINT32_MAX, add));
}

MovieCode CMP4MovieWrite::DescribeSound() {
    MOVIE_TRY(m_sound->Open(m_reader.get(), m_options));
    const Mp4SampleEntry* entry = m_sound->Description();
    if (!entry) return CopyDescriptions(Source().audio, m_audio.number);
    uint32_t index = 0;
    return movie_code(mp4_add_track_description(m_session, m_audio.number, *entry, &index));
}

MovieCode CMP4MovieWrite::AddProfile() {
    Mp4ProfileBuild profile{};
    profile.has_file = profile.has_video = profile.has_audio = true;
    profile.file_profile = Source().fileProfile & ~kProfileFragmented;
    profile.video = Source().videoProfile;
    profile.video.track_id = m_video.id;
    profile.audio = Source().audioProfile;
    profile.audio.track_id = m_audio.id;
    if (profile.audio.codec == fourcc("mp4a"))
        profile.audio.max_bitrate = profile.audio.average_bitrate = kSoundKbit;
    return movie_code(mp4_set_profile(m_session, profile));
}

MovieCode CMP4MovieWrite::Store(const void* data, uint64_t size, const Mp4SampleRun& run,
                                Chunk* chunk) {
    if (chunk->runs.empty()) chunk->offset = m_dataOffset + m_dataWritten;
    if (const int error = m_stagingBuffer.Append(&m_output.File(), data, size))
        return Failed(error);
    m_dataWritten += size;
    chunk->bytes += size;
    chunk->duration += uint64_t{run.duration} * run.count;
    add_run(run, &chunk->runs);
    return kMovieOk;
}

CMP4MovieWrite::Chunk& CMP4MovieWrite::StartChunk() {
    m_chunk.offset = m_chunk.bytes = m_chunk.duration = 0;
    m_chunk.description = 0;
    m_chunk.runs.clear();
    return m_chunk;
}

MovieCode CMP4MovieWrite::AddChunk(WrittenTrack* track, const Chunk& chunk) {
    if (chunk.runs.empty()) return kMovieOk;
    const Mp4NewChunk added{chunk.offset, chunk.description, chunk.runs.data(),
                            static_cast<uint32_t>(chunk.runs.size())};
    MOVIE_TRY(mp4_add_track_chunk(m_session, track->number, added));
    for (const Mp4SampleRun& run : chunk.runs)
        track->samples += run.count;
    track->bytes += chunk.bytes;
    track->duration += chunk.duration;
    return kMovieOk;
}

// The test is made before a sample is added, in whole milliseconds.
bool CMP4MovieWrite::IsChunkFull(const Chunk& chunk) const {
    const auto& list = Source().videoDescriptions;
    const uint32_t config = list.empty() ? 0 : list[0].entry.config_type;
    const bool avc = config == fourcc("avcC") || config == fourcc("hvcC");
    const uint64_t ms = mp4_mul_div_or(chunk.duration, 1000, Source().video.timescale, 0);
    return ms >= (avc ? kAvcChunkMs : kOtherChunkMs);
}

MovieCode CMP4MovieWrite::WriteVideoChunk(bool* ended) {
    Chunk& chunk = StartChunk();
    CReadBuffer& sample = m_picture;
    ReadSampleInfo info;
    *ended = false;
    for (;;) {
        const MovieCode code = m_reader->ReadVideoSample(&sample, &info);
        *ended = code == kMovieEndOfSamples;
        if (*ended) break;
        MOVIE_TRY(code);
        const bool another = !chunk.runs.empty() && (info.isSync || IsChunkFull(chunk) ||
                                                     info.description != chunk.description);
        if (another) {
            m_reader->UnreadSample(CMP4MovieRead::Track::kVideo);
            break;
        }
        // Pictures that are shown before the sync sample they follow can't be decoded: the output
        // starts with the sync sample.
        if (!m_hasFirstVideo) m_firstVideoTime = info.compositionOffset;
        m_hasFirstVideo = true;
        chunk.description = info.description;
        const Mp4SampleRun run{1, sample.size(), info.duration, info.compositionOffset,
                               info.isSync};
        const auto decoded = static_cast<int64_t>(m_video.duration + chunk.duration);
        m_shownEnd = std::max(m_shownEnd, decoded + info.compositionOffset + info.duration);
        MOVIE_TRY(Store(sample.data.data(), sample.size(), run, &chunk));
    }
    return AddChunk(&m_video, chunk);
}

// How much of the source's sound the next chunk is to take, in media units.
uint64_t CMP4MovieWrite::SoundTarget(bool final) const {
    const MovieTrackInfo& audio = Source().audio;
    // What is left after the pictures goes in steps too: a save can be ended between them.
    if (final || m_video.number == 0) {
        return std::max<uint64_t>(kSoundChunkMs * audio.timescale / 1000, 1);
    }
    const MovieRange& range = m_reader->GetRange();
    const int64_t written = static_cast<int64_t>(m_video.duration) - range.video.startOffset;
    const int64_t target = mp4_scale_nearest(written, audio.timescale, Source().video.timescale) +
                           range.audio.startOffset - static_cast<int64_t>(m_soundTaken);
    return target > 0 ? static_cast<uint64_t>(target) : 0;
}

MovieCode CMP4MovieWrite::WriteAudioChunk(bool final) {
    Chunk& chunk = StartChunk();
    uint64_t left = SoundTarget(final);
    MovieCode code = kMovieOk;
    while (left > 0 && code == kMovieOk) {
        SoundBlock block;
        // Nothing but the sound itself moves these rounds on, so that each takes one sample at
        // least.
        const bool alone = final || m_video.number == 0;
        const uint64_t most = alone && chunk.runs.empty() ? UINT64_MAX : left;
        code = m_sound->Next(most, SoundStart(), &block);
        if (code != kMovieOk || block.samples == 0) break;  // the next one would pass the target
        code = StoreSound(block, &chunk);
        m_soundSamples += block.samples;
        m_soundTaken += block.taken;
        left -= std::min(left, block.taken);
    }
    if (code != kMovieOk && code != kMovieEndOfSamples) return code;
    if (code == kMovieEndOfSamples && !m_soundFinished) {
        m_soundFinished = true;
        MOVIE_TRY(FinishSound(&chunk));
    }
    MOVIE_TRY(AddChunk(&m_audio, chunk));
    return code;
}

MovieCode CMP4MovieWrite::FinishSound(Chunk* chunk) {
    for (;;) {
        SoundBlock block;
        const MovieCode code = m_sound->NextHeld(&block);
        if (code == kMovieEndOfSamples) return kMovieOk;
        MOVIE_TRY(code);
        MOVIE_TRY(StoreSound(block, chunk));
    }
}

MovieCode CMP4MovieWrite::StoreSound(const SoundBlock& block, Chunk* chunk) {
    if (!chunk->runs.empty() && block.description != chunk->description) {
        MOVIE_TRY(AddChunk(&m_audio, *chunk));
        *chunk = {};
    }
    chunk->description = block.description;
    return Store(block.data, block.size, block.run, chunk);
}

MovieCode CMP4MovieWrite::WriteNext() {
    if (!m_session) return kMovieBuffer;
    bool video_ended = true;
    if (m_video.number != 0) MOVIE_TRY(WriteVideoChunk(&video_ended));
    if (m_audio.number == 0) return video_ended ? kMovieDone : kMovieOk;
    const bool final = video_ended && m_video.number != 0;
    const MovieCode code = WriteAudioChunk(final);
    if (code == kMovieEndOfSamples) return video_ended ? kMovieDone : kMovieOk;
    return code;
}

// Media time of the picture that the output begins with.
int64_t CMP4MovieWrite::ShownFrom() const {
    return m_options.exact ? m_reader->GetRange().exactStart : m_firstVideoTime;
}

int64_t CMP4MovieWrite::SoundStart() const {
    const MovieRange& range = m_reader->GetRange();
    // The sound goes with the picture that is really shown first.
    if (m_video.number == 0 || !m_hasFirstVideo) return range.audio.startOffset;
    return range.audio.startOffset + mp4_scale_nearest(ShownFrom() - range.video.presentationStart,
                                                       Source().audio.timescale,
                                                       Source().video.timescale);
}

// `start` and `end` are the media times from and up to which the track is shown, after a wait of so
// many media units.
MovieCode CMP4MovieWrite::AddEdit(const WrittenTrack& track, uint32_t timescale, uint64_t wait,
                                  uint64_t start, uint64_t end) {
    if (track.number == 0 || track.samples == 0) return kMovieOk;
    const auto to_movie = [&](uint64_t units) {
        return static_cast<uint64_t>(
            mp4_scale_nearest(static_cast<int64_t>(units), Source().timescale, timescale));
    };
    if (wait > 0) {
        const Mp4Edit empty{to_movie(wait), -1, 1, 0, nullptr};
        MOVIE_TRY(mp4_add_track_edit(m_session, track.number, empty));
    }
    const Mp4Edit main{to_movie(end - std::min(end, start)), static_cast<int64_t>(start), 1, 0,
                       nullptr};
    return movie_code(mp4_add_track_edit(m_session, track.number, main));
}

MovieCode CMP4MovieWrite::AddEdits() {
    const auto above_zero = [](int64_t value) {
        return value > 0 ? static_cast<uint64_t>(value) : 0;
    };
    const MovieRange& range = m_reader->GetRange();
    MOVIE_TRY(AddEdit(m_video, Source().video.timescale, above_zero(-range.video.startOffset),
                      above_zero(ShownFrom()), above_zero(m_shownEnd)));
    const int64_t sound = SoundStart();
    const uint64_t start = above_zero(sound) + m_sound->Delay();
    return AddEdit(m_audio, Source().audio.timescale, above_zero(-sound), start, m_audio.duration);
}

// What was selected has all been written, whatever the tables made of it.
MovieCode CMP4MovieWrite::CheckNothingLost() {
    const MovieRange& range = m_reader->GetRange();
    const auto lost = [this](const TrackRange& selected, uint64_t written) {
        const uint64_t wanted = selected.end - selected.first;
        if (written == wanted) return false;
        m_reason = {ReasonCode::kSamplesLost, ReasonSide::kTarget, m_path, {written, wanted}};
        return true;
    };
    const bool video = m_video.number != 0 && lost(range.video, m_video.samples);
    const bool audio = m_audio.number != 0 && lost(range.audio, m_soundSamples);
    return video || audio ? movie_code(FF4_RET_INTERNAL) : kMovieOk;
}

MovieCode CMP4MovieWrite::Finish() {
    if (!m_session) return kMovieBuffer;
    if (const int error = m_stagingBuffer.Flush(&m_output.File())) return Failed(error);
    MOVIE_TRY(CheckNothingLost());
    MOVIE_TRY(AddEdits());
    const uint64_t now = static_cast<uint64_t>(std::time(nullptr)) + kSecondsFrom1904To1970;
    MOVIE_TRY(mp4_set_times(m_session, now, now));
    MOVIE_TRY(Written(mp4_finish_write(m_session, m_dataWritten, &m_fileBytes)));
    MOVIE_TRY(mp4_close_write(m_host, std::exchange(m_session, nullptr)));
    m_finished = true;
    return kMovieOk;
}

MovieCode CMP4MovieWrite::Close() {
    if (!m_finished) return kMovieBuffer;
    if (const int error = m_output.Commit()) return Failed(error);
    return kMovieOk;
}

}  // namespace tarn

#include "movie/objects/movie_reader.h"

#include <algorithm>
#include <new>

#include "movie/objects/movie_metadata.h"
#include "movie/objects/track_selection.h"
#include "movie/objects/whole_samples.h"

namespace tarn {
namespace {

// All entries of a table are listed, so that their positions are their indexes.
template <typename Description>
uint32_t position_of(const std::vector<Description>& list, uint32_t index) {
    return index <= list.size() ? index : 0;
}

// A cursor at the start of a whole track.
TrackCursor whole(const MovieTrackInfo& track) {
    return {track.trackNumber, 1, track.sampleCount + 1, 0, track.duration};
}

// At the start of a part of it.
TrackCursor part(const MovieTrackInfo& track, const TrackRange& range) {
    return {track.trackNumber, range.first, range.end, range.firstTime, range.endTime};
}

}  // namespace

MovieCode CMP4MovieInput::Load(Loading loading) {
    Close();
    m_info = {};
    m_reason = {};
    MovieCode code = m_engine.file.Open(m_path);
    if (code != kMovieOk) {
        m_reason = m_engine.file.GetReason();
        return code;
    }
    try {
        code = Told(LoadAll(loading));
    } catch (const std::bad_alloc&) {
        code = Told(movie_code(FF4_RET_NOMEM));
    }
    if (code == kMovieOk) return code;
    Close();
    m_info = {};
    return code;
}

MovieCode CMP4MovieInput::LoadAll(Loading loading) {
    MOVIE_TRY(LoadInfo());
    if (loading == Loading::kWalk) MOVIE_TRY(LoadTimelines());
    if (m_readOptions.endWithFile) MOVIE_TRY(EndWithFile());
    return LoadDescriptions();
}

MovieCode CMP4MovieInput::Told(MovieCode code) {
    if (code != kMovieOk) {
        m_reason = m_engine.file.ReasonFor(code);
    } else if (m_reason) {
        m_reason = {};
    }
    return code;
}

void CMP4MovieInput::Close() {
    m_loaded = false;
    m_info.video.edits.clear();
    m_info.audio.edits.clear();
    CloseEngine();
}

MovieCode CMP4MovieInput::LoadInfo() {
    m_selectedBytes = 0;
    Mp4ReadSession* session = Session();
    if (mp4_open_meta_texts(session, 0, &m_engine.metaTextList) == FF4_RET_OK)
        LoadMetaData(session, m_engine.metaTextList, &m_info.metaData);
    if (mp4_open_meta_files(session, 0, &m_engine.metaFileList) == FF4_RET_OK)
        LoadMetaTypes(session, m_engine.metaFileList, &m_info.metaTypes);

    Mp4FileType type{};
    MOVIE_TRY(mp4_get_file_type(session, &type));
    m_info.majorBrand = type.major_brand;
    m_info.minorVersion = type.minor_version;
    MOVIE_TRY(mp4_has_compatible_brand(session, fourcc("MSNV"), &m_info.hasBrandMsnv));
    MOVIE_TRY(mp4_has_compatible_brand(session, fourcc("isom"), &m_info.hasBrandIsom));
    MOVIE_TRY(mp4_has_compatible_brand(session, fourcc("mp42"), &m_info.hasBrandMp42));
    if (m_info.hasBrandMsnv) MOVIE_TRY(LoadProfiles());
    MOVIE_TRY(LoadTimes());
    MOVIE_TRY(LoadTracks());

    Mp4MovieExtent extent{};
    MOVIE_TRY(mp4_get_movie_extent(session, &extent));
    m_selectedBytes += static_cast<int64_t>(extent.atom.size);
    m_loaded = true;
    return kMovieOk;
}

MovieCode CMP4MovieInput::LoadProfiles() {
    Mp4ReadSession* session = Session();
    Mp4ProfileCounts counts{};
    MOVIE_TRY(mp4_get_profile_counts(session, &counts));
    MOVIE_TRY(mp4_get_file_profile(session, &m_info.fileProfile));
    MOVIE_TRY(mp4_get_video_profile(session, &m_info.videoProfile));
    m_info.video.averageBitRate = m_info.videoProfile.average_bitrate;
    m_info.video.maximumBitRate = m_info.videoProfile.max_bitrate;
    MOVIE_TRY(mp4_get_audio_profile(session, &m_info.audioProfile));
    m_info.audio.averageBitRate = m_info.audioProfile.average_bitrate;
    m_info.audio.maximumBitRate = m_info.audioProfile.max_bitrate;
    return kMovieOk;
}

MovieCode CMP4MovieInput::LoadTimes() {
    Mp4ReadSession* session = Session();
    Mp4MovieHeaderInfo header{};
    // Without a movie header there are no tracks either: the choice of tracks reports that.
    const Mp4Result read = mp4_get_movie_header(session, &header);
    if (read == FF4_RET_FILE || read == FF4_RET_NOMEM) return movie_code(read);
    if (read != FF4_RET_OK) return kMovieOk;
    MOVIE_TRY(mp4_seconds_to_date(session->host, header.creation, &m_info.creationDate));
    MOVIE_TRY(mp4_seconds_to_date(session->host, header.modification, &m_info.modificationDate));
    m_info.timescale = m_info.editTimescale = header.timescale;
    MOVIE_TRY(mp4_get_movie_duration(session, &m_info.duration));
    m_info.editDuration = m_info.duration;
    return kMovieOk;
}

MovieCode CMP4MovieInput::LoadTracks() {
    uint32_t chosen = 0;
    MOVIE_TRY(SelectTracks(Session(), m_info.hasBrandMsnv != 0, &m_info, &chosen));
    return chosen == 0 ? kMovieNoTrack : kMovieOk;
}

MovieCode CMP4MovieInput::LoadTimelines() {
    if (HasVideo()) {
        MOVIE_TRY(mp4_get_track_duration(Session(), m_info.video.trackNumber,
                                         &m_info.videoDurationMovie));
        MOVIE_TRY(ReadTrackInfo(Session(), &m_info.video));
    }
    if (HasAudio()) {
        MOVIE_TRY(ReadTrackInfo(Session(), &m_info.audio));
        Mp4TrackHeaderInfo header{};
        MOVIE_TRY(mp4_get_track_header(Session(), m_info.audio.trackNumber, &header));
        m_info.audio.width = header.width_integer;
        m_info.audio.height = header.height_integer;
    }
    return kMovieOk;
}

// A track without a whole sample is none.
MovieCode CMP4MovieInput::EndWithFile() {
    if (HasVideo()) MOVIE_TRY(CutMissingSamples(Session(), &m_info.video));
    if (HasAudio()) MOVIE_TRY(CutMissingSamples(Session(), &m_info.audio));
    if (m_info.video.missingSamples == 0 && m_info.audio.missingSamples == 0) return kMovieOk;
    uint64_t end = 0;  // of what is left, in movie units
    for (MovieTrackInfo* track : {&m_info.video, &m_info.audio}) {
        if (track->missingSamples > 0 && track->sampleCount == 0) track->trackNumber = 0;
        if (track->trackNumber == 0) continue;
        uint64_t track_end = 0;
        MOVIE_TRY(GetMovieEnd(Session(), *track, m_info.timescale, &track_end));
        end = std::max(end, track_end);
    }
    m_info.duration = std::min(m_info.duration, end);
    return HasVideo() || HasAudio() ? kMovieOk : movie_code(FF4_RET_FILE);
}

MovieCode CMP4MovieInput::LoadDescriptions() {
    Mp4ReadSession* session = Session();
    if (HasVideo()) {
        MOVIE_TRY(
            ReadVideoDescriptions(session, m_info.video.trackNumber, &m_info.videoDescriptions));
        MOVIE_TRY(CheckTrack(session, m_info.video.trackNumber, m_info.videoDescriptions.size()));
    }
    if (HasAudio()) {
        MOVIE_TRY(
            ReadAudioDescriptions(session, m_info.audio.trackNumber, &m_info.audioDescriptions));
        MOVIE_TRY(CheckTrack(session, m_info.audio.trackNumber, m_info.audioDescriptions.size()));
    }
    return kMovieOk;
}

uint64_t CMP4MovieInput::GetDurationMs() const {
    return mp4_mul_div_or(m_info.duration, 1000, m_info.timescale, 0);
}

uint32_t CMP4MovieInput::FindVideoDescription(uint32_t index) const {
    return position_of(m_info.videoDescriptions, index);
}

uint32_t CMP4MovieInput::FindAudioDescription(uint32_t index) const {
    return position_of(m_info.audioDescriptions, index);
}

std::string CMP4MovieReader::AudioProfileTag() const {
    Mp4AudioProfile profile{};
    if (!Session() || mp4_get_audio_profile(Session(), &profile) != FF4_RET_OK) return {};
    std::string tag;
    for (int shift = 24; shift >= 0; shift -= 8)
        tag += static_cast<char>(profile.codec >> shift & 0xFF);
    return tag;
}

MovieCode CMP4MovieRead::Open() {
    m_video = m_audio = {};
    m_range = {};
    MOVIE_TRY(Load(Loading::kWalk));
    m_video = whole(m_info.video);
    m_audio = whole(m_info.audio);
    return kMovieOk;
}

MovieCode CMP4MovieRead::SelectRange(uint64_t* inMs, uint64_t* outMs, bool atEnd) {
    if (!m_loaded || !inMs || !outMs) return movie_code(FF4_RET_STATE);
    const auto limit = static_cast<uint64_t>(std::max<int64_t>(m_sizeLimit, 0));
    MOVIE_TRY(Told(ChooseRange(Session(), m_info, {*inMs, *outMs, atEnd, limit}, &m_range)));
    m_video = part(m_info.video, m_range.video);
    m_audio = part(m_info.audio, m_range.audio);
    m_selectedBytes += static_cast<int64_t>(m_range.video.bytes + m_range.audio.bytes);
    *inMs = m_range.actualInMs;
    *outMs = m_range.actualOutMs;
    return kMovieOk;
}

bool CMP4MovieRead::SelectsOverlap() {
    const uint64_t length = Session()->file_size;
    if (m_range.video.bytes + m_range.audio.bytes <= length) return false;
    uint64_t bytes = 0;
    for (const TrackCursor& cursor : {m_video, m_audio}) {
        for (uint32_t n = cursor.currentSample; n < cursor.endSample && bytes <= length; ++n) {
            Mp4SampleInfo sample{};
            // Broken tables are told where the samples are read.
            if (FindSample(cursor.trackNumber, n, &sample) != kMovieOk) return false;
            const bool whole = sample.offset <= length && sample.size <= length - sample.offset;
            bytes += whole ? sample.size : 0;
        }
    }
    return bytes > length;
}

MovieCode CMP4MovieRead::FindSample(uint32_t track, uint32_t number, Mp4SampleInfo* sample) {
    uint64_t start = 0;
    return Told(movie_code(mp4_get_numbered_sample(Session(), track, number, &start, sample)));
}

// The bytes of `count` samples from `number` on, all of one size and one after the other in the
// file.
MovieCode CMP4MovieRead::ReadBytes(const Mp4SampleInfo& sample, uint32_t number, uint32_t count,
                                   CReadBuffer* buffer) {
    const MovieCode code =
        Told(m_engine.file.ReadBytes(sample.offset, uint64_t{sample.size} * count, &buffer->data));
    if (code == movie_code(FF4_RET_FORMAT)) {
        m_reason.code = ReasonCode::kDamagedSample;
        m_reason.arguments = {uint64_t{number}};
    }
    return code;
}

// Sound whose bytes lie beyond the end of the file is missing, where the options say so.
MovieCode CMP4MovieRead::TakeMissing(MovieCode code, uint32_t track, CReadBuffer* buffer,
                                     ReadSampleInfo* info) {
    if (code != movie_code(FF4_RET_FORMAT) || !m_readOptions.silenceDamage ||
        track != m_info.audio.trackNumber)
        return code;
    m_reason = {};
    buffer->data.clear();
    info->isMissing = true;
    return kMovieOk;
}

MovieCode CMP4MovieRead::ReadSample(TrackCursor* cursor, CReadBuffer* buffer,
                                    ReadSampleInfo* info) {
    if (!m_loaded || cursor->trackNumber == 0) return movie_code(FF4_RET_STATE);
    Mp4SampleInfo sample{};
    const MovieCode found = FindSample(cursor->trackNumber, cursor->currentSample, &sample);
    if (found != kMovieOk) {
        Close();
        return found == movie_code(FF4_RET_NOTFOUND) ? kMovieEndOfSamples : found;
    }
    *info = {sample.duration, sample.compositionOffset, sample.isSync != 0,
             sample.descriptionIndex};
    const MovieCode code = ReadBytes(sample, cursor->currentSample, 1, buffer);
    MOVIE_TRY(TakeMissing(code, cursor->trackNumber, buffer, info));
    ++cursor->currentSample;
    cursor->currentTime += sample.duration;
    return kMovieOk;
}

// The sample before the cursor is what its track says, if it says that.
MovieCode CMP4MovieRead::Described(uint32_t position, const TrackCursor& cursor,
                                   ReadSampleInfo* info) {
    info->description = position;
    if (position != 0) return kMovieOk;
    m_reason = {ReasonCode::kDamagedSample,
                ReasonSide::kSource,
                Path(),
                {uint64_t{cursor.currentSample} - 1}};
    return movie_code(FF4_RET_FORMAT);
}

MovieCode CMP4MovieRead::ReadVideoSample(CReadBuffer* buffer, ReadSampleInfo* info) {
    if (m_video.currentSample >= m_video.endSample) return kMovieEndOfSamples;
    MOVIE_TRY(ReadSample(&m_video, buffer, info));
    return Described(FindVideoDescription(info->description), m_video, info);
}

MovieCode CMP4MovieRead::ReadAudioSample(CReadBuffer* buffer, ReadSampleInfo* info) {
    if (m_audio.currentSample >= m_audio.endSample) return kMovieEndOfSamples;
    MOVIE_TRY(ReadSample(&m_audio, buffer, info));
    return Described(FindAudioDescription(info->description), m_audio, info);
}

MovieCode CMP4MovieRead::ReadAudioRun(uint32_t most, uint64_t units, CReadBuffer* buffer,
                                      ReadSampleInfo* info, uint32_t* count) {
    *count = 0;
    if (m_audio.currentSample >= m_audio.endSample) return kMovieEndOfSamples;
    Mp4SampleInfo sample{};
    MOVIE_TRY(FindSample(m_audio.trackNumber, m_audio.currentSample, &sample));
    if (sample.duration > units) return kMovieOk;
    uint32_t alike = 1;
    if (most > 1) {
        MOVIE_TRY(Told(movie_code(
            mp4_get_alike_samples(Session(), m_audio.trackNumber, m_audio.currentSample, &alike))));
    }
    uint64_t run = std::min<uint64_t>({alike, most, m_audio.endSample - m_audio.currentSample});
    if (sample.duration > 0) run = std::min<uint64_t>(run, units / sample.duration);
    *info = {sample.duration, sample.compositionOffset, true,
             FindAudioDescription(sample.descriptionIndex)};
    const MovieCode code =
        ReadBytes(sample, m_audio.currentSample, static_cast<uint32_t>(run), buffer);
    MOVIE_TRY(TakeMissing(code, m_audio.trackNumber, buffer, info));
    *count = static_cast<uint32_t>(run);
    m_audio.currentSample += *count;
    m_audio.currentTime += run * sample.duration;
    return kMovieOk;
}

MovieCode CMP4MovieRead::PeekAudioSample(uint32_t back, CReadBuffer* buffer) {
    if (back >= m_audio.currentSample) return movie_code(FF4_RET_ARGS);
    Mp4SampleInfo sample{};
    MOVIE_TRY(FindSample(m_audio.trackNumber, m_audio.currentSample - back, &sample));
    return ReadBytes(sample, m_audio.currentSample - back, 1, buffer);
}

void CMP4MovieRead::UnreadSample(Track track) {
    TrackCursor& cursor = track == Track::kVideo ? m_video : m_audio;
    if (cursor.currentSample > 1) --cursor.currentSample;
}

uint32_t CMP4MovieRead::GetSelectedSampleCount() const {
    const TrackCursor& cursor = HasVideo() ? m_video : m_audio;
    return cursor.endSample > cursor.currentSample ? cursor.endSample - cursor.currentSample : 0;
}

}  // namespace tarn

#include "movie/facts/sample_list.h"

#include "movie/engine/tracks.h"

namespace tarn {

Reason SampleList::Why(Mp4Result result) {
    if (result == FF4_RET_OK) return {};
    if (result == FF4_RET_NOTFOUND)
        return {ReasonCode::kNoSuchSample, ReasonSide::kSource, m_path, {}};
    return m_session.ReasonFor(movie_code(result));
}

Reason SampleList::Open(const std::string& path, const std::string& track) {
    if (Reason reason = m_session.Open(path)) return reason;
    m_path = path;
    Reason missing{ReasonCode::kNoVideoTrack, ReasonSide::kSource, path, {}};
    const ClipSession::Tracks tracks = m_session.ChooseTracks();
    if (track.empty()) {
        m_track = tracks.video != 0 ? tracks.video : tracks.audio;
        missing.code = ReasonCode::kNoTrack;
    } else if (track == "video") {
        m_track = tracks.video;
    } else if (track == "audio") {
        m_track = tracks.audio;
        missing.code = ReasonCode::kNoAudioTrack;
    } else {
        m_track = static_cast<uint32_t>(std::stoul(track));
        missing.code = ReasonCode::kNoSuchTrack;
        missing.arguments = {uint64_t{m_track}};
    }
    if (m_track == 0) return missing;
    Mp4ReadSession* session = m_session.get();
    Mp4Result result = mp4_open_track(session, m_track);
    if (result == FF4_RET_NOTFOUND) return missing;
    if (result == FF4_RET_OK) result = mp4_get_total_sample_count(session, m_track, &m_count);
    return Why(result);
}

Reason SampleList::Row(uint32_t number, SampleRow* row) {
    const Mp4Result result = Find(number, row);
    if (result == FF4_RET_NOTFOUND && number <= m_count)  // the tables contradict each other
        return {ReasonCode::kDamagedSample, ReasonSide::kSource, m_path, {uint64_t{number}}};
    return Why(result);
}

Reason SampleList::AtMs(uint64_t ms, SampleRow* row) {
    return Why(FindAtMs(ms, row));
}

Reason SampleList::NextSync(uint32_t number, SampleRow* row) {
    return Why(FindNextSync(number, row));
}

Mp4Result SampleList::Find(uint32_t number, SampleRow* row) {
    row->number = number;
    return mp4_get_numbered_sample(m_session.get(), m_track, number, &row->time, &row->info);
}

Mp4Result SampleList::FindAtMs(uint64_t ms, SampleRow* row) {
    Mp4MediaHeaderInfo header{};
    FF4_TRY(mp4_get_media_header(m_session.get(), m_track, &header));
    uint64_t time = 0;
    FF4_TRY(mp4_mul_div(ms, header.timescale, 1000, &time));
    uint32_t number = 0;
    FF4_TRY(mp4_get_sample_number_at_time(m_session.get(), m_track, time, &number));
    return Find(number, row);
}

Mp4Result SampleList::FindNextSync(uint32_t number, SampleRow* row) {
    uint32_t next = 1;
    uint64_t time = 0;
    if (number == 0) {
        FF4_TRY(Find(1, row));
        if (row->info.isSync != 0) return FF4_RET_OK;
        number = 1;
    }
    FF4_TRY(mp4_next_sync_number(m_session.get(), m_track, number, &next, &time));
    return Find(next, row);
}

}  // namespace tarn

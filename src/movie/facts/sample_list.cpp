#include "movie/facts/sample_list.h"

#include "movie/engine/tracks.h"
#include "movie/facts/clip_session.h"

namespace tarn {

struct SampleList::Impl {
    ClipSession session;
    std::string path;
    uint32_t track = 0;

    Mp4Result Row(uint32_t number, SampleRow* row);
    Mp4Result AtMs(uint64_t ms, SampleRow* row);
    Mp4Result NextSync(uint32_t number, SampleRow* row);
    Reason Why(Mp4Result result) {
        if (result == FF4_RET_NOTFOUND)
            return {ReasonCode::kNoSuchSample, ReasonSide::kSource, path, {}};
        return session.ReasonFor(movie_code(result));
    }
};

SampleList::SampleList() : m_impl(std::make_unique<Impl>()) {}
SampleList::~SampleList() = default;

Reason SampleList::Open(const std::string& path, const std::string& track) {
    if (Reason reason = m_impl->session.Open(path)) return reason;
    m_impl->path = path;
    Reason missing{ReasonCode::kNoVideoTrack, ReasonSide::kSource, path, {}};
    const ClipSession::Tracks tracks = m_impl->session.ChooseTracks();
    if (track == "video") {
        m_impl->track = tracks.video;
    } else if (track == "audio") {
        m_impl->track = tracks.audio;
        missing.code = ReasonCode::kNoAudioTrack;
    } else {
        m_impl->track = static_cast<uint32_t>(std::stoul(track));
        missing.code = ReasonCode::kNoSuchTrack;
        missing.arguments = {uint64_t{m_impl->track}};
    }
    if (m_impl->track == 0) return missing;
    Mp4ReadSession* session = m_impl->session.get();
    Mp4Result result = mp4_open_track(session, m_impl->track);
    if (result == FF4_RET_NOTFOUND) return missing;
    if (result == FF4_RET_OK) result = mp4_get_total_sample_count(session, m_impl->track, &m_count);
    return m_impl->Why(result);
}

Reason SampleList::Row(uint32_t number, SampleRow* row) {
    const Mp4Result result = m_impl->Row(number, row);
    if (result == FF4_RET_NOTFOUND && number <= m_count)  // the tables contradict each other
        return {ReasonCode::kDamagedSample, ReasonSide::kSource, m_impl->path, {uint64_t{number}}};
    return m_impl->Why(result);
}

Reason SampleList::AtMs(uint64_t ms, SampleRow* row) {
    return m_impl->Why(m_impl->AtMs(ms, row));
}

Reason SampleList::NextSync(uint32_t number, SampleRow* row) {
    return m_impl->Why(m_impl->NextSync(number, row));
}

Mp4Result SampleList::Impl::Row(uint32_t number, SampleRow* row) {
    row->number = number;
    return mp4_get_numbered_sample(session.get(), track, number, &row->time, &row->info);
}

Mp4Result SampleList::Impl::AtMs(uint64_t ms, SampleRow* row) {
    Mp4MediaHeaderInfo header{};
    FF4_TRY(mp4_get_media_header(session.get(), track, &header));
    uint64_t time = 0;
    FF4_TRY(mp4_mul_div(ms, header.timescale, 1000, &time));
    uint32_t number = 0;
    FF4_TRY(mp4_get_sample_number_at_time(session.get(), track, time, &number));
    return Row(number, row);
}

Mp4Result SampleList::Impl::NextSync(uint32_t number, SampleRow* row) {
    uint32_t next = 1;
    uint64_t time = 0;
    if (number == 0) {
        FF4_TRY(Row(1, row));
        if (row->info.isSync != 0) return FF4_RET_OK;
        number = 1;
    }
    FF4_TRY(mp4_next_sync_number(session.get(), track, number, &next, &time));
    return Row(next, row);
}

}  // namespace tarn

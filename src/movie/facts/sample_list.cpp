#include "movie/facts/sample_list.h"

#include "movie/engine/tracks.h"
#include "movie/facts/clip_session.h"
#include "movie/facts/movie_text.h"

namespace tarn {

struct SampleList::Impl {
    ClipSession session;
    uint32_t track = 0;
};

SampleList::SampleList() : m_impl(std::make_unique<Impl>()) {}
SampleList::~SampleList() = default;

bool SampleList::Open(const std::string& path, const std::string& track, std::string* reason) {
    if (!m_impl->session.Open(path, reason)) return false;
    Mp4ReadSession* session = m_impl->session.get();
    const ClipSession::Tracks tracks = m_impl->session.ChooseTracks();
    m_impl->track = track == "video"   ? tracks.video
                    : track == "audio" ? tracks.audio
                                       : static_cast<uint32_t>(std::stoul(track));
    *reason = "there is no " +
              (track == "video" || track == "audio" ? track + " track" : "track " + track);
    if (m_impl->track == 0) return false;
    Mp4Result result = mp4_open_track(session, m_impl->track);
    if (result == FF4_RET_NOTFOUND) return false;
    if (result == FF4_RET_OK) result = mp4_get_total_sample_count(session, m_impl->track, &m_count);
    *reason = MovieCodeText(movie_code(result), 0);
    return result == FF4_RET_OK;
}

Mp4Result SampleList::Row(uint32_t number, SampleRow* row) {
    row->number = number;
    return mp4_get_numbered_sample(m_impl->session.get(), m_impl->track, number, &row->time,
                                   &row->info);
}

Mp4Result SampleList::AtMs(uint64_t ms, SampleRow* row) {
    Mp4ReadSession* session = m_impl->session.get();
    Mp4MediaHeaderInfo header{};
    FF4_TRY(mp4_get_media_header(session, m_impl->track, &header));
    uint64_t time = 0;
    FF4_TRY(mp4_mul_div(ms, header.timescale, 1000, &time));
    uint32_t number = 0;
    FF4_TRY(mp4_get_sample_number_at_time(session, m_impl->track, time, &number));
    return Row(number, row);
}

Mp4Result SampleList::NextSync(uint32_t number, SampleRow* row) {
    uint32_t next = 1;
    uint64_t time = 0;
    if (number == 0) {
        FF4_TRY(Row(1, row));
        if (row->info.isSync != 0) return FF4_RET_OK;
        number = 1;
    }
    FF4_TRY(mp4_next_sync_number(m_impl->session.get(), m_impl->track, number, &next, &time));
    return Row(next, row);
}

}  // namespace tarn

#include "movie/facts/clip_session.h"

#include <cerrno>
#include <new>

#include "movie/facts/movie_text.h"
#include "movie/objects/track_selection.h"
#include "mp4format/atom_tree.h"
#include "mp4format/time_math.h"

namespace tarn {
namespace {

// The first track of a handler, an enabled one before others; 0 when there is none.
uint32_t first_track(Mp4ReadSession* session, uint32_t handler) {
    uint32_t count = 0, fallback = 0;
    static_cast<void>(mp4_get_track_count(session, &count));
    for (uint32_t track = 1; track <= count; ++track) {
        Mp4HandlerInfo found{};
        Mp4TrackHeaderInfo header{};
        if (mp4_get_handler(session, track, &found) != FF4_RET_OK || found.type != handler)
            continue;
        if (mp4_get_track_header(session, track, &header) == FF4_RET_OK && (header.flags & 1) != 0)
            return track;
        if (fallback == 0) fallback = track;
    }
    return fallback;
}

// Whether the file starts as a movie file does.
bool looks_like_movie(MovieFile& file) {
    Mp4AtomInfo first{};
    return mp4_read_atom_header(file.Host(), file.File(), 0, file.Size(), &first) == FF4_RET_OK &&
           mp4_is_top_level_type(first.type);
}

}  // namespace

ClipSession::~ClipSession() {
    if (m_session) static_cast<void>(mp4_close_read(m_file.Host(), m_session));
}

bool ClipSession::Open(const std::string& path, std::string* reason) {
    if (const int error = m_file.Open(path)) {
        *reason = XpErrorText(error);
        return false;
    }
    *reason = "the file is empty";
    if (m_file.Size() == 0) return false;
    *reason = "not an MP4 file";
    if (!looks_like_movie(m_file)) return false;

    uint32_t flags = 0;
    const Mp4Result opened =
        mp4_open_read(m_file.Host(), m_file.File(), {0, 50, 0}, &m_session, &flags);
    *reason = MovieCodeText(movie_code(opened), 0);
    if (opened != FF4_RET_OK) return false;
    *reason = "the recording is cut short: it has no movie header";
    return (flags & kFileMovie) != 0;
}

uint64_t ClipSession::GetDurationMs() const {
    uint64_t units = 0, ms = 0;
    const bool known =
        mp4_get_movie_duration(m_session, &units) == FF4_RET_OK &&
        mp4_mul_div(units, 1000, m_session->index.movie.timescale, &ms) == FF4_RET_OK;
    return known ? ms : 0;
}

MovieCode ClipSession::ReadBytes(uint64_t offset, uint64_t size, std::vector<uint8_t>* bytes,
                                 int* systemError) {
    if (offset > Size() || size > Size() - offset) return movie_code(FF4_RET_FORMAT);
    try {
        bytes->resize(size);
    } catch (const std::bad_alloc&) {
        return movie_code(FF4_RET_NOMEM);
    }
    uint64_t done = 0;
    *systemError = m_file.ReadAt(offset, bytes->data(), size, &done);
    if (*systemError == 0 && done < size) *systemError = EIO;  // the file has been cut
    return *systemError == 0 ? kMovieOk : kMovieSystem;
}

ClipSession::Tracks ClipSession::ChooseTracks() const {
    uint32_t camera = 0;
    static_cast<void>(mp4_has_compatible_brand(m_session, fourcc("MSNV"), &camera));
    CMovieInfoType chosen;
    uint32_t count = 0;
    static_cast<void>(SelectTracks(m_session, camera != 0, &chosen, &count));
    Tracks tracks{chosen.video.trackNumber, chosen.audio.trackNumber};
    if (tracks.video == 0) tracks.video = first_track(m_session, fourcc("vide"));
    if (tracks.audio == 0) tracks.audio = first_track(m_session, fourcc("soun"));
    return tracks;
}

}  // namespace tarn

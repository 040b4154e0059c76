#include "movie/facts/clip_session.h"

#include <algorithm>

#include "movie/objects/track_selection.h"
#include "movie/objects/whole_samples.h"
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

}  // namespace

Reason ClipSession::Open(const std::string& path) {
    static_cast<void>(m_file.Open(path));
    return m_file.GetReason();
}

uint64_t ClipSession::GetDurationMs() const {
    uint64_t units = 0;
    if (mp4_get_movie_duration(get(), &units) != FF4_RET_OK) return 0;
    return mp4_mul_div_or(units, 1000, get()->index.movie.timescale, 0);
}

Mp4Result ClipSession::GetWholeDurationMs(uint64_t* ms) const {
    const uint32_t timescale = get()->index.movie.timescale;
    const Tracks tracks = ChooseTracks();
    *ms = GetDurationMs();
    uint64_t end = 0;  // movie units
    bool cut = false;
    for (const uint32_t number : {tracks.video, tracks.audio}) {
        MovieTrackInfo track;
        track.trackNumber = number;
        // The other track of the movie may be broken.
        if (number == 0 || mp4_open_track(get(), number) != FF4_RET_OK ||
            ReadTrackInfo(get(), &track) != FF4_RET_OK)
            continue;
        uint64_t track_end = 0;
        FF4_TRY(CutMissingSamples(get(), &track));
        cut = cut || track.missingSamples > 0;
        if (track.sampleCount > 0) FF4_TRY(GetMovieEnd(get(), track, timescale, &track_end));
        end = std::max(end, track_end);
    }
    if (cut) *ms = std::min(*ms, mp4_mul_div_or(end, 1000, timescale, 0));
    return FF4_RET_OK;
}

ClipSession::Tracks ClipSession::ChooseTracks() const {
    uint32_t camera = 0;
    static_cast<void>(mp4_has_compatible_brand(get(), fourcc("MSNV"), &camera));
    CMovieInfoType chosen;
    uint32_t count = 0;
    static_cast<void>(SelectTracks(get(), camera != 0, &chosen, &count));
    mp4_clear_fault(get()->host);  // a later failure has its own
    Tracks tracks{chosen.video.trackNumber, chosen.audio.trackNumber};
    if (tracks.video == 0) tracks.video = first_track(get(), fourcc("vide"));
    if (tracks.audio == 0) tracks.audio = first_track(get(), fourcc("soun"));
    return tracks;
}

}  // namespace tarn

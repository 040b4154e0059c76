// movie_duration.cpp - how long a movie is: the longest of its tracks that count.
#include <algorithm>

#include "movie/engine/meta_lists.h"
#include "movie/engine/session.h"
#include "movie/engine/tracks.h"

namespace tarn {
namespace {

Mp4Result track_counts(Mp4ReadSession* session, uint32_t track, const Mp4TrackFacts& facts,
                       bool* counts) {
    *counts = facts.handler_type != fourcc("odsm");
    if (facts.handler_type != fourcc("vide")) return FF4_RET_OK;
    Mp4TrackRole role{};
    const Mp4Result result = mp4_get_track_role(session, track, &role);
    if (result == FF4_RET_NOTFOUND) return FF4_RET_OK;
    FF4_TRY(result);
    *counts = role.role == kRoleMain;
    return FF4_RET_OK;
}

// The sum of the edits, in movie units. False without an edit list.
Mp4Result edited_length(Mp4ReadSession* session, uint32_t track, uint64_t* length, bool* edited) {
    Mp4EditList* list = nullptr;
    FF4_TRY(mp4_open_edit_list(session, track, &list));
    *edited = list->count > 0;
    *length = 0;
    Mp4Result result = FF4_RET_OK;
    for (const Mp4Edit* edit = list->head; edit && result == FF4_RET_OK; edit = edit->next)
        result = mp4_add(*length, edit->segment_duration, length);
    FF4_TRY(mp4_close_edit_list(session, list));
    return result;
}

// Media units to movie units. A movie timescale of 0 gives 0.
Mp4Result to_movie_units(Mp4ReadSession* session, const Mp4TrackFacts& facts, uint64_t media,
                         uint64_t* length) {
    *length = 0;
    if (media == 0) return FF4_RET_OK;
    if (facts.timescale == 0) return mp4_blame(session->host, fourcc("mdhd"), FF4_RET_FORMAT);
    return mp4_mul_div(media, session->index.movie.timescale, facts.timescale, length);
}

// Of a track that is open, in movie units.
Mp4Result open_track_length(Mp4ReadSession* session, uint32_t track, const Mp4TrackFacts& facts,
                            uint64_t* length) {
    bool edited = false;
    uint64_t tables = 0;
    FF4_TRY(edited_length(session, track, length, &edited));
    if (!edited || session->fragments) FF4_TRY(mp4_get_tables_duration(session, track, &tables));
    if (!edited) FF4_TRY(to_movie_units(session, facts, tables, length));
    if (!session->fragments) return FF4_RET_OK;
    uint64_t end = 0, fragments = 0;
    FF4_TRY(mp4_get_track_duration(session, track, &end));
    FF4_TRY(to_movie_units(session, facts, end - tables, &fragments));
    return mp4_add(*length, fragments, length);
}

// The same of any track: it is opened for the time of the look, unless it is in use already.
Mp4Result track_length(Mp4ReadSession* session, uint32_t track, const Mp4TrackFacts& facts,
                       uint64_t* length) {
    if (session->fragments && !present(facts.mdhd))
        return mp4_blame(session->host, fourcc("mdhd"), FF4_RET_FORMAT);
    const bool was_open = mp4_find_open_track(session, track);
    FF4_TRY(mp4_open_track(session, track));
    const Mp4Result result = open_track_length(session, track, facts, length);
    if (!was_open) static_cast<void>(mp4_close_track(session, track));
    return result;
}

// What has come of the tracks of one handler.
struct Outcome {
    bool good;
    Mp4Result failed;
    uint32_t failed_track;
};

// A broken track takes the length of the others along only where there is no other picture, or no
// other sound.
Mp4Result longest_track(Mp4ReadSession* session, uint64_t* duration) {
    Outcome outcomes[2] = {};  // of pictures and of sounds
    *duration = 0;
    uint32_t number = 0;
    for (const Mp4TrackIndex* track = session->index.movie.tracks.head; track;
         track = track->next) {
        const uint32_t handler = track->facts->handler_type;
        bool counts = false;
        uint64_t length = 0;
        Mp4Result result = track_counts(session, ++number, *track->facts, &counts);
        if (result == FF4_RET_OK && counts)
            result = track_length(session, number, *track->facts, &length);
        // The machine's failures say nothing about the track.
        if (result == FF4_RET_FILE || result == FF4_RET_NOMEM) return result;
        *duration = std::max(*duration, length);
        if (handler != fourcc("vide") && handler != fourcc("soun")) {
            if (result != FF4_RET_OK) mp4_clear_fault(session->host);
            continue;
        }
        Outcome& outcome = outcomes[handler == fourcc("vide") ? 0 : 1];
        if (result == FF4_RET_OK) {
            outcome.good = true;
        } else if (outcome.failed == FF4_RET_OK) {
            outcome.failed = result;
            outcome.failed_track = number;
        }
    }
    for (const Outcome& outcome : outcomes) {
        if (outcome.good || outcome.failed == FF4_RET_OK) continue;
        session->asked_track = outcome.failed_track;
        return outcome.failed;
    }
    mp4_clear_fault(session->host);
    return FF4_RET_OK;
}

}  // namespace

Mp4Result mp4_get_movie_duration(Mp4ReadSession* session, uint64_t* duration) {
    if (!session || !duration) return FF4_RET_ARGS;
    uint64_t* cached =
        session->fragments ? &session->duration_fragmented : &session->duration_plain;
    if (*cached == 0) {
        const Mp4MovieExtends& extends = session->index.movie.extends;
        if (session->fragments && present(extends.mehd)) {
            *cached = extends.fragment_duration;
        } else {
            // Into a value of its own: a failed look leaves nothing in the cache.
            uint64_t longest = 0;
            FF4_TRY(longest_track(session, &longest));
            *cached = longest;
        }
    }
    *duration = *cached;
    return FF4_RET_OK;
}

}  // namespace tarn

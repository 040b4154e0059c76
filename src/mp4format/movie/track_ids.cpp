#include "mp4format/movie/track_ids.h"

#include <algorithm>

namespace tarn {
namespace {

constexpr uint32_t kLowLast = 127, kHighFirst = 1024, kHighLast = 63487;
constexpr uint32_t kLookForFree = 0xFFFFFFFF;

bool in_use(const Mp4MovieBuild& movie, uint32_t track_id) {
    for (const Mp4TrackBuild* track = movie.tracks.head; track; track = track->next) {
        if (track->header.track_id == track_id) return true;
    }
    return false;
}

uint32_t highest_id(const Mp4MovieBuild& movie) {
    uint32_t highest = 0;
    for (const Mp4TrackBuild* track = movie.tracks.head; track; track = track->next)
        highest = std::max(highest, track->header.track_id);
    return highest;
}

// The lowest free id of a range, or 0.
uint32_t lowest_free(const Mp4MovieBuild& movie, uint32_t first, uint32_t last) {
    for (uint32_t id = first; id <= last; ++id) {
        if (!in_use(movie, id)) return id;
    }
    return 0;
}

}  // namespace

Mp4Result mp4_pick_track_id(const Mp4MovieBuild& movie, uint32_t* track_id) {
    if (!track_id) return FF4_RET_ARGS;
    uint32_t id = mp4_next_track_id(movie);
    if (id == kLookForFree) id = lowest_free(movie, 1, kLowLast);
    if (id == 0) id = lowest_free(movie, kHighFirst, kHighLast);
    if (id == 0) return FF4_RET_NOTFOUND;
    *track_id = id;
    return FF4_RET_OK;
}

Mp4Result mp4_check_track_id(const Mp4MovieBuild& movie, uint32_t track_id) {
    const bool low = track_id >= 1 && track_id <= kLowLast;
    const bool high = track_id >= kHighFirst && track_id <= kHighLast;
    return (low || high) && !in_use(movie, track_id) ? FF4_RET_OK : FF4_RET_ARGS;
}

uint32_t mp4_next_track_id(const Mp4MovieBuild& movie) {
    const uint32_t highest = highest_id(movie);
    if (highest >= kHighLast) return kLookForFree;
    if (highest >= kLowLast && highest < kHighFirst) return kHighFirst;
    return highest + 1;
}

}  // namespace tarn

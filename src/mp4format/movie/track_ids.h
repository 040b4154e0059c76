// track_ids.h - which identifiers the tracks of a new movie get.
//
// Ids that the engine hands out lie in 1 to 127 and in 1024 to 63487; those between belong to
// other users of the format's descriptors.
#pragma once

#include <cstdint>

#include "mp4format/movie/movie_build.h"

namespace tarn {

// The id of a new track: one above the highest, over the gap; with the highest used up the lowest
// free one. FF4_RET_NOTFOUND when none is left.
Mp4Result mp4_pick_track_id(const Mp4MovieBuild& movie, uint32_t* track_id);
// A caller's own id: FF4_RET_ARGS when it lies out of the ranges or is in use.
Mp4Result mp4_check_track_id(const Mp4MovieBuild& movie, uint32_t track_id);
// What 'mvhd' says when the caller has set nothing: one above the highest, over the gap, or
// 0xFFFFFFFF, "look for a free one", when the highest is used up.
uint32_t mp4_next_track_id(const Mp4MovieBuild& movie);

}  // namespace tarn

// samples.h - where a track's samples lie and when they play.
//
// Sample numbers count from 1; times are in media units. The track must be open (FF4_RET_STATE
// otherwise). A walk by rising numbers costs a step a sample: every table keeps a window and the
// place reached in it.
#pragma once

#include <cstdint>

#include "movie/engine/session.h"

namespace tarn {

// Of the tables, fragments left out. FF4_RET_FORMAT for a track without 'stts'.
Mp4Result mp4_get_sample_count(Mp4ReadSession* session, uint32_t track, uint32_t* count);

// FF4_RET_NOTFOUND for a number above the count, FF4_RET_ARGS for 0.
Mp4Result mp4_get_sample_info(Mp4ReadSession* session, uint32_t track, uint32_t number,
                              Mp4SampleInfo* out);

// Tables and fragments together. Walks the fragments of a file once.
Mp4Result mp4_get_total_sample_count(Mp4ReadSession* session, uint32_t track, uint32_t* count);
// The sum of all samples' sizes, fragments included: reads the whole size table.
Mp4Result mp4_get_media_bytes(Mp4ReadSession* session, uint32_t track, uint64_t* bytes);
// The bytes of `count` samples from `first` on, fragments included.
Mp4Result mp4_get_range_bytes(Mp4ReadSession* session, uint32_t track, uint32_t first,
                              uint32_t count, uint64_t* bytes);
// How many samples from `number` on, at least 1, have its size and duration and lie one after the
// other in one chunk. Only a table of one size for all gives more than 1.
Mp4Result mp4_get_alike_samples(Mp4ReadSession* session, uint32_t track, uint32_t number,
                                uint32_t* count);
// As mp4_next_sync_sample, and on into the fragments.
Mp4Result mp4_next_sync_number(Mp4ReadSession* session, uint32_t track, uint32_t number,
                               uint32_t* next, uint64_t* time);
// As mp4_get_sample_info, and on into the fragments; `start` gets the sample's decoding time.
Mp4Result mp4_get_numbered_sample(Mp4ReadSession* session, uint32_t track, uint32_t number,
                                  uint64_t* start, Mp4SampleInfo* out);

// The sample that is being decoded at `time`, and when it starts. FF4_RET_NOTFOUND at or past the
// end of the tables: a time inside a fragment is mp4_get_sample_info_at_time's.
Mp4Result mp4_find_sample_at_time(Mp4ReadSession* session, uint32_t track, uint64_t time,
                                  uint32_t* isSync, uint32_t* number, uint64_t* start);

// The same in tables and fragments; the number alone.
Mp4Result mp4_get_sample_number_at_time(Mp4ReadSession* session, uint32_t track, uint64_t time,
                                        uint32_t* number);

// The start of a sample's decoding time.
Mp4Result mp4_get_sample_time(Mp4ReadSession* session, uint32_t track, uint32_t number,
                              uint64_t* start);

// The first sync sample strictly after `number`, and its time. FF4_RET_NOTFOUND when none follows.
Mp4Result mp4_next_sync_sample(Mp4ReadSession* session, uint32_t track, uint32_t number,
                               uint32_t* next, uint64_t* time);

// The start of the first sync sample after the one that holds `time`, fragments included.
Mp4Result mp4_find_sync_after_time(Mp4ReadSession* session, uint32_t track, uint64_t time,
                                   uint64_t* syncTime);

// As mp4_find_sample_at_time and mp4_get_sample_info together, in fragments too.
Mp4Result mp4_get_sample_info_at_time(Mp4ReadSession* session, uint32_t track, uint64_t time,
                                      uint64_t* start, Mp4SampleInfo* out);

}  // namespace tarn

// fragments.h - the samples of a fragmented file: looked up by number and by time after those of
// the sample tables.
//
// Opening costs nothing but a list of the tracks. The fragments of a track are walked as lookups
// need them; what has been passed leaves checkpoints, the runs used last stay in memory within a
// share of the window pool, and a seek ahead goes by the file's own index where there is one.
#pragma once

#include <cstdint>

#include "mp4format/fragments/fragment_track.h"
#include "mp4format/movie/file_index.h"

namespace tarn {

struct Mp4FragmentState {
    Mp4FragmentSource source;
    Mp4FragmentReadAhead read_ahead;
    Mp4FragmentDefaults* defaults;
    Mp4RandomAccess* random_access;  // the index's
    uint64_t first_moof;             // 0: none
    // For walks of tracks of which no sample has been found yet: with very many tracks each would
    // go through all fragments.
    uint64_t steps_left;
    Mp4FragmentTrack* head;
    Mp4FragmentTrack* tail;
};

// `index` stays where it is as long as the state lives.
Mp4Result mp4_open_fragments(Mp4Host* host, Mp4File* file, uint64_t file_size, Mp4FileIndex* index,
                             Mp4FragmentState** out);
void mp4_close_fragments(Mp4FragmentState* state);

// Takes a track into use: its tables hold `table_samples` samples that end at `table_time`. Nothing
// happens for a track in use. It has no share until one is set.
Mp4Result mp4_begin_fragment_track(Mp4FragmentState* state, uint32_t track_id,
                                   uint32_t table_samples, uint64_t table_time);
void mp4_end_fragment_track(Mp4FragmentState* state, uint32_t track_id);
// Bytes of the window pool that the track's runs may take; another share drops those held.
Mp4Result mp4_set_fragment_share(Mp4FragmentState* state, uint32_t track_id, uint64_t share);

// Lookups answer FF4_RET_STATE for a track not in use, FF4_RET_NOMEM where the share holds no row.

// The sample of a number above the tables' count (else FF4_RET_ARGS); FF4_RET_NOTFOUND after the
// last.
Mp4Result mp4_get_fragment_sample(Mp4FragmentState* state, uint32_t track_id, uint32_t number,
                                  Mp4FragmentSample* sample);
// The sample that holds a time; a time in a gap belongs to the sample after it. FF4_RET_NOTFOUND
// for times of the tables and past the end. With `numbered` the sample's number is always given, at
// the price of walking there.
Mp4Result mp4_get_fragment_sample_at_time(Mp4FragmentState* state, uint32_t track_id, uint64_t time,
                                          bool numbered, Mp4FragmentSample* sample);
// Samples in the fragments of a track, without those of the tables: walks to the end once.
Mp4Result mp4_count_fragment_samples(Mp4FragmentState* state, uint32_t track_id, uint32_t* count);
// Where the track ends, in media units: through the index, or walking.
Mp4Result mp4_get_fragment_end(Mp4FragmentState* state, uint32_t track_id, uint64_t* end_time);

}  // namespace tarn

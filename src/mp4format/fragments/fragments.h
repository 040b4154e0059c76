// fragments.h - the samples of a fragmented file: looked up by number and by time behind those of
// the sample tables.
//
// Opening costs nothing but a list of the tracks. The fragments of a track are walked as lookups
// need them; what has been passed leaves checkpoints, the runs used last stay in memory within a
// share of the window pool, and a seek ahead goes by the file's own index where there is one.
#pragma once

#include <cstdint>

#include "mp4format/fragments/fragment_walk.h"
#include "mp4format/movie/file_index.h"

namespace tarn {

struct Mp4FragmentSample {
    uint32_t number;      // counted on from the tables; 0 for a time reached through the index
    uint64_t start_time;  // media units, as are duration and composition
    uint64_t offset;      // in the file
    uint32_t size;        // bytes
    uint32_t duration;
    uint32_t is_sync;
    int32_t composition_offset;
    uint32_t composition_signed;  // 1 where the run says that its offsets are
    uint32_t description_index;   // 1-based
};

// A 'moof' with runs of the track, and how the walk came to it.
struct Mp4FragmentCheckpoint {
    uint64_t moof;
    uint64_t next_time, least_start, cover_time;
    uint32_t next_sample;
};

// A track in use.
struct Mp4FragmentTrack {
    uint32_t track_id;
    Mp4FragmentPosition start;

    uint64_t share, used;  // bytes of the window pool for runs
    Mp4FragmentRun* head;  // the runs in memory, the oldest first
    Mp4FragmentRun* tail;
    Mp4FragmentPosition position;  // where the last walk stopped

    // Where the last lookup was, so that a walk costs a step for each sample.
    Mp4FragmentRun* run;
    uint32_t row;
    uint64_t row_time, row_offset;

    Mp4FragmentCheckpoint* checkpoints;  // every `spacing`-th moof from the first
    uint32_t checkpoint_count, spacing;
    uint64_t moofs;      // passed so far
    uint64_t last_moof;  // the last of them

    bool counted, ended;  // whether `next_sample` and `end_time` of the whole track are known
    uint32_t next_sample;
    uint64_t end_time;
    Mp4FragmentTrack* next;
};

struct Mp4FragmentState {
    Mp4FragmentSource source;
    Mp4FragmentReadAhead read_ahead;
    Mp4FragmentDefaults* defaults;
    Mp4RandomAccess* random_access;  // the index's
    uint64_t first_moof;             // 0: none
    Mp4FragmentTrack* head;
    Mp4FragmentTrack* tail;
};

// `index` stays where it is as long as the state lives.
Mp4Result mp4_open_fragments(Mp4Host* host, Mp4File* file, uint64_t file_size, Mp4FileIndex* index,
                             Mp4FragmentState** out);
void mp4_close_fragments(Mp4FragmentState* state);

// Takes a track into use: its tables hold `table_samples` samples that end at `table_time`. Nothing
// happens for a track in use. The share is 16 KiB until it is set.
Mp4Result mp4_begin_fragment_track(Mp4FragmentState* state, uint32_t track_id,
                                   uint32_t table_samples, uint64_t table_time);
void mp4_end_fragment_track(Mp4FragmentState* state, uint32_t track_id);
// Bytes of the window pool that the track's runs may take; drops those held.
Mp4Result mp4_set_fragment_share(Mp4FragmentState* state, uint32_t track_id, uint64_t share);

// Lookups answer FF4_RET_STATE for a track not in use, FF4_RET_NOMEM where the share holds no row.

// The sample of a number above the tables' count (else FF4_RET_ARGS); FF4_RET_NOTFOUND behind the
// last.
Mp4Result mp4_get_fragment_sample(Mp4FragmentState* state, uint32_t track_id, uint32_t number,
                                  Mp4FragmentSample* sample);
// The sample that holds a time; a time in a gap belongs to the sample behind it. FF4_RET_NOTFOUND
// for times of the tables and past the end. With `numbered` the sample's number is always given, at
// the price of walking there.
Mp4Result mp4_get_fragment_sample_at_time(Mp4FragmentState* state, uint32_t track_id, uint64_t time,
                                          bool numbered, Mp4FragmentSample* sample);
// Samples in the fragments of a track, without those of the tables: walks to the end once.
Mp4Result mp4_count_fragment_samples(Mp4FragmentState* state, uint32_t track_id, uint32_t* count);
// Where the track ends, in media units: through the index, or walking.
Mp4Result mp4_get_fragment_end(Mp4FragmentState* state, uint32_t track_id, uint64_t* end_time);

}  // namespace tarn

// fragment_track.h - a track's runs in memory, within its share of the window pool, and the cursor
// that lookups move over their samples.
#pragma once

#include <cstdint>

#include "mp4format/fragments/fragment_walk.h"

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
    uint32_t alike;  // from this one on, at least 1, the same but for number, time and place
};

// A 'moof' with runs of the track, and how the walk came to it.
struct Mp4FragmentCheckpoint {
    uint64_t moof;
    uint64_t next_time, least_start, cover_time, claimed;
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

    bool found;           // whether a lookup has found a sample
    bool counted, ended;  // whether `next_sample` and `end_time` of the whole track are known
    uint32_t next_sample;
    uint64_t end_time;
    Mp4FragmentTrack* next;
};

// What a lookup goes by.
struct Mp4FragmentTarget {
    bool by_time;
    uint64_t value;
    bool numbered;  // the number of the sample is wanted
};

// Puts a run after those held; the oldest make room. FF4_RET_NOMEM where it does not fit alone.
Mp4Result mp4_hold_fragment_run(Mp4Host* host, Mp4FragmentTrack* track, const Mp4FragmentRun& run);
void mp4_drop_fragment_runs(Mp4Host* host, Mp4FragmentTrack* track);

// Moves the cursor to the sample of a held run that covers the target.
Mp4Result mp4_move_fragment_cursor(const Mp4FragmentSource& source, Mp4FragmentTrack* track,
                                   Mp4FragmentRun* run, const Mp4FragmentTarget& target);
// The sample at the cursor.
Mp4Result mp4_take_fragment_sample(const Mp4FragmentSource& source, Mp4FragmentTrack* track,
                                   Mp4FragmentSample* sample);

}  // namespace tarn

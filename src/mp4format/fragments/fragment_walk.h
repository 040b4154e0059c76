// fragment_walk.h - one track's way through the fragments of a file, run by run.
//
// A position is all the state there is: it can be copied, kept, and gone on from. Only atom headers
// and run heads are read, and a run's rows once, to know its length in time and bytes.
#pragma once

#include <cstdint>

#include "mp4format/fragments/fragment_atoms.h"

namespace tarn {

struct Mp4FragmentPosition {
    uint64_t next_atom;  // at the top level
    uint64_t moof;       // start of the current one
    uint64_t moof_time;  // `next_time` there
    bool moof_is_cut;    // the file ends inside it
    Mp4Span moof_left, traf_left;

    bool has_head;    // `head` is of the current traf
    bool in_run;      // the traf has had a run
    bool has_before;  // `before` is an earlier traf of this moof
    Mp4FragmentHead head, before;
    Mp4Span traf, before_traf;  // payloads
    uint64_t data_end;          // of the last run of this traf

    uint32_t next_sample;  // 0: not known, the walk began in the middle
    bool anchored;         // the times below are known
    uint64_t next_time;    // end of the last run
    uint64_t least_start;  // a stated time before this is not believed
    uint64_t cover_time;   // the latest end so far
    uint64_t claimed;      // bytes that samples without rows have taken, one each at least
};

// Goes on to the next run of the track that has samples. Behind the last one `found` is false. The
// position holds good only after FF4_RET_OK. FF4_RET_FORMAT for an atom too short, a 'tfhd' that
// names no track of the file, or places and times that wrap; not in a fragment that a recording
// broken off left half written: there the track ends.
Mp4Result mp4_next_fragment_run(const Mp4FragmentSource& source, Mp4FragmentPosition* position,
                                Mp4FragmentRun* run, bool* found);

}  // namespace tarn

// fragment_walk.h - one track's way through the fragments of a file, run by run: 'moof', 'traf',
// 'tfhd', 'tfdt', 'trun' (ISO/IEC 14496-12, 8.8.4 to 8.8.8 and 8.8.12).
//
// A position is all the state there is: it can be copied, kept, and gone on from. Only atom headers
// and run heads are read, and a run's rows once, to know its length in time and bytes.
#pragma once

#include <cstdint>

#include "mp4format/atom.h"
#include "mp4format/atoms/movie_extends.h"

namespace tarn {

// One 'trun' with what holds for all its samples.
struct Mp4FragmentRun {
    Mp4Span atom;
    uint64_t rows_offset;  // of the first row in the file
    uint64_t data_offset;  // of the first sample's bytes
    // Media units. Times from `cover_time` up to `end_time` belong to this run: it begins where
    // the run before ends, so that a gap in front belongs to the first sample.
    uint64_t start_time, end_time, cover_time;
    uint32_t description_index;  // 1-based
    uint32_t default_duration, default_size, default_flags;
    uint32_t version_flags;  // of the 'trun'
    uint32_t first_sample_flags;
    uint32_t sample_count;
    uint32_t first_sample;  // number of the first sample, or 0 while that is not known
    uint32_t row_size;      // bytes, 0 where no sample has values of its own

    uint32_t first_row, rows_held;  // of the run, in `rows`
    uint8_t* rows;                  // as in the file
    Mp4FragmentRun* next;
};

// What one sample has of its own or takes from the run.
struct Mp4FragmentRow {
    uint32_t duration, size, flags;
    int32_t composition_offset;
};

// A track's defaults and place within one 'traf'.
struct Mp4FragmentHead {
    uint32_t track_id;
    uint32_t description_index, default_duration, default_size, default_flags;
    uint64_t base;  // what run offsets count from
};

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
};

// A track that fragments may name, with its defaults, null where 'mvex' has none for it.
struct Mp4FragmentDefaults {
    uint32_t track_id;
    const Mp4Trex* trex;
};

// Bytes of the file read last. A fragment's head is dozens of small atoms in a row.
struct Mp4FragmentReadAhead {
    uint64_t offset;
    uint32_t size;
    uint8_t bytes[4096];
};

struct Mp4FragmentSource {
    Mp4Host* host;
    Mp4File* file;
    uint64_t file_size;
    Mp4FragmentReadAhead* read_ahead;
    const Mp4FragmentDefaults* tracks;  // by rising id, each id once
    uint32_t track_count;
    uint32_t track_id;  // the one whose runs are wanted
};

// The entry of a track, or null.
const Mp4FragmentDefaults* mp4_find_fragment_defaults(const Mp4FragmentSource& source,
                                                      uint32_t track_id);

// Goes on to the next run of the track that has samples. Behind the last one `found` is false. The
// position holds good only after FF4_RET_OK. FF4_RET_FORMAT for an atom too short, a 'tfhd' that
// names no track of the file, or places and times that wrap; not in a fragment that a recording
// broken off left half written: there the track ends.
Mp4Result mp4_next_fragment_run(const Mp4FragmentSource& source, Mp4FragmentPosition* position,
                                Mp4FragmentRun* run, bool* found);

// The values of row `row` of a run, whose bytes are `bytes` (null where row_size is 0).
Mp4FragmentRow mp4_decode_fragment_row(const Mp4FragmentRun& run, uint32_t row,
                                       const uint8_t* bytes);

// Whether samples of the run have times or sizes of their own: else places follow by product.
bool mp4_fragment_run_varies(const Mp4FragmentRun& run);

}  // namespace tarn

// fragment_atoms.h - the atoms of one fragment, read and written: 'moof', 'mfhd', 'traf', 'tfhd',
// 'tfdt' and 'trun' (ISO/IEC 14496-12, 8.8.4 to 8.8.8 and 8.8.12).
//
// Reading goes through a few kilobytes that are read ahead: a fragment's head is dozens of small
// atoms in a row.
#pragma once

#include <cstdint>

#include "mp4format/atom_writer.h"
#include "mp4format/atoms/movie_extends.h"

namespace tarn {

// Flags of 'tfhd': which fields are there, and what offsets count from.
enum Mp4TfhdFlag : uint32_t {
    kTfhdBaseOffset = 0x000001,
    kTfhdDescription = 0x000002,
    kTfhdDuration = 0x000008,
    kTfhdSize = 0x000010,
    kTfhdFlags = 0x000020,
    kTfhdBaseIsMoof = 0x020000
};

// Flags of 'trun': which fields the run and each row have.
enum Mp4TrunFlag : uint32_t {
    kTrunDataOffset = 0x000001,
    kTrunFirstFlags = 0x000004,
    kTrunDuration = 0x000100,
    kTrunSize = 0x000200,
    kTrunSampleFlags = 0x000400,
    kTrunComposition = 0x000800,
    kTrunRow = kTrunDuration | kTrunSize | kTrunSampleFlags | kTrunComposition
};

// --- reading

// One 'trun' with what holds for all its samples.
struct Mp4FragmentRun {
    Mp4Span atom;
    uint64_t rows_offset;  // of the first row in the file
    uint64_t data_offset;  // of the first sample's bytes
    // Media units. Times from `cover_time` up to `end_time` belong to this run: it begins where
    // the run before ends, so that a gap before it belongs to the first sample.
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
    // Steps that walks may still take, over all tracks; null: as many as there are.
    uint64_t* steps_left;
};

// The entry of a track, or null.
const Mp4FragmentDefaults* mp4_find_fragment_defaults(const Mp4FragmentSource& source,
                                                      uint32_t track_id);

// What a run adds up to.
struct Mp4FragmentRunLength {
    uint64_t duration, size;
    uint64_t last_start;  // of the last sample, from the run's start
};

// `size` bytes, out of what was read ahead.
Mp4Result mp4_read_fragment_bytes(const Mp4FragmentSource& source, uint64_t offset, uint8_t* bytes,
                                  uint64_t size);
// Takes the header at the front of `left` and moves on past that atom.
Mp4Result mp4_take_fragment_atom(const Mp4FragmentSource& source, Mp4Span* left, Mp4AtomInfo* atom);

// The readers answer FF4_RET_FORMAT for an atom too short. A 'tfhd' that names no track of the file
// is that too; its `base` is left 0 where `flags` (Mp4TfhdFlag) tell that it has none.
Mp4Result mp4_read_tfhd(const Mp4FragmentSource& source, const Mp4Span& payload,
                        Mp4FragmentHead* head, uint32_t* flags);
Mp4Result mp4_read_tfdt(const Mp4FragmentSource& source, const Mp4Span& payload, uint64_t* time);
// `next_data` is where the run's data lies unless it says otherwise. Times and numbers are left 0.
Mp4Result mp4_read_trun(const Mp4FragmentSource& source, const Mp4FragmentHead& head,
                        const Mp4AtomInfo& atom, uint64_t next_data, Mp4FragmentRun* run);
Mp4Result mp4_measure_fragment_run(const Mp4FragmentSource& source, const Mp4FragmentRun& run,
                                   Mp4FragmentRunLength* length);

// The values of row `row` of a run, whose bytes are `bytes` (null where row_size is 0).
Mp4FragmentRow mp4_decode_fragment_row(const Mp4FragmentRun& run, uint32_t row,
                                       const uint8_t* bytes);

// Whether samples of the run have times or sizes of their own: else places follow by product.
bool mp4_fragment_run_varies(const Mp4FragmentRun& run);

// --- writing

struct Mp4TfhdBuild {
    uint32_t flags;  // Mp4TfhdFlag and what else the format knows
    uint32_t track_id;
    uint64_t base_offset;  // in the file
    uint32_t description_index, default_duration, default_size, default_flags;
};

struct Mp4TrunBuild {
    uint32_t flags;       // Mp4TrunFlag
    int32_t data_offset;  // of the first sample, from the base
    uint32_t first_sample_flags;
    const Mp4FragmentRow* rows;
    uint32_t row_count;
};

struct Mp4TrafBuild {
    Mp4TfhdBuild head;
    const Mp4TrunBuild* runs;
    uint32_t run_count;
};

struct Mp4MoofBuild {
    uint32_t sequence_number;  // from 1
    const Mp4TrafBuild* trafs;
    uint32_t traf_count;
};

// A run is of version 1 when a composition offset is negative.
Mp4Result mp4_write_moof(Mp4Sink& sink, const Mp4MoofBuild& moof);

}  // namespace tarn

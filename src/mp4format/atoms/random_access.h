// random_access.h - the index of a fragmented file: 'mfra', mostly the last atom, with a 'tfra' for
// each track (ISO/IEC 14496-12, 8.8.9 to 8.8.11).
//
// Opening locates the tables; a table's entries are read and sorted when a lookup first needs them.
#pragma once

#include <cstdint>

#include "mp4format/atom.h"
#include "mp4format/atom_writer.h"

namespace tarn {

// A place to start from: sample `sample_number` of run `trun_number` of 'traf' `traf_number` in the
// 'moof' at `moof_offset`, all numbers 1-based.
struct Mp4RandomAccessPoint {
    uint64_t time;  // media units
    uint64_t moof_offset;
    uint32_t traf_number, trun_number, sample_number;
};

// One 'tfra'.
struct Mp4TrackRandomAccess {
    uint32_t track_id;
    uint32_t version;
    uint32_t length_sizes;  // two bits each: bytes less one of the traf, trun and sample numbers
    uint32_t count;         // entries that the atom really holds
    Mp4Span entries;
    Mp4RandomAccessPoint* points;  // sorted by time; null until loaded
    Mp4TrackRandomAccess* next;
};

struct Mp4RandomAccess {
    Mp4Span atom;
    Mp4Span payload;
    Mp4TrackRandomAccess* head;
    Mp4TrackRandomAccess* tail;
};

// Walks an 'mfra' for its tables and keeps its spans. FF4_RET_ARGS for a 'tfra' of a version above
// 1. On failure `access` is left as it was.
Mp4Result mp4_read_mfra(Mp4Host* host, Mp4File* file, const Mp4AtomInfo& atom,
                        Mp4RandomAccess* access);
// Looks for 'mfra' by way of 'mfro', the last 16 bytes of the file. A file without one, or whose
// 'mfro' points anywhere else than to an 'mfra', leaves `access` as it was: FF4_RET_OK.
Mp4Result mp4_find_mfra(Mp4Host* host, Mp4File* file, uint64_t file_size, Mp4RandomAccess* access);
void mp4_free_mfra(Mp4Host* host, Mp4RandomAccess* access);

// The table of a track, or null.
Mp4TrackRandomAccess* mp4_find_tfra(const Mp4RandomAccess& access, uint32_t track_id);
// Reads and sorts the points, once. Points of one time keep the file's order.
Mp4Result mp4_load_tfra(Mp4Host* host, Mp4File* file, Mp4TrackRandomAccess* table);
// The last loaded point whose time is not above `time`, or null.
const Mp4RandomAccessPoint* mp4_find_access_point(const Mp4TrackRandomAccess& table, uint64_t time);

// The points must be loaded. A policy of 0 gives version 1 here, one of 2 version 0 (FF4_RET_STATE
// for a time or place past 32 bits): unlike other atoms, as intended. A number wider than the
// table's length word says is FF4_RET_OVERFLOW.
Mp4Result mp4_write_tfra(Mp4Sink& sink, const Mp4TrackRandomAccess& table);
// The tables, closed by the 'mfro' that readers look for at the end of the file. FF4_RET_OVERFLOW
// past 32 bits.
Mp4Result mp4_write_mfra(Mp4Sink& sink, const Mp4RandomAccess& access);

}  // namespace tarn

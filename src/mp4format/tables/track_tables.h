// track_tables.h - the second look at a track: where its edits, references and sample tables lie.
//
// Read when a track is first used. No table's entries are read here; counts are cut to what the
// bytes behind the head can hold, so that a lying count can't reach past its atom.
#pragma once

#include <cstdint>

#include "mp4format/atom.h"

namespace tarn {

// Spans without a suffix are payload spans and tell whether the table exists; `_entries` spans are
// the bytes behind the table's head.
struct Mp4TrackTables {
    uint32_t track_id;
    Mp4Span tref;
    uint32_t elst_version_flags, elst_count;
    Mp4Span elst_entries;
    uint32_t media_header_type;  // 'vmhd', 'smhd', 'hmhd' or 'nmhd'
    Mp4Span media_header;
    uint32_t dref_count;
    Mp4Span dref_entries;

    uint32_t stsd_count;
    Mp4Span stsd;  // the entries
    Mp4Span stts;
    uint32_t stts_count;
    Mp4Span stts_entries;
    Mp4Span ctts;
    uint32_t ctts_version, ctts_count;
    Mp4Span ctts_entries;
    Mp4Span stsc;
    uint32_t stsc_count;
    Mp4Span stsc_entries;
    uint32_t size_type;  // 'stsz' or 'stz2'
    Mp4Span size_table;
    uint32_t sample_size;  // constant size in bytes; 0 when each sample has its own
    uint32_t field_size;   // bits of an entry: 32, or 4, 8 or 16 for 'stz2'
    uint32_t sample_count;
    Mp4Span size_entries;
    uint32_t chunk_type;  // 'stco' or 'co64'
    Mp4Span chunk_table;
    uint32_t chunk_count;
    Mp4Span chunk_entries;
    Mp4Span stss;
    uint32_t stss_count;
    Mp4Span stss_entries;

    Mp4TrackTables* next;
};

// Walks `trak` (its payload span) for the records above. `file_size` bounds the count of a
// constant-size table: one byte a sample at least. FF4_RET_FORMAT for a table too short or of an
// unknown version.
Mp4Result mp4_read_track_tables(Mp4Host* host, Mp4File* file, const Mp4Span& trak,
                                uint64_t file_size, Mp4TrackTables* tables);

}  // namespace tarn

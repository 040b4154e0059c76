// movie_headers.h - the small fixed atoms of a movie: 'mvhd', 'tkhd' and 'mdhd'.
//
// Layouts after ISO/IEC 14496-12, 8.2.2, 8.3.2 and 8.4.2. Versions 0 and 1 differ in the
// width of the times. A payload too short or another version is FF4_RET_FORMAT.
#pragma once

#include <cstdint>

#include "mp4format/atom.h"
#include "mp4format/atom_writer.h"

namespace tarn {

struct Mp4MovieHeader {
    uint32_t version_flags;
    uint64_t creation_time, modification_time;  // seconds since 1904
    uint32_t timescale;                         // units a second
    uint64_t duration;
    uint32_t rate;    // 16.16
    uint16_t volume;  // 8.8
    uint32_t matrix[9];
    uint32_t next_track_id;
};

struct Mp4TrackHeader {
    uint32_t version_flags;
    uint64_t creation_time, modification_time;
    uint32_t track_id;
    uint64_t duration;  // movie units
    uint16_t layer, alternate_group, volume;
    uint32_t matrix[9];
    uint32_t width, height;  // 16.16
};

struct Mp4MediaHeader {
    uint32_t version_flags;
    uint64_t creation_time, modification_time;
    uint32_t timescale;
    uint64_t duration;  // media units
    uint16_t language;  // three letters of 5 bits, each less 0x60
};

// Each takes the payload span of its atom.
Mp4Result mp4_read_mvhd(Mp4Host* host, Mp4File* file, const Mp4Span& payload, Mp4MovieHeader* out);
Mp4Result mp4_read_tkhd(Mp4Host* host, Mp4File* file, const Mp4Span& payload, Mp4TrackHeader* out);
Mp4Result mp4_read_mdhd(Mp4Host* host, Mp4File* file, const Mp4Span& payload, Mp4MediaHeader* out);

// Each chooses its version by mp4_pick_version; the flags are the record's.
Mp4Result mp4_write_mvhd(Mp4Sink& sink, const Mp4MovieHeader& header);
Mp4Result mp4_write_tkhd(Mp4Sink& sink, const Mp4TrackHeader& header);
Mp4Result mp4_write_mdhd(Mp4Sink& sink, const Mp4MediaHeader& header);

}  // namespace tarn

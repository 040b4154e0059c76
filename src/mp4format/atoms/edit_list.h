// edit_list.h - the entries of 'elst': which stretch of a track's media plays when.
#pragma once

#include <cstdint>

#include "mp4format/atom.h"

namespace tarn {

struct Mp4Edit {
    uint64_t segment_duration;  // movie units
    int64_t media_time;         // media units; -1 is an empty edit
    uint16_t rate_integer, rate_fraction;
    Mp4Edit* next;
};

struct Mp4EditList {
    Mp4Edit* head;
    Mp4Edit* tail;
    uint32_t count;
};

// Decodes at most `count` entries from `size` bytes; entries that don't fit whole are left out
// without error. A version above 1 is FF4_RET_ARGS.
Mp4Result mp4_decode_edits(Mp4Host* host, const uint8_t* bytes, uint64_t size, uint32_t count,
                           uint32_t version_flags, Mp4EditList* list);
// Reads and decodes the entries behind the head of an 'elst'.
Mp4Result mp4_read_edits(Mp4Host* host, Mp4File* file, const Mp4Span& entries, uint32_t count,
                         uint32_t version_flags, Mp4EditList* list);
void mp4_free_edits(Mp4Host* host, Mp4EditList* list);

}  // namespace tarn

// edit_list.h - the entries of 'elst': which stretch of a track's media plays when.
#pragma once

#include <cstdint>

#include "mp4format/atom.h"
#include "mp4format/atom_writer.h"

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

// Whether an entry fits only version 1; the -1 of an empty edit fits either.
bool mp4_edit_needs_64_bits(const Mp4Edit& edit);
// Appends a copy. FF4_RET_STATE for an edit that needs 64 bits under a policy of version 0.
Mp4Result mp4_add_edit(Mp4Host* host, const Mp4WriteOptions& options, const Mp4Edit& edit,
                       Mp4EditList* list);
// 'edts' around the 'elst'; nothing for an empty list.
Mp4Result mp4_write_edts(Mp4Sink& sink, const Mp4EditList& edits);
Mp4Result mp4_write_elst(Mp4Sink& sink, const Mp4EditList& edits);

}  // namespace tarn

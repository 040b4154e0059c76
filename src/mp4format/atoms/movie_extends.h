// movie_extends.h - what 'mvex' says of the fragments after 'moov': the overall duration and each
// track's defaults (ISO/IEC 14496-12, 8.8.1 to 8.8.3).
#pragma once

#include <cstdint>

#include "mp4format/atom.h"
#include "mp4format/atom_writer.h"

namespace tarn {

// One 'trex': the values that a track's fragments take where they name none.
struct Mp4Trex {
    Mp4Span atom;
    uint32_t track_id;
    uint32_t default_description_index;  // 1-based
    uint32_t default_duration;           // media units
    uint32_t default_size;               // bytes
    uint32_t default_flags;              // bit 16: not a sync sample
    Mp4Trex* next;
};

struct Mp4MovieExtends {
    Mp4Span mehd;                // payload
    uint64_t fragment_duration;  // movie units, fragments included; 0 without 'mehd'
    Mp4Trex* head;
    Mp4Trex* tail;
};

// Walks `payload` of 'mvex' for the first 'mehd' and every 'trex'. What was read before a failure
// stays. FF4_RET_FORMAT for an atom too short or a 'mehd' version above 1.
Mp4Result mp4_read_mvex(Mp4Host* host, Mp4File* file, const Mp4Span& payload,
                        Mp4MovieExtends* extends);
void mp4_free_mvex(Mp4Host* host, Mp4MovieExtends* extends);

// The defaults of a track, or null.
const Mp4Trex* mp4_find_trex(const Mp4MovieExtends& extends, uint32_t track_id);

// 'mehd' where there is a duration, then every 'trex'. A duration past 32 bits is FF4_RET_STATE
// under a policy of version 0.
Mp4Result mp4_write_mvex(Mp4Sink& sink, const Mp4MovieExtends& extends);

}  // namespace tarn

// track_references.h - 'tref': which other tracks a track refers to (ISO/IEC 14496-12, 8.3.3).
#pragma once

#include <cstdint>

#include "mp4format/atom_writer.h"

namespace tarn {

// One kind of reference.
struct Mp4TrackReference {
    uint32_t type;
    uint32_t* track_ids;
    uint32_t count;
    Mp4TrackReference* next;
};

// Owns its entries and their ids.
struct Mp4TrackReferenceList {
    Mp4TrackReference* head;
    Mp4TrackReference* tail;
};

// Appends a copy; no ids are FF4_RET_ARGS.
Mp4Result mp4_add_track_reference(Mp4Host* host, uint32_t type, const uint32_t* track_ids,
                                  uint32_t count, Mp4TrackReferenceList* list);
void mp4_free_track_references(Mp4Host* host, Mp4TrackReferenceList* list);

// Nothing for an empty list.
Mp4Result mp4_write_tref(Mp4Sink& sink, const Mp4TrackReferenceList& references);

}  // namespace tarn

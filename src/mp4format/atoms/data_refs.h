// data_refs.h - where a track's samples lie: the 'dref' atom and its entries.
//
// An entry without a location means this very file. The list owns its entries and their texts;
// mp4_free_data_refs gives them back to the host.
#pragma once

#include <cstdint>

#include "mp4format/atom.h"

namespace tarn {

struct Mp4DataRef {
    uint32_t type;  // 'url ', 'urn ', or anything else without texts
    uint32_t version_flags;
    char* location;  // null when the data is in the same file
    char* name;      // 'urn ' alone
    Mp4DataRef* next;
};

struct Mp4DataRefs {
    Mp4DataRef* head;
    Mp4DataRef* tail;
    uint32_t count;
};

// Reads `count` entries behind the head of a 'dref', or as many as are there.
Mp4Result mp4_read_data_refs(Mp4Host* host, Mp4File* file, const Mp4Span& entries, uint32_t count,
                             Mp4DataRefs* refs);
void mp4_free_data_refs(Mp4Host* host, Mp4DataRefs* refs);

}  // namespace tarn

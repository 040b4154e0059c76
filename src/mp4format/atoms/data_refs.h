// data_refs.h - where a track's samples lie: the 'dref' atom and its entries.
//
// An entry without a location means this very file. The list owns its entries and their texts;
// mp4_free_data_refs gives them back to the host.
#pragma once

#include <cstdint>

#include "mp4format/atom.h"
#include "mp4format/atom_writer.h"

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

// Appends an entry: 'url ' with a location or without, which is this very file; 'urn ' with a name
// and maybe a location. Texts are copied. Another type is FF4_RET_ARGS.
Mp4Result mp4_add_data_ref(Mp4Host* host, uint32_t type, const char* location, const char* name,
                           Mp4DataRefs* refs);
Mp4Result mp4_write_dref(Mp4Sink& sink, const Mp4DataRefs& refs);

}  // namespace tarn

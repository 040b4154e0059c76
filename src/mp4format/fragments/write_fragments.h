// write_fragments.h - writers of a fragmented movie: 'mvex' in 'moov', a 'moof' in front of each
// fragment's media, 'mfra' at the end (ISO/IEC 14496-12, 8.8).
#pragma once

#include <cstdint>

#include "mp4format/atom_writer.h"
#include "mp4format/atoms/movie_extends.h"
#include "mp4format/atoms/random_access.h"

namespace tarn {

// Flags of 'tfhd': which fields are there.
enum Mp4TfhdFlag : uint32_t {
    kTfhdBaseOffset = 0x000001,
    kTfhdDescription = 0x000002,
    kTfhdDuration = 0x000008,
    kTfhdSize = 0x000010,
    kTfhdFlags = 0x000020
};
struct Mp4TfhdBuild {
    uint32_t flags;  // Mp4TfhdFlag and what else the format knows
    uint32_t track_id;
    uint64_t base_offset;  // in the file
    uint32_t description_index, default_duration, default_size, default_flags;
};

// Flags of 'trun': which fields the run and each row have.
enum Mp4TrunFlag : uint32_t {
    kTrunDataOffset = 0x000001,
    kTrunFirstFlags = 0x000004,
    kTrunDuration = 0x000100,
    kTrunSize = 0x000200,
    kTrunSampleFlags = 0x000400,
    kTrunComposition = 0x000800
};
struct Mp4TrunRow {
    uint32_t duration, size, flags;
    int32_t composition_offset;
};
struct Mp4TrunBuild {
    uint32_t flags;       // Mp4TrunFlag
    int32_t data_offset;  // of the first sample, from the base
    uint32_t first_sample_flags;
    const Mp4TrunRow* rows;
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

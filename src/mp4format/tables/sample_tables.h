// sample_tables.h - from a sample number or a time to the entry of a sample table.
//
// These are the lookups that reading a sample is made of. Each goes through the track's windows,
// so that a walk by rising numbers costs a step a sample. Sample and chunk numbers start at 1;
// number 0 is FF4_RET_ARGS. Times are in media units.
//
// FF4_RET_FORMAT: a table that the lookup needs is absent, is broken at or before the place asked
// for, or holds fewer samples than the size table says. FF4_RET_NOTFOUND: a table has no entries,
// or the number is past its end.
#pragma once

#include <cstdint>

#include "mp4format/host.h"
#include "mp4format/tables/track_cache.h"
#include "mp4format/tables/track_tables.h"

namespace tarn {

// A track's tables, and what is needed to look into them.
struct Mp4TableReader {
    Mp4Host* host;
    Mp4File* file;
    const Mp4TrackTables* at;  // where they lie
    Mp4TrackCache* cache;      // their windows
};

// Samples that follow each other with one duration.
struct Mp4TimeRun {
    uint64_t first_time;
    uint32_t first_sample, sample_count, sample_delta;
};

// Chunks that follow each other with the same number of samples.
struct Mp4ChunkRun {
    uint32_t first_sample, first_chunk;
    uint32_t samples_per_chunk;  // never 0
    uint32_t description_index;
    uint32_t chunk_count;  // at least 1
};

// One chunk.
struct Mp4ChunkPlace {
    uint32_t chunk;
    uint32_t first_sample, sample_count;
    uint32_t description_index;
};

// FF4_RET_FORMAT for a track without 'stts'.
Mp4Result mp4_need_times(const Mp4TableReader& tables);
// The run that holds a sample.
Mp4Result mp4_lookup_sample_time(const Mp4TableReader& tables, uint32_t sample, Mp4TimeRun* out);
// The run that holds a time; FF4_RET_NOTFOUND past the table's last sample. The run's sample_delta
// is never 0. Where 'stts' goes on past the last sample, so do the times that are found.
Mp4Result mp4_lookup_time_sample(const Mp4TableReader& tables, uint64_t time, Mp4TimeRun* out);
// The end of the run that holds the last sample; 0 for a track without samples.
Mp4Result mp4_lookup_media_duration(const Mp4TableReader& tables, uint64_t* out);
// Presentation time less decoding time; 0 without a 'ctts'. Signed in both versions of the table:
// an offset with the top bit set is negative.
Mp4Result mp4_lookup_composition_offset(const Mp4TableReader& tables, uint32_t sample,
                                        int32_t* out);
// The run of chunks that holds a sample.
Mp4Result mp4_lookup_chunk_run(const Mp4TableReader& tables, uint32_t sample, Mp4ChunkRun* out);
// The chunk that holds a sample.
Mp4Result mp4_lookup_chunk(const Mp4TableReader& tables, uint32_t sample, Mp4ChunkPlace* out);
Mp4Result mp4_lookup_chunk_offset(const Mp4TableReader& tables, uint32_t chunk, uint64_t* out);
Mp4Result mp4_lookup_sample_size(const Mp4TableReader& tables, uint32_t sample, uint32_t* out);
// The bytes of `count` samples from `sample` on. FF4_RET_FORMAT when they reach past the last.
Mp4Result mp4_lookup_size_sum(const Mp4TableReader& tables, uint32_t sample, uint32_t count,
                              uint64_t* out);
// How many samples from this one on, at least 1, are the same but for their number and lie one
// after the other in one chunk. Of sizes and sync numbers only a few are looked at.
Mp4Result mp4_count_alike_samples(const Mp4TableReader& tables, uint32_t sample, uint32_t* count);
// Whether the sample stands in 'stss'. What a track without one means is the caller's to say: here
// it is FF4_RET_FORMAT.
Mp4Result mp4_lookup_is_sync(const Mp4TableReader& tables, uint32_t sample, bool* out);
// Whether the whole of 'stss', where there is one, is in order; FF4_RET_FORMAT where it is not.
Mp4Result mp4_check_sync_order(const Mp4TableReader& tables);
// The first entry of 'stss' above the number, which may be 0. The entry may lie past the last
// sample.
Mp4Result mp4_lookup_next_sync(const Mp4TableReader& tables, uint32_t sample, uint32_t* out);

}  // namespace tarn

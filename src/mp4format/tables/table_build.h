// table_build.h - the sample tables of a track that is being written, filled chunk by chunk.
#pragma once

#include <cstdint>

#include "mp4format/atoms/sample_entries.h"
#include "mp4format/tables/chunk_list.h"

namespace tarn {

// Entries of the lists below.
struct Mp4BuildTimeRun {
    uint32_t count, delta;  // samples; media units each
};
struct Mp4BuildOffsetRun {
    uint32_t count;
    int32_t offset;  // media units
};
struct Mp4BuildChunkRun {
    uint32_t first_chunk, samples_per_chunk, description_index;  // 1-based
};

// `count` samples in a row that are alike. A single picture is a run of 1, a chunk of PCM one run.
struct Mp4SampleRun {
    uint32_t count;
    uint32_t size;               // bytes of each
    uint32_t duration;           // media units of each
    int32_t composition_offset;  // media units
    bool is_sync;
};

// The samples of a chunk lie in the file without gaps, from `offset` on.
struct Mp4NewChunk {
    uint64_t offset;
    uint32_t description_index;  // 1-based
    const Mp4SampleRun* runs;
    uint32_t run_count;
};

struct Mp4TableBuild {
    uint64_t atom_size;          // of 'stbl', when it was last counted or written
    Mp4SampleEntryList entries;  // owned
    Mp4ChunkList times;          // Mp4BuildTimeRun
    Mp4ChunkList compositions;   // Mp4BuildOffsetRun
    Mp4ChunkList chunk_runs;     // Mp4BuildChunkRun
    Mp4ChunkList sizes;          // u32; empty where all are `constant_size`, or `first_size` so far
    Mp4ChunkList chunks;         // u64, file offsets
    Mp4ChunkList syncs;          // u32, numbers of the sync samples from 1
    uint32_t constant_size;      // bytes of every sample, or 0: each has its own
    uint32_t first_size;         // bytes of the first sample
    uint32_t field_bits;         // 4, 8 or 16 make a 'stz2'; 0 a 'stsz'
    uint32_t sample_count;
    uint64_t duration;         // media units
    bool has_compositions;     // an offset other than 0 was seen
    bool has_negative_offset;  // asks for version 1 of 'ctts'
    bool has_syncs;            // a sample that is not sync was seen
    bool has_sizes;            // a size other than the first was seen
    bool broken;               // a chunk was added in part: nothing right can come of this
};

// Sets an empty record up. FF4_RET_ARGS for a field width that is none of 0, 4, 8 and 16, or one
// together with a constant size.
Mp4Result mp4_init_tables(uint32_t constant_size, uint32_t field_bits, Mp4TableBuild* tables);
void mp4_free_tables(Mp4Host* host, Mp4TableBuild* tables);

// FF4_RET_ARGS for a chunk without samples, a description that is not there, or a size other than
// the constant one; FF4_RET_STATE for a size that the field width can't hold. After a failure on
// the way the tables are `broken`, and every later chunk is FF4_RET_STATE.
Mp4Result mp4_add_chunk(Mp4Host* host, Mp4TableBuild* tables, const Mp4NewChunk& chunk);

// Moves the offsets of all chunks, or of those of one description (0: all). A wrap either way is
// FF4_RET_OVERFLOW.
Mp4Result mp4_can_shift_chunks(const Mp4TableBuild& tables, uint32_t description, int64_t amount);
Mp4Result mp4_shift_chunks(Mp4TableBuild* tables, uint32_t description, int64_t amount);

// A track whose chunks were added in part is FF4_RET_STATE.
Mp4Result mp4_write_stbl(Mp4Sink& sink, Mp4TableBuild* tables);
Mp4Result mp4_write_stts(Mp4Sink& sink, const Mp4TableBuild& tables);
// Version 1 when an offset is negative.
Mp4Result mp4_write_ctts(Mp4Sink& sink, const Mp4TableBuild& tables);
Mp4Result mp4_write_stsc(Mp4Sink& sink, const Mp4TableBuild& tables);
// 'stsz' or 'stz2', as the record says.
Mp4Result mp4_write_sizes(Mp4Sink& sink, const Mp4TableBuild& tables);
// 'stco' or 'co64', by the offset policy. FF4_RET_ARGS for an unknown policy.
Mp4Result mp4_write_chunk_offsets(Mp4Sink& sink, const Mp4TableBuild& tables);
Mp4Result mp4_write_stss(Mp4Sink& sink, const Mp4TableBuild& tables);

}  // namespace tarn

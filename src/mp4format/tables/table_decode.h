// table_decode.h - the six sample tables: their entries on disk and in memory, and how one is
// turned into the other. Layout after ISO/IEC 14496-12, 8.6.1 and 8.7.
//
// A table is a chain of runs. Each entry covers the keys from its own start up to the start of the
// next one; keys are sample numbers, and for 'stts' also times. Sizes and chunk offsets are plain
// lists: the key is the entry's own number.
#pragma once

#include <cstdint>

namespace tarn {

enum Mp4TableId : uint32_t {
    kTableStts,
    kTableCtts,
    kTableSize,  // 'stsz' or 'stz2'
    kTableStsc,
    kTableChunk,  // 'stco' or 'co64'
    kTableStss,
    kTableCount
};

// Memory entries. Numbers are 1-based, times are in media units.
struct Mp4SttsEntry {
    uint32_t first_sample;
    uint64_t first_time;
    uint32_t sample_count, sample_delta;
};
struct Mp4CttsEntry {
    uint32_t first_sample, sample_count, sample_offset;
};
struct Mp4SizeEntry {
    uint32_t size;
};
struct Mp4StscEntry {
    uint32_t first_sample, first_chunk, samples_per_chunk, description_index;
};
struct Mp4ChunkEntry {
    uint64_t offset;
};
struct Mp4StssEntry {
    uint32_t sample_number;
};

// Where an entry starts, or how far it reaches. 64 bits: one past the last sample does not fit 32.
struct Mp4TableKey {
    uint64_t number;
    uint64_t time;  // 'stts' alone
};

// Disk entries `first` to `end` - 1. They include the entry's neighbours that its kind needs,
// wherever the table has one: a missing successor is the end of the table.
struct Mp4RawEntries {
    const uint8_t* bytes;
    uint32_t first;  // odd for 4-bit fields, so that an entry's parity tells its nibble
    uint32_t end;
    uint32_t total_chunks;
};

struct Mp4TableKind {
    uint32_t disk_size;  // bytes; 0 for 4-bit fields
    uint32_t mem_size;
    bool direct;  // keys are entry numbers: any entry can be reached without those before it
    uint32_t before, after;  // neighbours that `measure` looks at

    // How far the entry reaches. False when the entry breaks the format.
    bool (*measure)(const Mp4RawEntries& raw, uint32_t entry, Mp4TableKey* length);
    // The memory form of an entry that starts at `start`.
    void (*decode)(const Mp4RawEntries& raw, uint32_t entry, const Mp4TableKey& start, void* to);
    // Where a decoded entry, which has a decoded one before it, starts.
    Mp4TableKey (*start)(const void* decoded, uint32_t entry);
};

extern const Mp4TableKind kSttsKind, kCttsKind, kStscKind, kStssKind, kStcoKind, kCo64Kind;
// `field_size` in bits: 32, or 4, 8 or 16 for 'stz2'.
const Mp4TableKind& mp4_size_kind(uint32_t field_size);

// The start of entry 1: sample 1, time 0.
constexpr Mp4TableKey kTableStart = {1, 0};
// Adds an entry's length to its start. False past 2^32 - 1 samples.
bool mp4_advance_key(const Mp4TableKey& start, const Mp4TableKey& length, Mp4TableKey* end);

}  // namespace tarn

// table_budget.h - how many entries of each sample table a track may hold in memory.
//
// The share is dealt out like water: the smallest table is filled first, and what it leaves raises
// the level for the others.
#pragma once

#include <cstdint>

#include "mp4format/host.h"
#include "mp4format/tables/table_decode.h"
#include "mp4format/tables/track_tables.h"

namespace tarn {

// What a window is set up from.
struct Mp4TableSpec {
    const Mp4TableKind* decode;  // entry sizes, and how disk entries become memory entries
    uint64_t entries_offset;
    uint32_t count;     // 0 for an absent table and for sizes that are all alike
    uint32_t active;    // still waiting for its part of the share
    uint32_t capacity;  // entries granted
};

// The six tables of a track, indexed by Mp4TableId, nothing granted yet.
void mp4_make_table_specs(const Mp4TrackTables& tables, Mp4TableSpec (&specs)[kTableCount]);

// The blocks' own headers, which count against the pool too.
constexpr uint64_t kWindowFixedCosts = 48;

// Divides a track's share of the window pool, in bytes, among its tables. FF4_RET_NOMEM for a
// share below the fixed costs or below two entries of each table that is still to be served.
Mp4Result mp4_divide_budget(uint64_t share, Mp4TableSpec (&specs)[kTableCount]);

}  // namespace tarn

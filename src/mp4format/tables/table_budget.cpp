#include "mp4format/tables/table_budget.h"

#include <algorithm>

#include "mp4format/bytes.h"

namespace tarn {
namespace {

constexpr uint64_t kMinEntries = 2;

Mp4TableSpec make_spec(const Mp4TableKind& kind, const Mp4Span& entries, uint32_t count) {
    return {&kind, entries.offset, count, 1, 0};
}

// Bytes that one entry of each active table takes together.
uint64_t active_entry_bytes(const Mp4TableSpec (&specs)[kTableCount]) {
    uint64_t sum = 0;
    for (const Mp4TableSpec& spec : specs)
        if (spec.active) sum += spec.decode->mem_size;
    return sum;
}

// The active table with the fewest entries, on a tie the first.
Mp4TableSpec* smallest_active(Mp4TableSpec (&specs)[kTableCount]) {
    Mp4TableSpec* smallest = nullptr;
    for (Mp4TableSpec& spec : specs)
        if (spec.active && (!smallest || spec.count < smallest->count)) smallest = &spec;
    return smallest;
}

// A window over 4-bit fields holds whole bytes.
void even_nibbles(Mp4TableSpec* sizes) {
    if (sizes->decode->disk_size == 0 && sizes->capacity > 2) sizes->capacity &= ~1u;
}

}  // namespace

void mp4_make_table_specs(const Mp4TrackTables& t, Mp4TableSpec (&specs)[kTableCount]) {
    const bool wide_offsets = t.chunk_type == fourcc("co64");
    specs[kTableStts] = make_spec(kSttsKind, t.stts_entries, t.stts_count);
    specs[kTableCtts] = make_spec(kCttsKind, t.ctts_entries, t.ctts_count);
    specs[kTableSize] = make_spec(mp4_size_kind(t.field_size), t.size_entries,
                                  t.sample_size != 0 ? 0 : t.sample_count);
    specs[kTableStsc] = make_spec(kStscKind, t.stsc_entries, t.stsc_count);
    specs[kTableChunk] =
        make_spec(wide_offsets ? kCo64Kind : kStcoKind, t.chunk_entries, t.chunk_count);
    specs[kTableStss] = make_spec(kStssKind, t.stss_entries, t.stss_count);
}

Mp4Result mp4_divide_budget(uint64_t share, Mp4TableSpec (&specs)[kTableCount]) {
    if (share < kWindowFixedCosts) return FF4_RET_NOMEM;
    uint64_t budget = share - kWindowFixedCosts;
    for (Mp4TableSpec& spec : specs)
        spec.active = spec.count != 0;

    while (Mp4TableSpec* spec = smallest_active(specs)) {
        const uint64_t level = budget / active_entry_bytes(specs);
        if (level < kMinEntries) return FF4_RET_NOMEM;
        spec->capacity = static_cast<uint32_t>(std::min<uint64_t>(level, spec->count));
        spec->active = 0;
        budget -= uint64_t{spec->capacity} * spec->decode->mem_size;
    }
    even_nibbles(&specs[kTableSize]);
    return FF4_RET_OK;
}

}  // namespace tarn

// table_window.h - a sample table seen through a window: a buffer that holds a run of decoded
// entries and slides as lookups move, so that no table lives whole in memory.
//
// What a lookup finds depends on the table alone, never on the window's size or on what was asked
// before: an entry counts only once all before it have been decoded in order, and an entry that
// breaks the format ends the table for good. What has been passed leaves checkpoints, so that a
// jump decodes a few hundred entries instead of the whole table.
#pragma once

#include <cstdint>

#include "mp4format/host.h"
#include "mp4format/tables/table_decode.h"

namespace tarn {

// An entry and where it starts: a place from which decoding can go either way.
struct Mp4TableAnchor {
    uint32_t entry;
    Mp4TableKey start;
};

// What is known of a table's running totals. Survives the window: totals don't depend on it.
struct Mp4TableIndex {
    Mp4TableKey* checkpoints;  // starts of entries 1, 1 + spacing, 1 + 2 * spacing, …
    uint32_t spacing, room, used;
    Mp4TableAnchor reached;  // one past the entries decoded so far; past the last: the totals
    bool broken;             // the entry at `reached` breaks the format
};

struct Mp4TableWindow {
    uint64_t entries_offset;  // of entry 1 in the file
    const Mp4TableKind* kind;
    uint32_t count;         // entries in the table
    uint32_t capacity;      // entries that the buffer holds
    uint32_t total_chunks;  // 'stsc' alone
    uint8_t* buffer;        // begins with entry `first`

    uint32_t first, end;  // the entries held, from 1, `end` not included; first 0: none
    uint32_t cursor;      // the entry found last
    Mp4TableKey first_key, end_key;
    Mp4TableIndex index;
};

// Which part of the key a lookup goes by.
using Mp4TableAxis = uint64_t Mp4TableKey::*;
constexpr Mp4TableAxis kByNumber = &Mp4TableKey::number;
constexpr Mp4TableAxis kByTime = &Mp4TableKey::time;

// Sets a window up over a table, empty and without a buffer.
void mp4_init_window(Mp4TableWindow* window, const Mp4TableKind& kind, uint64_t entries_offset,
                     uint32_t count);
// Gets the buffer from the window pool and, where the table is larger, checkpoints from the record
// pool.
Mp4Result mp4_alloc_window(Mp4Host* host, Mp4TableWindow* window);
// Gives the buffer back and empties the window; the index stays.
void mp4_release_window(Mp4Host* host, Mp4TableWindow* window);
// The index too.
void mp4_free_window(Mp4Host* host, Mp4TableWindow* window);
// Forgets what is held.
void mp4_clear_window(Mp4TableWindow* window);

// The number of the entry that covers `target`, loaded into the window. FF4_RET_NOTFOUND outside
// the table; FF4_RET_FORMAT at or after an entry that breaks the format, with the window cleared;
// FF4_RET_FILE for a failed read, with the window as it was.
Mp4Result mp4_find_entry(Mp4Host* host, Mp4File* file, Mp4TableWindow* window, Mp4TableAxis axis,
                         uint64_t target, uint32_t* entry);

// Where an entry that is held, or the one after the last held, starts.
Mp4TableKey mp4_entry_start(const Mp4TableWindow& window, uint32_t entry);

// An entry that is held; good until the next lookup.
template <typename Entry>
const Entry& mp4_entry(const Mp4TableWindow& window, uint32_t entry) {
    return reinterpret_cast<const Entry*>(window.buffer)[entry - window.first];
}

}  // namespace tarn

// chunk_list.h - a table that grows while a movie is written: linked blocks of a fixed number of
// entries, which are never moved or merged, so that the millionth entry costs what the first does.
#pragma once

#include <cstdint>

#include "mp4format/host.h"

namespace tarn {

constexpr uint32_t kTableBlockEntries = 1000;

struct Mp4ChunkBlock {
    uint32_t count;  // entries in use
    void* entries;
    Mp4ChunkBlock* next;
};

// `entry_size` and `capacity` are set before the first entry.
struct Mp4ChunkList {
    uint32_t entry_size;  // bytes
    uint32_t capacity;    // entries of a block
    uint32_t count;       // entries of all blocks
    Mp4ChunkBlock* head;
    Mp4ChunkBlock* tail;
};

// Adds a copy of `entry`. FF4_RET_OVERFLOW past 32 bits of entries.
Mp4Result mp4_add_entry(Mp4Host* host, Mp4ChunkList* list, const void* entry);
// The entry added last, or null.
void* mp4_last_entry(const Mp4ChunkList& list);
void mp4_free_chunk_list(Mp4Host* host, Mp4ChunkList* list);

// Goes through the entries in order. Entry is what the list was made for.
template <typename Entry>
class Mp4EntryCursor {
public:
    explicit Mp4EntryCursor(const Mp4ChunkList& list) : m_block(list.head) { SkipEmpty(); }
    // Null after the last.
    Entry* Get() const {
        return m_block ? static_cast<Entry*>(m_block->entries) + m_index : nullptr;
    }
    void Next() {
        ++m_index;
        SkipEmpty();
    }

private:
    void SkipEmpty() {
        while (m_block && m_index >= m_block->count) {
            m_block = m_block->next;
            m_index = 0;
        }
    }
    const Mp4ChunkBlock* m_block;
    uint32_t m_index = 0;
};

}  // namespace tarn

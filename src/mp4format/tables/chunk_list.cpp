#include "mp4format/tables/chunk_list.h"

#include "mp4format/atom.h"

namespace tarn {
namespace {

Mp4Result add_block(Mp4Host* host, Mp4ChunkList* list) {
    // One piece of memory: the block and behind it the entries, which ask for no more alignment.
    const uint64_t size = uint64_t{list->entry_size} * list->capacity;
    void* memory = mp4_alloc(host, sizeof(Mp4ChunkBlock) + size, kMemoryRecords);
    if (!memory) return FF4_RET_NOMEM;
    auto* block = static_cast<Mp4ChunkBlock*>(memory);
    block->entries = block + 1;
    mp4_append(list, block);
    return FF4_RET_OK;
}

void* entry_at(const Mp4ChunkList& list, const Mp4ChunkBlock& block, uint32_t index) {
    return static_cast<uint8_t*>(block.entries) + uint64_t{list.entry_size} * index;
}

}  // namespace

Mp4Result mp4_add_entry(Mp4Host* host, Mp4ChunkList* list, const void* entry) {
    if (!host || !list || !entry || list->entry_size == 0 || list->capacity == 0)
        return FF4_RET_ARGS;
    if (list->count == UINT32_MAX) return FF4_RET_OVERFLOW;
    if (!list->tail || list->tail->count == list->capacity) FF4_TRY(add_block(host, list));
    Mp4ChunkBlock* block = list->tail;
    host->callbacks.memcpy(host->callbacks.userData, entry_at(*list, *block, block->count),
                           list->entry_size, entry, list->entry_size);
    ++block->count;
    ++list->count;
    return FF4_RET_OK;
}

void* mp4_last_entry(const Mp4ChunkList& list) {
    return list.tail ? entry_at(list, *list.tail, list.tail->count - 1) : nullptr;
}

void mp4_free_chunk_list(Mp4Host* host, Mp4ChunkList* list) {
    while (Mp4ChunkBlock* block = list->head) {
        list->head = block->next;
        mp4_free(host, block);
    }
    list->tail = nullptr;
    list->count = 0;
}

}  // namespace tarn

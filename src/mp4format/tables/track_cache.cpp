#include "mp4format/tables/track_cache.h"

#include "mp4format/tables/table_budget.h"
#include "mp4format/time_math.h"

namespace tarn {
namespace {

void release_windows(Mp4Host* host, Mp4TrackCache* cache) {
    for (Mp4TableWindow& window : cache->windows)
        mp4_release_window(host, &window);
    cache->loaded = 0;
}

void free_cache(Mp4Host* host, Mp4TrackCache* cache) {
    for (Mp4TableWindow& window : cache->windows)
        mp4_free_window(host, &window);
    mp4_free(host, cache->sums.blocks);
    mp4_free(host, cache);
}

uint64_t window_pool_left(const Mp4Host& host) {
    return host.limitClass2 > host.usedClass2 ? host.limitClass2 - host.usedClass2 : 0;
}

// Divides a track's share between its fragments and its tables.
Mp4Result share_track(const Mp4TrackCacheList& list, uint64_t share, Mp4TrackCache* cache) {
    cache->fragment_share = 0;
    if (list.fragmented)
        FF4_TRY(mp4_mul_div(share, list.fragment_percent, 100, &cache->fragment_share));
    Mp4TableSpec specs[kTableCount];
    for (uint32_t i = 0; i < kTableCount; ++i)
        specs[i] = {cache->windows[i].kind, cache->windows[i].entries_offset,
                    cache->windows[i].count, 1, 0};
    FF4_TRY(mp4_divide_budget(share - cache->fragment_share, specs));
    for (uint32_t i = 0; i < kTableCount; ++i)
        cache->windows[i].capacity = specs[i].capacity;
    return FF4_RET_OK;
}

HostPtr<Mp4TrackCache> make_cache(Mp4Host* host, const Mp4TrackTables& tables) {
    auto cache = mp4_make<Mp4TrackCache>(host);
    if (!cache) return cache;
    cache->track_id = tables.track_id;
    Mp4TableSpec specs[kTableCount];
    mp4_make_table_specs(tables, specs);
    for (uint32_t i = 0; i < kTableCount; ++i)
        mp4_init_window(&cache->windows[i], *specs[i].decode, specs[i].entries_offset,
                        specs[i].count);
    cache->windows[kTableStsc].total_chunks = tables.chunk_count;
    return cache;
}

// Takes a cache out of the list without freeing it. False when it isn't there.
bool unlink(Mp4TrackCacheList* list, const Mp4TrackCache* cache) {
    Mp4TrackCache* before = nullptr;
    Mp4TrackCache* at = list->head;
    for (; at && at != cache; at = at->next)
        before = at;
    if (!at) return false;
    (before ? before->next : list->head) = at->next;
    if (list->tail == at) list->tail = before;
    --list->count;
    return true;
}

}  // namespace

Mp4Result mp4_share_window_pool(Mp4Host* host, Mp4TrackCacheList* list) {
    if (!host || !list || list->fragment_percent > 100) return FF4_RET_ARGS;
    for (Mp4TrackCache* cache = list->head; cache; cache = cache->next)
        release_windows(host, cache);
    if (list->count == 0) return FF4_RET_OK;
    const uint64_t shares = uint64_t{list->count} + (list->fragmented ? 1 : 0);
    const uint64_t share = window_pool_left(*host) / shares;
    for (Mp4TrackCache* cache = list->head; cache; cache = cache->next)
        FF4_TRY(share_track(*list, share, cache));
    return FF4_RET_OK;
}

Mp4Result mp4_add_track_cache(Mp4Host* host, Mp4TrackCacheList* list, const Mp4TrackTables& tables,
                              Mp4TrackCache** out) {
    if (!host || !list || !out) return FF4_RET_ARGS;
    auto owned = make_cache(host, tables);
    if (!owned) return FF4_RET_NOMEM;
    Mp4TrackCache* cache = owned.release();
    mp4_append(list, cache);
    ++list->count;

    const Mp4Result result = mp4_share_window_pool(host, list);
    if (result != FF4_RET_OK) {
        // The others had enough before and get it again.
        static_cast<void>(mp4_remove_track_cache(host, list, cache));
        return result;
    }
    *out = cache;
    return FF4_RET_OK;
}

Mp4Result mp4_remove_track_cache(Mp4Host* host, Mp4TrackCacheList* list, Mp4TrackCache* cache) {
    if (!host || !list || !cache) return FF4_RET_ARGS;
    if (!unlink(list, cache)) return FF4_RET_NOTFOUND;
    free_cache(host, cache);
    return mp4_share_window_pool(host, list);
}

void mp4_free_track_caches(Mp4Host* host, Mp4TrackCacheList* list) {
    if (!host || !list) return;
    while (Mp4TrackCache* cache = list->head) {
        list->head = cache->next;
        free_cache(host, cache);
    }
    list->tail = nullptr;
    list->count = 0;
}

Mp4Result mp4_load_track_cache(Mp4Host* host, Mp4TrackCache* cache) {
    if (!host || !cache) return FF4_RET_ARGS;
    if (cache->loaded) return FF4_RET_OK;
    for (Mp4TableWindow& window : cache->windows) {
        const Mp4Result result = mp4_alloc_window(host, &window);
        if (result == FF4_RET_OK) continue;
        release_windows(host, cache);
        return result;
    }
    cache->loaded = 1;
    return FF4_RET_OK;
}

}  // namespace tarn

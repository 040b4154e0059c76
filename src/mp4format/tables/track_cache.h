// track_cache.h - what a session keeps in memory of each open track's sample tables.
//
// The window pool of the host (limitClass2) is dealt out to the open tracks in equal shares.
// Opening or closing a track deals anew: every window is emptied, and buffers are taken again when
// their track is used next.
#pragma once

#include <cstdint>

#include "mp4format/host.h"
#include "mp4format/tables/table_window.h"
#include "mp4format/tables/track_tables.h"

namespace tarn {

// Sums over the size table. A sample's place in a long chunk is the sum of the sizes before it.
struct Mp4SizeSums {
    uint32_t first, count;  // the sum asked for last: a walk through a chunk only adds to it
    uint64_t sum;
    uint64_t* blocks;  // bytes before entries 1, 1 + spacing, 1 + 2 * spacing, …
    uint32_t spacing, used;
};

struct Mp4TrackCache {
    uint32_t track_id;
    uint32_t loaded;  // the buffers are there
    Mp4TableWindow windows[kTableCount];
    Mp4SizeSums sums;
    uint64_t fragment_share;  // bytes of the pool for this track's fragment rows
    Mp4TrackCache* next;
};

struct Mp4TrackCacheList {
    Mp4TrackCache* head;
    Mp4TrackCache* tail;
    uint32_t count;
    uint32_t fragmented;        // fragments exist: they take one share more
    uint32_t fragment_percent;  // and this part of each track's share, 0 to 100
};

// Makes a cache for a track that is being opened and deals the pool anew. FF4_RET_NOMEM when the
// shares become too small; the list is then as before.
Mp4Result mp4_add_track_cache(Mp4Host* host, Mp4TrackCacheList* list, const Mp4TrackTables& tables,
                              Mp4TrackCache** out);
// Frees a cache and deals the pool to those left. FF4_RET_NOTFOUND for a cache of another list. By
// pointer, since a broken file can give two tracks one id.
Mp4Result mp4_remove_track_cache(Mp4Host* host, Mp4TrackCacheList* list, Mp4TrackCache* cache);
// Frees all caches.
void mp4_free_track_caches(Mp4Host* host, Mp4TrackCacheList* list);

// Deals the pool anew; for a change of `fragmented` or `fragment_percent`.
Mp4Result mp4_share_window_pool(Mp4Host* host, Mp4TrackCacheList* list);

// Takes the buffers unless they are there. On failure all of this track's are given back.
Mp4Result mp4_load_track_cache(Mp4Host* host, Mp4TrackCache* cache);

}  // namespace tarn

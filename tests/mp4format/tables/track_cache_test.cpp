#include "mp4format/tables/track_cache.h"

#include <gtest/gtest.h>

#include "mp4format/bytes.h"
#include "mp4format/tables/table_budget.h"
#include "support/test_host.h"

namespace tarn {
namespace {

// Memory entries: stts 24 bytes, ctts 12, sizes 4, stsc 16, chunks 8, stss 4.
TEST(TableBudget, SmallTablesFirstThenTheRestRises) {
    constexpr Mp4Result kOk = FF4_RET_OK, kNoRoom = FF4_RET_NOMEM;
    const struct {
        const char* name;
        uint64_t share;
        uint32_t counts[kTableCount];
        uint32_t field_size;
        Mp4Result result;
        uint32_t capacities[kTableCount];
    } cases[] = {
        {"below the fixed costs", 47, {}, 32, kNoRoom, {}},
        {"two entries", 48 + 48, {9}, 32, kOk, {2}},
        {"never more than there are", 5000, {9}, 32, kOk, {9}},
        // 68 bytes a level: 200 levels fill stss, stts and stsc; 10720 are left, 24 bytes a level
        {"all six",
         48 + 13600,
         {50, 999, 999, 100, 999, 20},
         32,
         kOk,
         {50, 446, 447, 100, 447, 20}},
        {"nibbles in whole bytes", 48 + 4 * 7, {0, 0, 1000}, 4, kOk, {0, 0, 6}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Mp4TrackTables tables{};
        tables.stts_count = c.counts[kTableStts];
        tables.ctts_count = c.counts[kTableCtts];
        tables.sample_count = c.counts[kTableSize];
        tables.field_size = c.field_size;
        tables.stsc_count = c.counts[kTableStsc];
        tables.chunk_count = c.counts[kTableChunk];
        tables.stss_count = c.counts[kTableStss];
        Mp4TableSpec specs[kTableCount];
        mp4_make_table_specs(tables, specs);
        ASSERT_EQ(mp4_divide_budget(c.share, specs), c.result);
        for (uint32_t i = 0; i < kTableCount && c.result == FF4_RET_OK; ++i)
            EXPECT_EQ(specs[i].capacity, c.capacities[i]) << i;
    }
}

// A track with 1000 chunk offsets of 8 bytes and nothing else.
Mp4TrackTables ChunksOnly(uint32_t track_id) {
    Mp4TrackTables tables{};
    tables.track_id = track_id;
    tables.chunk_table = tables.chunk_entries = {16, 4000};
    tables.chunk_count = 1000;
    return tables;
}

struct CacheList : testing::Test {
    CacheList() : host(Bytes(8000)) {
        host->enabled = 1;
        host->limitClass1 = 100000;
        host->limitClass2 = 2096;
    }
    ~CacheList() override { mp4_free_track_caches(host, &list); }
    Mp4Result Add(uint32_t track_id, Mp4TrackCache** cache) {
        return mp4_add_track_cache(host, &list, ChunksOnly(track_id), cache);
    }
    static uint32_t Room(const Mp4TrackCache* cache) {
        return cache->windows[kTableChunk].capacity;
    }

    TestHost host;
    Mp4TrackCacheList list{};
    Mp4TrackCache *a = nullptr, *b = nullptr, *c = nullptr;
};

TEST_F(CacheList, OpenTracksShareThePool) {
    ASSERT_EQ(Add(1, &a), FF4_RET_OK);
    EXPECT_EQ(Room(a), (2096u - 48) / 8);
    ASSERT_EQ(mp4_load_track_cache(host, a), FF4_RET_OK);
    EXPECT_EQ(host->usedClass2, 2048u + 8);

    ASSERT_EQ(Add(2, &b), FF4_RET_OK);
    EXPECT_EQ(host->usedClass2, 0u) << "emptied, and taken again by the next use alone";
    EXPECT_EQ(Room(a), (1048u - 48) / 8);
    EXPECT_EQ(Room(b), Room(a));

    ASSERT_EQ(mp4_remove_track_cache(host, &list, a), FF4_RET_OK);
    EXPECT_EQ(Room(b), (2096u - 48) / 8);
    EXPECT_EQ(list.head, b);
    EXPECT_EQ(list.tail, b);
    EXPECT_EQ(mp4_remove_track_cache(host, &list, a), FF4_RET_NOTFOUND);
}

TEST_F(CacheList, ATrackTooManyChangesNothing) {
    host->limitClass2 = 2 * (48 + 16);
    ASSERT_EQ(Add(1, &a), FF4_RET_OK);
    ASSERT_EQ(Add(2, &b), FF4_RET_OK);
    EXPECT_EQ(Add(3, &c), FF4_RET_NOMEM);
    EXPECT_EQ(list.count, 2u);
    EXPECT_EQ(list.tail, b);
    EXPECT_EQ(Room(a), 2u);
    EXPECT_EQ(mp4_load_track_cache(host, a), FF4_RET_OK);
}

TEST_F(CacheList, ATrackHasAllItsBuffersOrNone) {
    Mp4TrackTables tables = ChunksOnly(1);
    tables.stss_count = 10;
    ASSERT_EQ(mp4_add_track_cache(host, &list, tables, &a), FF4_RET_OK);
    host.FailAt(HostCall::kAlloc, 2);
    EXPECT_EQ(mp4_load_track_cache(host, a), FF4_RET_NOMEM);
    EXPECT_EQ(host->usedClass2, 0u);
    EXPECT_EQ(mp4_load_track_cache(host, a), FF4_RET_OK);
}

TEST_F(CacheList, FragmentsTakeAShareAndAPart) {
    list.fragmented = 1;
    list.fragment_percent = 50;
    ASSERT_EQ(Add(1, &a), FF4_RET_OK);
    EXPECT_EQ(a->fragment_share, 2096u / 2 / 2);
    EXPECT_EQ(Room(a), (2096u / 2 / 2 - 48) / 8);
}

}  // namespace
}  // namespace tarn

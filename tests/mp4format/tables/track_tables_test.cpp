#include <gtest/gtest.h>

#include "mp4format/bytes.h"
#include "mp4format/tables/table_budget.h"
#include "mp4format/tables/track_cache.h"
#include "mp4format/tables/track_tables.h"
#include "support/atoms.h"
#include "support/test_host.h"

namespace tarn {
namespace {

// The tables of a track whose 'stbl' has these children.
struct Read {
    Mp4Result result;
    Mp4TrackTables tables;
};

Read read_track(const Bytes& trak, uint64_t file_size) {
    // Behind something, as in a file: offset 0 means "not there".
    const Bytes bytes = Join(Atom("free"), trak);
    TestHost host(bytes);
    Read read{};
    read.result =
        mp4_read_track_tables(host, host.File(), {8, trak.size()}, file_size, &read.tables);
    return read;
}

Read read_stbl(const Bytes& children, uint64_t file_size = 1000) {
    return read_track(Atom("mdia", Atom("minf", Atom("stbl", children))), file_size);
}

TEST(TrackTables, CountsAreCutToTheBytes) {
    constexpr int64_t kLie = 1000000;
    const auto table = [](FourCC type, std::initializer_list<int64_t> words, size_t more = 0) {
        return FullAtom(type, 0, 0, Be32(words), Bytes(more, 0));
    };
    using T = Mp4TrackTables;
    const std::tuple<const char*, Bytes, uint32_t T::*, uint32_t> cases[] = {
        {"stts", table("stts", {kLie, 1, 1, 2, 2}), &T::stts_count, 2},
        {"ctts", table("ctts", {kLie, 1, 1, 2}), &T::ctts_count, 1},
        {"stsc", table("stsc", {kLie, 1, 1, 1, 2}), &T::stsc_count, 1},
        {"stsz", table("stsz", {0, kLie, 1, 2, 3}), &T::sample_count, 3},
        {"a constant size: a byte a sample", table("stsz", {7, kLie}), &T::sample_count, 1000},
        {"stz2 of 4 bits", table("stz2", {4, kLie}, 3), &T::sample_count, 6},
        {"stz2 of 8 bits", table("stz2", {8, kLie}, 3), &T::sample_count, 3},
        {"stz2 of 16 bits", table("stz2", {16, kLie}, 3), &T::sample_count, 1},
        {"stco", table("stco", {kLie, 1, 2}), &T::chunk_count, 2},
        {"co64", table("co64", {kLie, 1, 2, 3}), &T::chunk_count, 1},
        {"stss", table("stss", {kLie, 1, 2}), &T::stss_count, 2},
        {"an honest count", Stss({1, 2, 3}), &T::stss_count, 3},
    };
    for (const auto& [name, children, count, expected] : cases) {
        SCOPED_TRACE(name);
        const Read read = read_stbl(children);
        EXPECT_EQ(read.result, FF4_RET_OK);
        EXPECT_EQ(read.tables.*count, expected);
    }
}

TEST(TrackTables, WhatIsRefused) {
    const std::pair<const char*, Bytes> cases[] = {
        {"stsd of 7 bytes", Atom("stsd", Bytes(7, 0))},
        {"stsd of version 1", FullAtom("stsd", 1, 0, Be32({0}))},
        {"stts of version 1", FullAtom("stts", 1, 0, Be32({0}))},
        {"ctts of version 2", FullAtom("ctts", 2, 0, Be32({0}))},
        {"stsz of 11 bytes", Atom("stsz", Bytes(11, 0))},
        {"stz2 of 12 bits", FullAtom("stz2", 0, 0, Be32({12, 0}))},
        {"stco of 4 bytes", FullAtom("stco", 0, 0)},
        {"a child of size 5", Be32({5, 0})},
    };
    for (const auto& [name, children] : cases)
        EXPECT_EQ(read_stbl(children).result, FF4_RET_FORMAT) << name;
}

TEST(TrackTables, FirstOfEachSlot) {
    const Read sizes = read_stbl(Join(Stz2(8, {1, 2}), Stsz({1, 2, 3})));
    EXPECT_EQ(sizes.tables.size_type, fourcc("stz2"));
    EXPECT_EQ(sizes.tables.sample_count, 2u);
    const Read chunks = read_stbl(Join(Co64({1}), Stco({1, 2})));
    EXPECT_EQ(chunks.tables.chunk_type, fourcc("co64"));
    EXPECT_EQ(chunks.tables.chunk_count, 1u);

    const Bytes minf = Atom("minf", MediaHeader("soun"), MediaHeader("vide"),
                            Atom("dinf", Dref({Url(), Url()})), Atom("dinf", Dref()));
    const Read track = read_track(
        Join(Atom("tref", Bytes(4, 1)), Atom("edts", Elst({{1, 2}}, 1)),
             Atom("edts", Elst({{1, 2}, {3, 4}})), Atom("mdia", minf), Atom("mdia", Be32({5, 0}))),
        1000);
    EXPECT_EQ(track.result, FF4_RET_OK) << "a second 'mdia' is not walked";
    EXPECT_EQ(track.tables.tref.size, 4u);
    EXPECT_EQ(track.tables.elst_count, 1u);
    EXPECT_EQ(full_version(track.tables.elst_version_flags), 1u);
    EXPECT_EQ(track.tables.media_header_type, fourcc("smhd"));
    EXPECT_EQ(track.tables.dref_count, 2u);
    EXPECT_EQ(read_track(Atom("edts", FullAtom("elst", 2, 0, Be32({0}))), 9).result,
              FF4_RET_FORMAT);
}

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

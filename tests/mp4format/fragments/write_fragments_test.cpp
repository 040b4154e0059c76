#include "mp4format/fragments/write_fragments.h"

#include <gtest/gtest.h>

#include "support/atoms.h"
#include "support/writer_rig.h"

namespace tarn {
namespace {

TEST(WriteFragments, EveryFieldOfAMoof) {
    const Mp4TrunRow rows[] = {{10, 100, 0x10000, 5}, {11, 101, 0, -5}};
    const Mp4TrunRow plain[] = {{0, 7, 0, 0}, {0, 8, 0, 0}, {0, 9, 0, 0}};
    const Mp4TrunBuild full[] = {{0xF05, -8, 0x2000000, rows, 2}};
    const Mp4TrunBuild bare[] = {{0, 0, 0, plain, 3}, {kTrunSize, 0, 0, plain, 3}};
    const Mp4TrafBuild trafs[] = {{{0x3B, 1, 0x100000000, 2, 3, 4, 5}, full, 1},
                                  {{0x020000, 2, 0, 0, 0, 0, 0}, bare, 2}};
    const Mp4MoofBuild moof{9, trafs, 2};
    TestHost host;
    const Bytes first = Atom(
        "traf",
        Tfhd({.base_offset = 0x100000000, .description = 2, .duration = 3, .size = 4, .flags = 5}),
        Trun({.data_offset = -8,
              .first_flags = 0x2000000,
              .row_flags = 0xF00,
              .count = 2,
              .words = {10, 100, 0x10000, 5, 11, 101, 0, 0xFFFFFFFB},
              .version = 1}));
    const Bytes second =
        Atom("traf", Tfhd({.track_id = 2, .more_flags = 0x20000}), Trun({.count = 3}),
             Trun({.row_flags = 0x200, .count = 3, .words = {7, 8, 9}}));
    EXPECT_EQ(Written(host, mp4_write_moof, moof), Moof(9, {first, second}));

    const auto step = [&](TestHost& h) {
        Mp4Sink sink{h, kOptions, h.File(), 0};
        return mp4_write_moof(sink, moof);
    };
    ExpectFaultsTold({HostCall::kWrite}, {}, step, 10);
}

TEST(WriteFragments, ExtendsTakeTheVersionTheyNeed) {
    TestHost host;
    Mp4Trex trex{{}, 2, 1, 1024, 6, 0x10000, nullptr};
    Mp4MovieExtends extends{{}, 0x100000000, &trex, &trex};
    const Bytes defaults = Trex({2, 1, 1024, 6, 0x10000});
    const Bytes written = Written(host, mp4_write_mvex, extends);
    EXPECT_EQ(written, Atom("mvex", Mehd(0x100000000, 1), defaults));
    Mp4MovieExtends read{};
    ASSERT_EQ(mp4_read_mvex(host, host.Add(written), {8, written.size() - 8}, &read), FF4_RET_OK);
    EXPECT_EQ(read.fragment_duration, extends.fragment_duration);
    const Mp4Trex* found = mp4_find_trex(read, 2);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->default_description_index, 1u);
    EXPECT_EQ(found->default_duration, 1024u);
    EXPECT_EQ(found->default_size, 6u);
    EXPECT_EQ(found->default_flags, 0x10000u);
    EXPECT_EQ(mp4_find_trex(read, 1), nullptr);
    mp4_free_mvex(host, &read);
    EXPECT_EQ(DryRun(host, mp4_write_mvex, extends, {1, kVersion0, 1}), FF4_RET_STATE);
    extends.fragment_duration = 0;
    EXPECT_EQ(Written(host, mp4_write_mvex, extends), Atom("mvex", defaults))
        << "no duration, no mehd";
}

TEST(MovieExtends, ShortAndUnknownAtoms) {
    const Bytes trex = Trex();
    const struct {
        const char* name;
        Bytes bytes;
        uint32_t tracks;
    } cases[] = {
        {"mehd of 7 bytes", Join(trex, Atom("mehd", Bytes(7, 0)), trex), 1},
        {"mehd of version 1 and 8 bytes", FullAtom("mehd", 1, 0, Bytes(4, 0)), 0},
        {"mehd of version 2", FullAtom("mehd", 2, 0, Bytes(8, 0)), 0},
        {"trex of 23 bytes", Join(trex, trex, Atom("trex", Bytes(23, 0))), 2},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TestHost host(c.bytes);
        Mp4MovieExtends extends{};
        EXPECT_EQ(mp4_read_mvex(host, host.File(), {0, c.bytes.size()}, &extends), FF4_RET_FORMAT);
        uint32_t tracks = 0;
        for (const Mp4Trex* at = extends.head; at; at = at->next)
            ++tracks;
        EXPECT_EQ(tracks, c.tracks);
        mp4_free_mvex(host, &extends);
    }
}

// The versions of this table follow a rule of their own.
TEST(WriteFragments, RandomAccessTables) {
    constexpr uint64_t k4G = uint64_t{1} << 32;
    const struct {
        const char* name;
        uint32_t policy;
        uint64_t offset;
        Mp4Result result;
        uint8_t version;
    } cases[] = {
        {"policy 0 is version 1", 0, 500, FF4_RET_OK, 1},
        {"as needed, narrow", 1, k4G - 1, FF4_RET_OK, 0},
        {"as needed, wide", 1, k4G, FF4_RET_OK, 1},
        {"policy 2, narrow", 2, 500, FF4_RET_OK, 0},
        {"policy 2, wide", 2, k4G, FF4_RET_STATE, 0},
        {"always", 3, 500, FF4_RET_OK, 1},
        {"unknown", 4, 500, FF4_RET_INTERNAL, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TestHost host;
        Mp4RandomAccessPoint points[] = {{0, 100, 1, 1, 1}, {9, c.offset, 0x1FF, 2, 0x123456}};
        Mp4TrackRandomAccess table{7, 0, 0x12, 2, {}, points, nullptr};
        const Mp4RandomAccess access{{}, {}, &table, &table};
        const Mp4WriteOptions options = {kSizeAuto, c.policy, kOffsetAuto};
        EXPECT_EQ(DryRun(host, mp4_write_mfra, access, options), c.result);
        if (c.result != FF4_RET_OK) continue;
        const Bytes bytes = Written(host, mp4_write_mfra, access, options);
        EXPECT_EQ(bytes,
                  Mfra({Tfra(7, {{0, 100}, {9, c.offset, 0x1FF, 2, 0x123456}}, c.version, 0x12)}));
        // The reader finds it from the end of the file.
        Mp4File* file = host.Add(Join(Be64({1}), bytes));
        Mp4RandomAccess found{};
        ASSERT_EQ(mp4_find_mfra(host, file, bytes.size() + 8, &found), FF4_RET_OK);
        ASSERT_NE(found.head, nullptr);
        ASSERT_EQ(mp4_load_tfra(host, file, found.head), FF4_RET_OK);
        EXPECT_EQ(found.head->points[1].moof_offset, c.offset);
        EXPECT_EQ(found.head->points[1].sample_number, 0x123456u);
        mp4_free_mfra(host, &found);

        table.length_sizes = 0;
        EXPECT_EQ(DryRun(host, mp4_write_mfra, access, options), FF4_RET_OVERFLOW)
            << "0x1FF takes two bytes";
    }
}

}  // namespace
}  // namespace tarn

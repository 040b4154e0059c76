#include "mp4format/atoms/random_access.h"

#include <gtest/gtest.h>

#include "support/atoms.h"
#include "support/writer_rig.h"

namespace tarn {
namespace {

const Bytes kHead = Atom("free", Bytes(20, 0));

// The index at the end of a file and its first table, loaded.
class Tail {
public:
    explicit Tail(const Bytes& bytes) : host(bytes) {
        result = mp4_find_mfra(host, host.File(), bytes.size(), &access);
    }
    ~Tail() { mp4_free_mfra(host, &access); }
    const Mp4TrackRandomAccess& Load(uint32_t track_id) {
        Mp4TrackRandomAccess* table = mp4_find_tfra(access, track_id);
        EXPECT_EQ(mp4_load_tfra(host, host.File(), table), FF4_RET_OK);
        return *table;
    }

    TestHost host;
    Mp4RandomAccess access{};
    Mp4Result result;
};

TEST(RandomAccess, TablesOfBothVersionsAndAllNumberSizes) {
    const uint64_t far = uint64_t{3} << 32;
    // Numbers of 1, 2 and 3 bytes, then of 4, 1 and 2. Points of one time keep their order.
    Bytes bytes = Join(kHead, Mfra({Tfra(1, {{100, 5, 1, 2, 3}, {0, 6}, {50, 7}, {50, 4}}, 0, 0x06),
                                    Tfra(2, {{far, far + 1, 0x01020304, 5, 0x0607}}, 1, 0x31)}));
    put_be32(bytes.data() + AtomAt(bytes, "mfra/tfra") + 20, 0xFFFFFFFF);  // the count
    Tail tail(bytes);
    ASSERT_EQ(tail.result, FF4_RET_OK);
    EXPECT_EQ(tail.access.atom.offset, kHead.size());

    const Mp4TrackRandomAccess& first = tail.Load(1);
    ASSERT_EQ(first.count, 4u) << "cut to the bytes";
    EXPECT_LT(tail.host.LargestBlock(), 1000u);
    const uint64_t moofs[] = {6, 7, 4, 5};
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(first.points[i].moof_offset, moofs[i]);
    EXPECT_EQ(first.points[3].sample_number, 3u);
    EXPECT_EQ(mp4_find_access_point(first, 0)->moof_offset, 6u);
    EXPECT_EQ(mp4_find_access_point(first, 49)->moof_offset, 6u);
    EXPECT_EQ(mp4_find_access_point(first, far)->moof_offset, 5u);

    const Mp4TrackRandomAccess& second = tail.Load(2);
    EXPECT_EQ(second.points[0].moof_offset, far + 1);
    EXPECT_EQ(mp4_find_access_point(second, far - 1), nullptr);
    EXPECT_EQ(mp4_find_tfra(tail.access, 3), nullptr);
}

TEST(RandomAccess, TailsThatLeadNowhere) {
    const auto tail_of = [](uint32_t size) {
        return Join(kHead, FullAtom("mfro", 0, 0, Be32({size})));
    };
    const Bytes version2 = FullAtom("tfra", 2, 0, Bytes(12, 0)), cut = Atom("tfra", Bytes(15, 0));
    const std::tuple<const char*, Bytes, Mp4Result> cases[] = {
        {"no file to speak of", Bytes(15, 0), FF4_RET_OK},
        {"no mfro", Join(kHead, kHead), FF4_RET_OK},
        {"mfro of itself", tail_of(16), FF4_RET_OK},
        {"before the file", tail_of(1000), FF4_RET_OK},
        {"a size of nothing", tail_of(0), FF4_RET_OK},
        {"another atom", tail_of(28 + 16), FF4_RET_OK},
        {"tfra of version 2", Join(kHead, Mfra({Tfra(1, {}), version2})), FF4_RET_ARGS},
        {"tfra of 15 bytes", Join(kHead, Mfra({Tfra(1, {}), cut})), FF4_RET_FORMAT},
    };
    for (const auto& [name, bytes, result] : cases) {
        SCOPED_TRACE(name);
        Tail tail(bytes);
        EXPECT_EQ(tail.result, result);
        EXPECT_EQ(tail.access.atom.offset, 0u);
        EXPECT_EQ(tail.host.LiveBlocks(), 0u);
    }
}

// The versions of this table follow a rule of their own.
TEST(RandomAccess, VersionsOfWrittenTables) {
    constexpr uint64_t k4G = uint64_t{1} << 32;
    const std::tuple<const char*, uint32_t, uint64_t, Mp4Result, uint8_t> cases[] = {
        {"policy 0 is version 1", 0, 500, FF4_RET_OK, 1},
        {"as needed, narrow", 1, k4G - 1, FF4_RET_OK, 0},
        {"as needed, wide", 1, k4G, FF4_RET_OK, 1},
        {"policy 2, narrow", 2, 500, FF4_RET_OK, 0},
        {"policy 2, wide", 2, k4G, FF4_RET_STATE, 0},
        {"always", 3, 500, FF4_RET_OK, 1},
        {"unknown", 4, 500, FF4_RET_INTERNAL, 0},
    };
    for (const auto& [name, policy, offset, result, version] : cases) {
        SCOPED_TRACE(name);
        TestHost host;
        Mp4RandomAccessPoint points[] = {{0, 100, 1, 1, 1}, {9, offset, 0x1FF, 2, 0x123456}};
        Mp4TrackRandomAccess table{7, 0, 0x12, 2, {}, points, nullptr};
        const Mp4RandomAccess access{{}, {}, &table, &table};
        const Mp4WriteOptions options = {kSizeAuto, policy, kOffsetAuto};
        EXPECT_EQ(DryRun(host, mp4_write_mfra, access, options), result);
        if (result != FF4_RET_OK) continue;
        const Bytes bytes = Written(host, mp4_write_mfra, access, options);
        EXPECT_EQ(bytes,
                  Mfra({Tfra(7, {{0, 100}, {9, offset, 0x1FF, 2, 0x123456}}, version, 0x12)}));
        table.length_sizes = 0;
        EXPECT_EQ(DryRun(host, mp4_write_mfra, access, options), FF4_RET_OVERFLOW)
            << "0x1FF takes two bytes";
    }
}

}  // namespace
}  // namespace tarn

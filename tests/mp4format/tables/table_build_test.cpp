#include "mp4format/tables/table_build.h"

#include <gtest/gtest.h>

#include "mp4format/atoms/sample_entry_copy.h"
#include "support/atoms.h"
#include "support/writer_rig.h"

namespace tarn {
namespace {

// Tables that two descriptions are ready for.
struct Tables {
    explicit Tables(TestHost& at, uint32_t constant_size = 0, uint32_t field_bits = 0) : host(at) {
        EXPECT_EQ(mp4_init_tables(constant_size, field_bits, &build), FF4_RET_OK);
        Mp4SampleEntry entry{};
        entry.kind = kEntryAudio;
        for (int i = 0; i < 2; ++i)
            EXPECT_EQ(mp4_copy_sample_entry(host, entry, &build.entries), FF4_RET_OK);
    }
    ~Tables() { mp4_free_tables(host, &build); }

    Mp4Result Add(uint64_t offset, const std::vector<Mp4SampleRun>& runs,
                  uint32_t description = 1) {
        return mp4_add_chunk(
            host, &build, {offset, description, runs.data(), static_cast<uint32_t>(runs.size())});
    }
    using Writer = decltype(mp4_write_stts);
    Bytes Get(Writer* writer, const Mp4WriteOptions& options = kOptions) {
        return Written(host, writer, build, options);
    }

    TestHost& host;
    Mp4TableBuild build{};
};

TEST(TableBuild, ChunksBecomeRuns) {
    TestHost host;
    Tables t(host);
    ASSERT_EQ(t.Add(1000, {{1, 50, 10, 5, true}, {1, 60, 10, 0, false}}), FF4_RET_OK);
    ASSERT_EQ(t.Add(2000, {{1, 70, 10, 0, false}, {1, 80, 12, -3, true}}), FF4_RET_OK);
    ASSERT_EQ(t.Add(3000, {{2, 90, 12, 0, true}}, 2), FF4_RET_OK);
    ASSERT_EQ(t.Add(4000, {{1, 5, 12, 0, true}}, 2), FF4_RET_OK);

    EXPECT_EQ(t.Get(mp4_write_stts), Stts({{3, 10}, {4, 12}}));
    EXPECT_EQ(t.Get(mp4_write_ctts), Ctts({{1, 5}, {2, 0}, {1, 0xFFFFFFFD}, {3, 0}}, 1));
    EXPECT_EQ(t.Get(mp4_write_stsc), Stsc({{1, 2, 1}, {3, 2, 2}, {4, 1, 2}}));
    EXPECT_EQ(t.Get(mp4_write_sizes), Stsz({50, 60, 70, 80, 90, 90, 5}));
    EXPECT_EQ(t.Get(mp4_write_chunk_offsets), Stco({1000, 2000, 3000, 4000}));
    EXPECT_EQ(t.Get(mp4_write_stss), Stss({1, 4, 5, 6, 7}));
    EXPECT_EQ(t.build.duration, 78u);
    EXPECT_TRUE(t.build.has_compositions);
}

TEST(TableBuild, SyncTableComesWithTheFirstSampleThatNeedsIt) {
    const std::tuple<const char*, std::vector<Mp4SampleRun>, bool, std::vector<uint32_t>> cases[] =
        {
            {"all sync", {{1, 1, 1, 0, true}, {2, 1, 1, 0, true}}, false, {}},
            {"filled in from before", {{3, 1, 1, 0, true}, {1, 1, 1, 0, false}}, true, {1, 2, 3}},
            {"the first is not sync", {{1, 1, 1, 0, false}, {1, 1, 1, 0, true}}, true, {2}},
            {"none is sync", {{4, 1, 1, 0, false}}, true, {}},
            {"an empty run says nothing", {{0, 1, 1, 9, false}, {1, 1, 1, 0, true}}, false, {}},
        };
    for (const auto& [name, runs, table, numbers] : cases) {
        SCOPED_TRACE(name);
        TestHost host;
        Tables t(host);
        ASSERT_EQ(t.Add(0, runs), FF4_RET_OK);
        EXPECT_EQ(t.build.has_syncs, table);
        EXPECT_EQ(t.Get(mp4_write_stss), Stss(numbers));
        EXPECT_FALSE(t.build.has_compositions);
    }
}

TEST(TableBuild, SizesOfAllForms) {
    const std::vector<uint32_t> sizes = {1, 15, 0, 7, 9};
    TestHost host;
    for (const uint8_t bits : {4, 8, 16}) {
        Tables t(host, 0, bits);
        for (const uint32_t size : sizes)
            ASSERT_EQ(t.Add(0, {{1, size, 1, 0, true}}), FF4_RET_OK);
        EXPECT_EQ(t.Add(0, {{1, 1u << bits, 1, 0, true}}), FF4_RET_STATE);
        EXPECT_EQ(t.Get(mp4_write_sizes), Stz2(bits, sizes)) << "refused before anything was added";
    }
    Tables pcm(host, 4);
    ASSERT_EQ(pcm.Add(0, {{48000, 4, 1, 0, true}}), FF4_RET_OK);
    EXPECT_EQ(pcm.Add(0, {{1, 5, 1, 0, true}}), FF4_RET_ARGS);
    EXPECT_EQ(pcm.Get(mp4_write_sizes), StszConstant(4, 48000));
    Mp4TableBuild other{};
    EXPECT_EQ(mp4_init_tables(0, 12, &other), FF4_RET_ARGS);
    EXPECT_EQ(mp4_init_tables(4, 8, &other), FF4_RET_ARGS);
}

TEST(TableBuild, OffsetsWidenWhenOneNeedsIt) {
    const std::tuple<uint32_t, uint64_t, Mp4Result, Bytes> cases[] = {
        {kOffsetAuto, 0xFFFFFFFF, FF4_RET_OK, Stco({8, 0xFFFFFFFF})},
        {kOffsetAuto, 0x100000000, FF4_RET_OK, Co64({8, 0x100000000})},
        {kOffset32, 0xFFFFFFFF, FF4_RET_OK, Stco({8, 0xFFFFFFFF})},
        {kOffset32, 0x100000000, FF4_RET_STATE, {}},
        {kOffsetAlways64, 9, FF4_RET_OK, Co64({8, 9})},
        {3, 9, FF4_RET_ARGS, {}},
    };
    for (const auto& [policy, offset, result, bytes] : cases) {
        TestHost host;
        Tables t(host);
        ASSERT_EQ(t.Add(8, {{1, 1, 1, 0, true}}), FF4_RET_OK);
        ASSERT_EQ(t.Add(offset, {{1, 1, 1, 0, true}}), FF4_RET_OK);
        const Mp4WriteOptions options = {kSizeAuto, kVersionAuto, policy};
        EXPECT_EQ(DryRun(host, mp4_write_chunk_offsets, t.build, options), result);
        if (result == FF4_RET_OK) {
            EXPECT_EQ(t.Get(mp4_write_chunk_offsets, options), bytes);
        }
    }
}

TEST(TableBuild, ShiftsAllOrNothing) {
    TestHost host;
    Tables t(host);
    ASSERT_EQ(t.Add(100, {{1, 1, 1, 0, true}}, 1), FF4_RET_OK);
    ASSERT_EQ(t.Add(300, {{1, 1, 1, 0, true}}, 2), FF4_RET_OK);
    EXPECT_EQ(mp4_shift_chunks(&t.build, 0, 50), FF4_RET_OK);
    EXPECT_EQ(mp4_shift_chunks(&t.build, 2, -350), FF4_RET_OK);
    for (const int64_t amount : {int64_t{-151}, int64_t{-1}, INT64_MIN})
        EXPECT_EQ(mp4_shift_chunks(&t.build, 0, amount), FF4_RET_OVERFLOW);
    EXPECT_EQ(t.Get(mp4_write_chunk_offsets), Stco({150, 0})) << "nothing was moved";
    EXPECT_EQ(mp4_shift_chunks(&t.build, 1, INT64_MAX), FF4_RET_OK);
    EXPECT_EQ(mp4_shift_chunks(&t.build, 1, INT64_MAX), FF4_RET_OVERFLOW);
}

TEST(TableBuild, RefusesWhatIsNoChunk) {
    TestHost host;
    Tables t(host);
    const Mp4SampleRun one{1, 1, 1, 0, true};
    EXPECT_EQ(t.Add(0, {}), FF4_RET_ARGS);
    EXPECT_EQ(t.Add(0, {{0, 1, 1, 0, true}}), FF4_RET_ARGS);
    EXPECT_EQ(t.Add(0, {one}, 0), FF4_RET_ARGS);
    EXPECT_EQ(t.Add(0, {one}, 3), FF4_RET_ARGS);
    ASSERT_EQ(t.Add(0, {one}), FF4_RET_OK);
    EXPECT_EQ(t.Add(0, {{UINT32_MAX, 1, 1, 0, true}}), FF4_RET_OVERFLOW);

    // What was added in part is never written.
    host.FailAt(HostCall::kAlloc, 1);
    EXPECT_EQ(t.Add(0, {{2000, 2, 1, 0, true}}), FF4_RET_NOMEM);
    EXPECT_EQ(t.Add(0, {one}), FF4_RET_STATE);
    EXPECT_EQ(DryRun(host, mp4_write_stbl, &t.build), FF4_RET_STATE);
}

// Two million samples: a block for each thousand of each table, no more.
TEST(TableBuild, MillionsOfSamplesGrowByBlocks) {
    constexpr uint32_t kChunks = 1000, kInChunk = 2000;
    TestHost host;
    Tables t(host);
    host.ResetCounts();
    std::vector<Mp4SampleRun> chunk(kInChunk / 2, {2, 700, 1001, 0, true});
    chunk[0].size = 701;  // of one size alone there would be no list
    for (uint32_t i = 0; i < kChunks; ++i)
        ASSERT_EQ(t.Add(uint64_t{i} << 24, chunk), FF4_RET_OK);
    EXPECT_EQ(host.Calls(HostCall::kAlloc), 2000u + 4) << "sizes, and a block of each other table";
}

}  // namespace
}  // namespace tarn

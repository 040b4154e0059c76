// What the engine stands on: memory, files, times.
#include <gtest/gtest.h>

#include "base/xp_file.h"
#include "mp4format/atoms/profile.h"
#include "mp4format/atoms/sample_entry_copy.h"
#include "mp4format/fragments/fragments.h"
#include "mp4format/host.h"
#include "mp4format/io.h"
#include "mp4format/movie/track_ids.h"
#include "mp4format/movie/write_movie.h"
#include "mp4format/tables/sample_tables.h"
#include "mp4format/time_math.h"
#include "support/pointer_check.h"
#include "support/temp_dir.h"
#include "support/test_host.h"

namespace tarn {
namespace {

TEST(HostMemory, BlocksComeZeroedWithTheirHeader) {
    TestHost host;
    auto* block = static_cast<uint8_t*>(mp4_alloc(host, 5, kMemoryWindows));
    ASSERT_TRUE(block);
    EXPECT_EQ(Bytes(block, block + 5), Bytes(5, 0));
    EXPECT_EQ(Bytes(block - 8, block), (Bytes{'F', 'F', '4', 2, 0, 0, 0, 13}));
    EXPECT_EQ(host->usedClass2, 13u);
    mp4_free(host, block);
    EXPECT_EQ(host->usedClass2, 0u);
}

TEST(HostMemory, RefusesWhatDoesNotFit) {
    TestHost host;
    EXPECT_FALSE(mp4_alloc(host, 1, 0)) << "no such class";
    EXPECT_FALSE(mp4_alloc(host, 1, 3)) << "no such class";
    EXPECT_FALSE(mp4_alloc(host, UINT32_MAX - 7, kMemoryRecords)) << "past 32 bits with its header";
    EXPECT_FALSE(mp4_alloc(host, UINT64_MAX, kMemoryRecords));
    EXPECT_FALSE(mp4_make<uint64_t>(host, UINT64_MAX / 8 + 2));
    EXPECT_EQ(host.Calls(HostCall::kAlloc), 0u);
}

TEST(HostMemory, LimitsByClass) {
    TestHost host;
    ASSERT_EQ(mp4_set_memory_limit(host, true, 0, 50, 0), FF4_RET_OK);
    EXPECT_EQ(host->enabled, 0u);
    EXPECT_EQ(host->limitClass2, 131072u);
    ASSERT_EQ(mp4_set_memory_limit(host, false, 0, 50, 0), FF4_RET_OK);
    EXPECT_EQ(host->limitClass2, 0u);
    EXPECT_EQ(mp4_set_memory_limit(host, true, 1000, 101, 0), FF4_RET_ARGS);
    EXPECT_EQ(mp4_set_memory_limit(host, true, 1000, 30, 701), FF4_RET_ARGS);

    ASSERT_EQ(mp4_set_memory_limit(host, true, UINT64_MAX, 50, 0), FF4_RET_OK);
    EXPECT_EQ(host->limitClass2, UINT64_MAX / 2);
    ASSERT_EQ(mp4_set_memory_limit(host, true, 1000, 30, 700), FF4_RET_OK);
    auto all = mp4_make<uint8_t>(host, 292, kMemoryWindows);
    EXPECT_TRUE(all) << "300 of 300 bytes with the header";
    EXPECT_FALSE(mp4_make<uint8_t>(host, 0, kMemoryWindows));
    EXPECT_TRUE(mp4_make<uint8_t>(host, 692));
    all.reset();
    EXPECT_TRUE(mp4_make<uint8_t>(host, 292, kMemoryWindows)) << "given back";
}

TEST(HostCallbacks, BothTablesReadSeekAndMeasureAlike) {
    TempDir dir;
    dir.Write("file", "0123456789");
    XpFile file;
    ASSERT_EQ(file.Open(dir.Path("file"), XpFile::Mode::kReadWrite), 0);
    int descriptor = file.Descriptor();
    Mp4HostCallbacks tables[2];
    mp4_init_fd_callbacks(&tables[0]);
    mp4_init_file_callbacks(&tables[1]);
    ASSERT_EQ(tables[0].userData, nullptr);
    void* const users[] = {&descriptor, &file};
    for (int i = 0; i < 2; ++i) {
        SCOPED_TRACE(i == 0 ? "descriptor" : "file object");
        const Mp4HostCallbacks& c = tables[i];
        uint64_t size = 0, done = 0;
        char text[8] = {};
        EXPECT_EQ(c.seek(users[i], 4, kSeekStart), FF4_RET_OK);
        EXPECT_EQ(c.size(users[i], &size), FF4_RET_OK);
        EXPECT_EQ(size, 10u);
        EXPECT_EQ(c.read(users[i], text, 3, &done), FF4_RET_OK) << "measuring does not move";
        EXPECT_STREQ(text, "456");
        EXPECT_EQ(c.seek(users[i], -2, kSeekEnd), FF4_RET_OK);
        EXPECT_EQ(c.read(users[i], text, 8, &done), FF4_RET_OK);
        EXPECT_EQ(done, 2u) << "short at the end";
        EXPECT_EQ(c.seek(users[i], 0, 3), FF4_RET_ARGS);
        EXPECT_EQ(c.seek(users[i], -1, kSeekStart), FF4_RET_FILE);
        EXPECT_EQ(c.read(users[i], nullptr, 1, &done), FF4_RET_ARGS);
        EXPECT_FALSE(c.memcpy(users[i], text, 2, "abc", 3)) << "more than there is room for";
        EXPECT_FALSE(c.strncpy(users[i], text, 3, "abc", 3)) << "no room for the closing zero";
        EXPECT_STREQ(c.strncpy(users[i], text, 4, "abcdef", 3), "abc");
    }
}

TEST(Host, PointersAreTestedFirst) {
    ExpectAllPointersTested(
        mp4_read_atom_header, mp4_read_atom_header_mem, mp4_read_small_atom_header,
        mp4_read_small_atom_header_mem, mp4_read_descriptor_header_mem, mp4_read_table_header,
        mp4_read_avc_config, mp4_read_data_refs, mp4_read_es_descriptor, mp4_read_edits,
        mp4_add_edit, mp4_read_hdlr, mp4_read_meta_items, mp4_get_meta_payload, mp4_add_meta_item,
        mp4_read_mvex, mp4_count_profiles, mp4_read_file_profile, mp4_read_video_profile,
        mp4_read_audio_profile, mp4_read_mfra, mp4_find_mfra, mp4_load_tfra,
        mp4_read_sample_entries, mp4_copy_sample_entry, mp4_add_track_reference,
        mp4_read_extended_type, mp4_read_user_atoms, mp4_copy_block, mp4_next_fragment_run,
        mp4_open_fragments, mp4_begin_fragment_track, mp4_set_fragment_share,
        mp4_get_fragment_sample, mp4_get_fragment_sample_at_time, mp4_count_fragment_samples,
        mp4_get_fragment_end, mp4_set_memory_limit, mp4_seek, mp4_read, mp4_read_block,
        mp4_copy_text, mp4_file_size, mp4_scan_file, mp4_set_movie_fields, mp4_add_track_build,
        mp4_track_flags, mp4_track_duration, mp4_longest_track, mp4_pick_track_id, mp4_write_moov,
        mp4_write_trak, mp4_write_mdia, mp4_lookup_sample_time, mp4_lookup_time_sample,
        mp4_lookup_media_duration, mp4_lookup_composition_offset, mp4_lookup_chunk_run,
        mp4_lookup_chunk, mp4_lookup_chunk_offset, mp4_lookup_sample_size, mp4_lookup_size_sum,
        mp4_lookup_is_sync, mp4_lookup_next_sync, mp4_init_tables, mp4_add_chunk, mp4_shift_chunks,
        mp4_write_stbl, mp4_share_window_pool, mp4_add_track_cache, mp4_remove_track_cache,
        mp4_load_track_cache, mp4_read_track_tables, mp4_mul_div, mp4_scale_toward_zero, mp4_add,
        mp4_mul, mp4_date_to_seconds, mp4_seconds_to_date, mp4_pick_version, mp4_atom_total_size);
}

TEST(HostIo, ShortIsFailedAndClaimsAreMeasured) {
    TestHost host(Bytes(10, 1));
    uint8_t buffer[16];
    EXPECT_EQ(mp4_read_at(host, host.File(), 4, buffer, 6), FF4_RET_OK);
    EXPECT_EQ(mp4_read_at(host, host.File(), 4, buffer, 7), FF4_RET_FILE);
    EXPECT_EQ(mp4_read_at(host, host.File(), UINT64_MAX, buffer, 1), FF4_RET_OVERFLOW);
    EXPECT_EQ(mp4_seek(host, host.File(), INT64_MAX), FF4_RET_OK);
    EXPECT_EQ(mp4_seek(host, host.File(), uint64_t{INT64_MAX} + 1), FF4_RET_OVERFLOW);
    HostPtr<uint8_t> block(nullptr, {host});
    EXPECT_EQ(mp4_read_block(host, host.File(), 4, 0, &block), FF4_RET_OK);
    EXPECT_FALSE(block);
    EXPECT_EQ(mp4_read_block(host, host.File(), 4, uint64_t{1} << 31, &block), FF4_RET_FILE);
    EXPECT_EQ(host.LargestBlock(), 0u) << "nothing allocated for bytes that are not there";
}

TEST(MulDiv, GoesThrough128Bits) {
    constexpr uint64_t kMost = UINT64_MAX;
    const std::tuple<const char*, uint64_t, uint64_t, uint64_t, Mp4Result, uint64_t> cases[] = {
        {"rounds down", 7, 3, 2, FF4_RET_OK, 10},
        {"product past 64 bits", kMost, 1000, 1000, FF4_RET_OK, kMost},
        {"largest factors", kMost, kMost, kMost, FF4_RET_OK, kMost},
        {"quotient past 64 bits", kMost, 2, 1, FF4_RET_OVERFLOW, 77},
        {"by zero", 1, 1, 0, FF4_RET_ARGS, 77},
    };
    for (const auto& [name, value, mul, div, result, due_out] : cases) {
        uint64_t out = 77;
        EXPECT_EQ(mp4_mul_div(value, mul, div, &out), result) << name;
        EXPECT_EQ(out, due_out) << name;
        EXPECT_EQ(mp4_mul_div_or(value, mul, div, 77), due_out) << name;
    }
}

TEST(Scaling, RoundsAsTheNameSays) {
    constexpr int64_t kWide = -(int64_t{1} << 59);
    const std::tuple<const char*, int64_t, uint32_t, uint32_t, int64_t, int64_t, int64_t> cases[] =
        {
            {"exact", -6, 3, 2, -9, -9, -9},
            {"below the half", 7, 1, 3, 2, 2, 2},
            {"the half", 5, 1, 2, 2, 3, 2},
            {"below zero", -7, 1, 3, -3, -2, -2},
            {"half below zero", -5, 1, 2, -3, -3, -2},
            {"product past 64 bits", kWide, 90000, 90000, kWide, kWide, kWide},
            {"farther than counts", INT64_MAX, 1, 1, kFarthestTime, kFarthestTime, INT64_MAX},
            {"past 64 bits", -INT64_MAX, UINT32_MAX, 1, -kFarthestTime, -kFarthestTime, 77},
            {"by zero", 9, 1, 0, 0, 0, 77},
        };
    for (const auto& [name, value, mul, div, floor, nearest, toward_zero] : cases) {
        SCOPED_TRACE(name);
        EXPECT_EQ(mp4_scale_floor(value, mul, div), floor);
        EXPECT_EQ(mp4_scale_nearest(value, mul, div), nearest);
        int64_t out = 77;
        const Mp4Result result = mp4_scale_toward_zero(value, mul, div, &out);
        EXPECT_EQ(out, toward_zero);
        EXPECT_EQ(result == FF4_RET_OK, toward_zero != 77);
    }
}

TEST(Dates, BothWays) {
    // Seconds by an independent calendar: days from 1904 to 1970 are 24107.
    const std::pair<Mp4Date, uint64_t> cases[] = {
        {{1904, 1, 1, 0, 0, 0}, 0},
        {{1970, 1, 1, 0, 0, 0}, 2082844800},
        {{2000, 2, 29, 12, 34, 56}, 3034672496},   // leap day of a century
        {{2004, 12, 31, 23, 59, 59}, 3187382399},  // end of a leap year
        {{2040, 2, 6, 6, 28, 16}, 4294967296},     // past 32 bits
        {{2304, 1, 1, 0, 0, 0}, 12622780800},      // one cycle on
    };
    TestHost host;
    for (const auto& [date, seconds] : cases) {
        SCOPED_TRACE(seconds);
        uint64_t to = 1, again = 1;
        Mp4Date from{};
        EXPECT_EQ(mp4_date_to_seconds(host, date, &to), FF4_RET_OK);
        EXPECT_EQ(to, seconds);
        EXPECT_EQ(mp4_seconds_to_date(host, seconds, &from), FF4_RET_OK);
        EXPECT_EQ(mp4_date_to_seconds(host, from, &again), FF4_RET_OK);
        EXPECT_EQ(again, seconds);
        EXPECT_EQ(std::pair(from.year, from.month), std::pair(date.year, date.month));
    }
}

TEST(Dates, RefusesWhatIsInNoCalendar) {
    TestHost host;
    uint64_t seconds = 0;
    const Mp4Date bad[] = {
        {1903, 12, 31, 0, 0, 0}, {2100, 2, 29, 0, 0, 0}, {2001, 2, 29, 0, 0, 0},
        {2001, 13, 1, 0, 0, 0},  {2001, 0, 1, 0, 0, 0},  {2001, 4, 31, 0, 0, 0},
        {2001, 4, 0, 0, 0, 0},   {2001, 4, 1, 24, 0, 0}, {2001, 4, 1, 0, 60, 0},
        {2001, 4, 1, 0, 0, 61},
    };
    for (const Mp4Date& date : bad)
        EXPECT_EQ(mp4_date_to_seconds(host, date, &seconds), FF4_RET_ARGS)
            << date.year << '-' << date.month << '-' << date.day;
    const Mp4Date leap_second = {2016, 12, 31, 23, 59, 60};
    EXPECT_EQ(mp4_date_to_seconds(host, leap_second, &seconds), FF4_RET_OK);

    Mp4Date date{};
    const Mp4Date last = {65535, 12, 31, 23, 59, 59};
    ASSERT_EQ(mp4_date_to_seconds(host, last, &seconds), FF4_RET_OK);
    EXPECT_EQ(mp4_seconds_to_date(host, seconds, &date), FF4_RET_OK);
    EXPECT_EQ(date.year, 65535);
    EXPECT_EQ(mp4_seconds_to_date(host, seconds + 1, &date), FF4_RET_OVERFLOW);
    EXPECT_EQ(mp4_seconds_to_date(host, UINT64_MAX, &date), FF4_RET_OVERFLOW);
}

}  // namespace
}  // namespace tarn

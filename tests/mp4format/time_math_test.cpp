#include "mp4format/time_math.h"

#include <gtest/gtest.h>

#include "support/test_host.h"

namespace tarn {
namespace {

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

#include "base/xp_datetime.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>

namespace tarn {
namespace {

// Central Europe: one hour ahead, two from the last Sunday of March to that of October.
void UseZone() {
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
}

TEST(XpDateTime, ConvertsBothWays) {
    UseZone();
    const struct {
        time_t seconds;
        XpDateTime utc, local;
    } cases[] = {
        {0, {1970, 1, 1, 0, 0, 0}, {1970, 1, 1, 1, 0, 0}},
        {-1, {1969, 12, 31, 23, 59, 59}, {1970, 1, 1, 0, 59, 59}},
        {951782400, {2000, 2, 29, 0, 0, 0}, {2000, 2, 29, 1, 0, 0}},
        {1780251300, {2026, 5, 31, 18, 15, 0}, {2026, 5, 31, 20, 15, 0}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.seconds);
        XpDateTime utc, local;
        ASSERT_EQ(XpDateTime::FromTimeUtc(c.seconds, &utc), 0);
        ASSERT_EQ(XpDateTime::FromTimeLocal(c.seconds, &local), 0);
        EXPECT_EQ(utc, c.utc) << utc.Text();
        EXPECT_EQ(local, c.local) << local.Text();
        time_t back = 1;
        EXPECT_EQ(c.utc.ToTimeUtc(&back), 0);
        EXPECT_EQ(back, c.seconds);
        EXPECT_EQ(c.local.ToTimeLocal(&back), 0);
        EXPECT_EQ(back, c.seconds);
    }
    EXPECT_EQ((XpDateTime{2026, 5, 3, 4, 5, 6}.Text()), "2026-05-03 04:05:06");
}

TEST(XpDateTime, RefusesWhatDoesNotExist) {
    UseZone();
    time_t seconds = 0;
    const XpDateTime none[] = {
        {2023, 2, 29, 0, 0, 0}, {2023, 13, 1, 0, 0, 0},     {2023, 4, 31, 0, 0, 0},
        {2023, 1, 0, 0, 0, 0},  {2023, 1, 1, 24, 0, 0},     {2023, 1, 1, 0, 0, 61},
        {2023, 1, 1, 0, -1, 0}, {INT32_MIN, 1, 1, 0, 0, 0},
    };
    for (const auto& date : none)
        EXPECT_EQ(date.ToTimeUtc(&seconds), EINVAL) << date.Text();
    EXPECT_EQ((XpDateTime{2026, 3, 29, 2, 30, 0}.ToTimeLocal(&seconds)), EINVAL) << "skipped hour";
    EXPECT_EQ((XpDateTime{2026, 3, 29, 3, 0, 0}.ToTimeLocal(&seconds)), 0);
    EXPECT_EQ(seconds, 1774746000);
    EXPECT_EQ((XpDateTime{2016, 12, 31, 23, 59, 60}.ToTimeUtc(&seconds)), 0) << "leap second";
    EXPECT_EQ(seconds, 1483228800);

    XpDateTime date;
    // The last second of a calendar that counts years from 1900 in 32 bits.
    EXPECT_EQ(XpDateTime::FromTimeUtc(67768036191676799, &date), EOVERFLOW);
}

}  // namespace
}  // namespace tarn

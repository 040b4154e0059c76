#include "cli/times.h"

#include <gtest/gtest.h>

namespace tarn {
namespace {

TEST(Times, AreMillisecondsOrAClock) {
    const std::pair<const char*, uint32_t> cases[] = {
        {"0", 0},           {"12500", 12500},     {"4294967295", 4294967295},
        {"00:12.5", 12500}, {"0:01", 1000},       {"59:59", 3599000},
        {"90:00", 5400000}, {"1:59:00", 7140000}, {"1:02:03.004", 3723004},
    };
    uint32_t ms = 0;
    for (const auto& [text, expected] : cases) {
        EXPECT_TRUE(ParseTime(text, &ms)) << text;
        EXPECT_EQ(ms, expected) << text;
    }
    for (const char* bad :
         {"4294967296", "1:60", "1:60:00", "1:00:00:00", "99999999999:00", "4294967295:59:59", "",
          ":", "1:", "1:00.", "1:00.1234", "12.5", "-1", "1: 5", "5s"})
        EXPECT_FALSE(ParseTime(bad, &ms)) << bad;
}

}  // namespace
}  // namespace tarn

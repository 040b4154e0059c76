#include "app/format_text.h"

#include <gtest/gtest.h>

namespace tarn {
namespace {

TEST(FormatText, PutsArgumentsIn) {
    const struct {
        const char *format, *text;
    } cases[] = {
        {"%s and %d", "a and b%2"},
        {"%2 before %1", "b%2 before a"},
        {"%2$s, %1$d", "b%2, a"},
        {"%s %s %s!", "a b%2 !"},
        {"%9%3$s.", "."},
        {"%1 %s", "a a"},
        {"%10", "a0"},
        {"100%% of %1", "100% of a"},
        {"%%1", "%1"},
        {"50 % %x %0 %", "50 % %x %0 %"},
        {"%1$", "a$"},
        {"", ""},
    };
    for (const auto& c : cases)
        EXPECT_EQ(FormatText(c.format, {"a", "b%2"}), c.text) << c.format;
    EXPECT_EQ(FormatText("“%1”", {"100%s %1 %%.mp4"}), "“100%s %1 %%.mp4”");
    EXPECT_EQ(FormatText("%s%n%1", {}), "%n");
}

}  // namespace
}  // namespace tarn

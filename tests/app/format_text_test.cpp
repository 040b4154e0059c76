#include "app/format_text.h"

#include <gtest/gtest.h>

namespace tarn {
namespace {

TEST(FormatText, PutsArgumentsIn) {
    const struct {
        const char *format, *text;
    } cases[] = {
        {"%s and %d", "a and %s%2"},
        {"%2 before %1", "%s%2 before a"},
        {"%2$s, %1$d", "%s%2, a"},
        {"%1 %s %s %s!", "a a %s%2 !"},
        {"%9%3$s.", "."},
        {"%10", "a0"},
        {"100%% of %%1", "100% of %1"},
        {"50 % %n %0 %", "50 % %n %0 %"},
        {"%1$", "a$"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(FormatText(c.format, {"a", "%s%2"}), c.text) << c.format;
}

}  // namespace
}  // namespace tarn

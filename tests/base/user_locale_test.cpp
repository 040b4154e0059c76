#include "base/user_locale.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace tarn {
namespace {

TEST(UserLocale, FollowsTheEnvironmentsOrder) {
    const char* const names[] = {"LANG", "LC_MESSAGES", "LC_ALL"};
    for (const char* name : names)
        unsetenv(name);
    EXPECT_EQ(UserLocale(), "");
    for (const char* name : names) {
        setenv(name, name, 1);
        EXPECT_EQ(UserLocale(), name);
    }
    setenv("LC_ALL", "", 1);
    EXPECT_EQ(UserLocale(), "LC_MESSAGES") << "empty says nothing";
    for (const char* name : names)
        unsetenv(name);
}

}  // namespace
}  // namespace tarn

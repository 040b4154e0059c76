#include "app/user_locale.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "app/xml_io.h"

namespace tarn {
namespace {

TEST(UserLocale, NamesALanguage) {
    const struct {
        const char *locale, *language;
    } cases[] = {
        {"ja_JP.eucJP", "Japanese"},
        {"DE@euro", "German"},
        {"pt_PT", "PortugueseBrazilian"},
        {"ko", "Korean"},
        {"zh", "Chinese-PRChina"},
        {"zh_HK.UTF-8", "Chinese-Taiwan"},
        {"zh_Hans_HK", "Chinese-PRChina"},
        {"zh_Hant", "Chinese-Taiwan"},
        {"zh_CN.GB18030", "Chinese-PRChina"},
        {"fro_FR", ""},
        {"C.UTF-8", ""},
        {"", ""},
    };
    for (const auto& c : cases)
        EXPECT_EQ(LanguageOfLocale(c.locale), c.language) << c.locale;
}

TEST(UserLocale, FollowsTheEnvironmentsOrder) {
    const char* const names[] = {"LANG", "LC_MESSAGES", "LC_ALL"};
    for (const char* name : names)
        unsetenv(name);
    for (const char* name : names) {
        setenv(name, "zh_CN.UTF-8", 1);
        EXPECT_TRUE(XMLIO::IsChineseLocale()) << name;
        setenv(name, "zh_TW.UTF-8", 1);
        EXPECT_FALSE(XMLIO::IsChineseLocale()) << name;
    }
    setenv("LC_ALL", "", 1);
    setenv("LC_MESSAGES", "C", 1);
    EXPECT_EQ(UserLocale(), "C") << "empty says nothing";
    for (const char* name : names)
        unsetenv(name);
}

}  // namespace
}  // namespace tarn

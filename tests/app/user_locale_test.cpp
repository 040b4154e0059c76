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
        {"en_GB.UTF-8", "EnglishUS"},
        {"ja_JP.eucJP", "Japanese"},
        {"fr_CA", "French"},
        {"de_AT@euro", "German"},
        {"es_MX.UTF-8", "SpanishModern"},
        {"ko", "Korean"},
        {"pt_PT.UTF-8", "PortugueseBrazilian"},
        {"zh_CN.GB18030", "Chinese-PRChina"},
        {"zh_SG.UTF-8", "Chinese-PRChina"},
        {"zh_TW.UTF-8", "Chinese-Taiwan"},
        {"zh_HK", "Chinese-Taiwan"},
        {"zh_Hant", "Chinese-Taiwan"},
        {"zh_Hans_HK", "Chinese-PRChina"},
        {"zh", "Chinese-PRChina"},
        {"C", ""},
        {"C.UTF-8", ""},
        {"POSIX", ""},
        {"fro_FR", ""},
        {"", ""},
    };
    for (const auto& c : cases)
        EXPECT_EQ(LanguageOfLocale(c.locale), c.language) << c.locale;
}

TEST(UserLocale, FollowsTheEnvironmentsOrder) {
    const char* const names[] = {"LC_ALL", "LC_MESSAGES", "LANG"};
    for (const char* name : names)
        unsetenv(name);
    EXPECT_EQ(UserLocale(), "");
    setenv("LANG", "zh_CN.UTF-8", 1);
    EXPECT_EQ(UserLocale(), "zh_CN.UTF-8");
    EXPECT_TRUE(XMLIO::IsChineseLocale());
    setenv("LC_MESSAGES", "zh_TW.UTF-8", 1);
    EXPECT_EQ(UserLocale(), "zh_TW.UTF-8");
    EXPECT_FALSE(XMLIO::IsChineseLocale());
    setenv("LC_ALL", "C", 1);
    EXPECT_EQ(UserLocale(), "C");
    setenv("LC_ALL", "", 1);
    EXPECT_EQ(UserLocale(), "zh_TW.UTF-8") << "empty says nothing";
    for (const char* name : names)
        unsetenv(name);
}

}  // namespace
}  // namespace tarn

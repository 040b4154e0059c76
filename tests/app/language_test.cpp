#include "app/language.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "app/xml_io.h"

namespace tarn {
namespace {

TEST(Language, OfALocale) {
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
        {"ZH_HANT", "Chinese-Taiwan"},
        {"zh_CN.GB18030", "Chinese-PRChina"},
        {"fro_FR", ""},
        {"C.UTF-8", ""},
        {"", ""},
    };
    for (const auto& c : cases)
        EXPECT_EQ(LanguageOfLocale(c.locale), c.language) << c.locale;
}

TEST(Language, ChineseIsTheUsersNotTheTables) {
    const struct {
        const char *name, *locale;
        bool chinese;
    } cases[] = {{"LANG", "zh_CN.UTF-8", true},
                 {"LC_MESSAGES", "zh_TW.UTF-8", false},
                 {"LC_ALL", "zh_CN.UTF-8", true},
                 {"LC_ALL", "", false}};  // empty says nothing
    for (const auto& c : cases)
        unsetenv(c.name);
    for (const auto& c : cases) {
        setenv(c.name, c.locale, 1);
        EXPECT_EQ(XMLIO::IsChineseLocale(), c.chinese) << c.name << c.locale;
    }
}

}  // namespace
}  // namespace tarn

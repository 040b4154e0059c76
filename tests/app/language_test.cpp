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
    setenv("LC_ALL", "zh_CN.UTF-8", 1);
    EXPECT_TRUE(XMLIO::IsChineseLocale());
    setenv("LC_ALL", "zh_TW.UTF-8", 1);
    EXPECT_FALSE(XMLIO::IsChineseLocale());
    unsetenv("LC_ALL");
}

}  // namespace
}  // namespace tarn

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "app/format_text.h"
#include "app/language.h"
#include "app/xml_io.h"
#include "support/temp_dir.h"

namespace tarn {
namespace {

using Row = std::pair<const char*, const char*>;

TEST(FormatText, PutsArgumentsIn) {
    const Row cases[] = {
        {"%s and %d", "a and %s%2"},
        {"%2 before %1", "%s%2 before a"},
        {"%2$s, %1$d", "%s%2, a"},
        {"%1 %s %s %s!", "a a %s%2 !"},
        {"%9%3$s.", "."},
        {"100%% of %%1", "100% of %1"},
        {"%10%1$", "a0a$"},
        {"50 % %n %0 %", "50 % %n %0 %"},
    };
    for (const auto& [format, text] : cases)
        EXPECT_EQ(FormatText(format, {"a", "%s%2"}), text) << format;
}

TEST(Language, OfALocale) {
    const Row cases[] = {
        {"ja_JP.eucJP", "Japanese"},
        {"DE@euro", "German"},
        {"pt_PT", "PortugueseBrazilian"},
        {"zh", "Chinese-PRChina"},
        {"zh_HK.UTF-8", "Chinese-Taiwan"},
        {"zh_Hans_HK", "Chinese-PRChina"},
        {"ZH_HANT", "Chinese-Taiwan"},
        {"fro_FR", ""},
        {"C.UTF-8", ""},
        {"", ""},
    };
    for (const auto& [locale, language] : cases)
        EXPECT_EQ(LanguageOfLocale(locale), language) << locale;
}

TEST(Language, ChineseIsTheUsersNotTheTables) {
    for (const char* name : {"LANG", "LC_MESSAGES", "LC_ALL"})
        unsetenv(name);
    const Row cases[] = {{"LANG", "zh_CN.UTF-8"},
                         {"LC_MESSAGES", "zh_TW.UTF-8"},
                         {"LC_ALL", "zh_CN.UTF-8"},
                         {"LC_ALL", ""}};  // empty says nothing
    bool chinese = false;
    for (const auto& [name, locale] : cases) {
        setenv(name, locale, 1);
        chinese = !chinese;
        EXPECT_EQ(XMLIO::IsChineseLocale(), chinese) << name << locale;
    }
}

std::string table(const std::string& language, const std::string& more = "") {
    return "<plist><dict><key>Language</key><string>" + language + "</string>" + more +
           "</dict></plist>";
}

TEST(XMLIO, AnswersFromItsFiles) {
    const TempDir dir;
    EXPECT_EQ(XMLIO(dir.Path("")).GetString("Language"), "") << "no file";
    dir.Write("Strings.xml",
              table("German",
                    "<key>A</key><string>a&amp;b</string><key>A</key><string>second</string>"
                    "<key>B</key><string><![CDATA[]]></string><key>B</key><string>b</string>"));
    dir.Write("Version.txt", "1.2.3\r\nbuilt today\n");
    const XMLIO strings(dir.Path(""));
    EXPECT_EQ(strings.GetLocaleName(), "de-DE");
    EXPECT_EQ(strings.GetString("A") + strings.GetString("a"), "a&b");
    EXPECT_EQ(strings.GetString("B"), "b") << "an empty text is none";
    EXPECT_EQ(strings.GetVersionText(), "1.2.3");

    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(dir.Path(""));
    EXPECT_EQ(XMLIO("").GetLanguage() + XMLIO("").GetVersionText(), "") << "the current folder";
    std::filesystem::current_path(before);
}

TEST(XMLIO, PrefersTheUsersLanguage) {
    const TempDir dir;
    dir.Write("Strings.xml", table("EnglishUS"));
    std::filesystem::create_directories(dir.Path("strings/French"));
    dir.Write("strings/French/Strings.xml", table("French"));
    EXPECT_EQ(XMLIO(dir.Path(""), "French").GetLanguage(), "French");
    EXPECT_EQ(XMLIO(dir.Path(""), "Korean").GetLanguage(), "EnglishUS") << "no such table";
    dir.Write("strings/French/Strings.xml", "<plist><dict>");
    EXPECT_EQ(XMLIO(dir.Path(""), "French").GetLanguage(), "EnglishUS") << "a broken table";
    EXPECT_EQ(XMLIO(XMLIO::GetResourceFolder()).GetString("IDS_APP_TITLE"), "Tarn studio");
}

TEST(XMLIO, FontFollowsLanguageAndScreen) {
    const TempDir dir;
    dir.Write("Strings.xml", table("japanese"));
    const XMLIO strings(dir.Path(""));
    EXPECT_EQ(strings.GetLocaleName(), "") << "locale names go by the letter, fonts don't";
    EXPECT_EQ(strings.MakeFont(96).face, "Meiryo");
    EXPECT_EQ(XMLIO(dir.Path("none")).MakeFont(96).face, "Segoe UI");
    const int cases[][3] = {{96, 0, -12}, {100, 0, -12}, {120, -2, -17}, {0, 5, -12}};
    for (const auto& [dpi, delta, height] : cases)
        EXPECT_EQ(strings.MakeFont(dpi, delta).height, height) << dpi;
}

}  // namespace
}  // namespace tarn

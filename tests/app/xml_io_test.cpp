#include "app/xml_io.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "support/temp_dir.h"

namespace tarn {
namespace {

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
    EXPECT_EQ(strings.GetString("A"), "a&b");
    EXPECT_EQ(strings.GetString("B"), "b") << "an empty text is none";
    EXPECT_EQ(strings.GetString("a"), "");
    EXPECT_EQ(strings.GetVersionText(), "1.2.3");

    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(dir.Path(""));
    EXPECT_EQ(XMLIO("").GetLanguage() + XMLIO("").GetVersionText(), "") << "the current folder";
    std::filesystem::current_path(before);

    std::filesystem::create_directories(dir.Path("a*b"));
    dir.Write("a*b/Strings.xml", table("German"));
    EXPECT_EQ(XMLIO(dir.Path("a*b")).GetLanguage(), "");
}

TEST(XMLIO, FindsItsFilesFromTheProgram) {
    EXPECT_EQ(XMLIO(XMLIO::GetResourceFolder()).GetString("IDS_APP_TITLE"), "Tarn studio");
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

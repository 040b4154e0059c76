#include "app/reference_data.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vector>

#include "app/plist_file.h"
#include "support/temp_dir.h"

namespace tarn {
namespace {

using Fields = std::vector<int32_t>;

Fields fields_of(const ReferenceData& data) {
    return {data.m_rememberAccount, data.m_notDisplayMsg, data.m_useHardwareAcceleration,
            data.m_autoLogin};
}

std::string plist(const std::string& dictionary) {
    return "<plist version=\"1.0\"><dict>" + dictionary + "</dict></plist>";
}

std::string pair(const std::string& key, const std::string& text) {
    return "<key>" + key + "</key><string>" + text + "</string>";
}

TEST(ReferenceData, WritesItsFormatAndReadsItBack) {
    const TempDir dir;
    ReferenceData data(dir.Path("a/b"));
    EXPECT_EQ(fields_of(data), (Fields{0, 1, 0, 0}));
    data.m_notDisplayMsg = 0;
    data.m_useHardwareAcceleration = -7;
    data.m_autoLogin = INT32_MIN;
    ASSERT_TRUE(data.Save());
    EXPECT_EQ(dir.Read("a/b/Settings.xml"),
              "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
              "<plist version=\"1.0\">\n"
              "\t<dict>\n"
              "\t<key>Remember Account</key>\n"
              "\t<string>0</string>\n"
              "\t<key>Not Display Msg</key>\n"
              "\t<string>0</string>\n"
              "\t<key>Use Hardware Acceleration</key>\n"
              "\t<string>-7</string>\n"
              "\t<key>Auto Login</key>\n"
              "\t<string>-2147483648</string>\n"
              "\t</dict>\n"
              "</plist>");
    EXPECT_EQ(fields_of(ReferenceData(dir.Path("a/b"))), (Fields{0, 0, -7, INT32_MIN}));
}

TEST(ReferenceData, WalksTheNodesOfItsFile) {
    const Fields defaults = {0, 1, 0, 0};
    const std::string remember = pair("Remember Account", "5"), login = pair("Auto Login", "6");
    const struct {
        const char* name;
        std::string bytes;
        Fields fields;
    } cases[] = {
        {"another order", plist(login + pair("Not Display Msg", "0") + remember), {5, 0, 0, 6}},
        {"unknown keys", plist(pair("Colour", "3") + remember), {5, 1, 0, 0}},
        {"keys differ in case", plist(pair("remember account", "5")), defaults},
        {"not a number", plist(pair("Not Display Msg", "abc")), {0, 0, 0, 0}},
        {"digits and more", plist(pair("Not Display Msg", "12abc")), {0, 0, 0, 0}},
        {"more than 32 bits", plist(pair("Not Display Msg", "2147483648")), {0, 0, 0, 0}},
        {"blanks and a sign", plist(pair("Auto Login", "\n +6 ")), {0, 1, 0, 6}},
        {"only a sign", plist(pair("Not Display Msg", "+")), {0, 0, 0, 0}},
        {"no text", plist(pair("Not Display Msg", "") + login), {0, 1, 0, 6}},
        {"blanks are no text", plist(pair("Not Display Msg", " \n ") + login), {0, 1, 0, 6}},
        {"the last of two counts", plist(login + pair("Auto Login", "7")), {0, 1, 0, 7}},
        {"a key uses up the next node", plist("<key>Remember Account</key>" + login), defaults},
        {"an empty key does not", plist("<key/>" + login), {0, 1, 0, 6}},
        {"comments part a pair",
         plist("<key>Auto Login</key><!--?--><string>6</string>" + remember),
         {5, 1, 0, 0}},
        {"the first child of many", plist(pair("Auto Login", "6<b/>7")), {0, 1, 0, 6}},
        {"an element for a text", plist(pair("Auto Login", "<b>6<c>1</c></b>")), {0, 1, 0, 61}},
        {"a dictionary of another name", "<plist><a>" + login + "</a></plist>", {0, 1, 0, 6}},
        {"a comment for the dictionary", "<plist><!----><dict>" + login + "</dict></plist>",
         defaults},
        {"the second dictionary", "<plist><dict/><dict>" + login + "</dict></plist>", defaults},
        {"another root", "<Plist><dict>" + login + "</dict></Plist>", defaults},
        {"cut off", "<plist><dict>" + login, defaults},
        {"nothing", "", defaults},
        {"a mark of UTF-8", "\xEF\xBB\xBF" + plist(login), {0, 1, 0, 6}},
        {"not UTF-8", plist(login + pair("Caf\xE9", "1")), defaults},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const TempDir dir;
        dir.Write("Settings.xml", c.bytes);
        EXPECT_EQ(fields_of(ReferenceData(dir.Path(""))), c.fields);
    }
}

TEST(ReferenceData, SurvivesHostileFiles) {
    const TempDir dir;
    const auto loaded = [&] { return fields_of(ReferenceData(dir.Path(""))); };
    const Fields defaults = {0, 1, 0, 0}, six = {0, 1, 0, 6};
    const std::string login = pair("Auto Login", "6");

    std::string wide = "\xFF\xFE";
    for (const char c : plist(login))
        wide += {c, '\0'};
    dir.Write("Settings.xml", wide);
    EXPECT_EQ(loaded(), six) << "UTF-16";

    dir.Write("secret", "6");
    dir.Write("Settings.xml", "<!DOCTYPE plist [<!ENTITY s SYSTEM \"" + dir.Path("secret") +
                                  "\">]>" + plist(pair("Auto Login", "&s;")));
    EXPECT_EQ(loaded(), defaults) << "an entity from outside";

    std::string deep = "<plist><dict><key>";
    for (int i = 0; i < 100000; ++i)
        deep += "<a>";
    dir.Write("Settings.xml", deep);
    EXPECT_EQ(loaded(), defaults) << "never closed";
    for (int i = 0; i < 100000; ++i)
        deep += "</a>";
    dir.Write("Settings.xml", deep + "</key></dict></plist>");
    EXPECT_EQ(loaded(), defaults) << "deep";

    dir.Write("Settings.xml", plist(login + "<!--" + std::string(kMaxPlistBytes, '-') + "-->"));
    EXPECT_EQ(loaded(), defaults) << "too large";
    unlink(dir.Path("Settings.xml").c_str());
    ASSERT_EQ(mkfifo(dir.Path("Settings.xml").c_str(), 0600), 0);
    EXPECT_EQ(loaded(), defaults) << "a pipe";
}

TEST(ReferenceData, KeepsTheOldFileWhereItCannotWrite) {
    const TempDir dir, other;
    other.Write("real.xml", plist(pair("Auto Login", "6")));
    ASSERT_EQ(symlink(other.Path("real.xml").c_str(), dir.Path("Settings.xml").c_str()), 0);
    ReferenceData data(dir.Path(""));
    EXPECT_EQ(data.m_autoLogin, 6);
    data.m_autoLogin = 7;
    ASSERT_TRUE(data.Save());
    EXPECT_EQ(ReferenceData(dir.Path("")).m_autoLogin, 7);
    EXPECT_NE(other.Read("real.xml").find("<string>7<"), std::string::npos) << "through the link";

    other.Write("file", "");
    ReferenceData nowhere(other.Path("file/below"));
    EXPECT_EQ(nowhere.GetSettingsFolder(), "");
    EXPECT_FALSE(nowhere.Save());

    ASSERT_EQ(unlink(dir.Path("Settings.xml").c_str()), 0);
    ASSERT_EQ(mkdir(dir.Path("Settings.xml").c_str(), 0700), 0);
    EXPECT_FALSE(data.Save());
    EXPECT_EQ(dir.FileCount(), 1u) << "nothing half written stays";
}

}  // namespace
}  // namespace tarn

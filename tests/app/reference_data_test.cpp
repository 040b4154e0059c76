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
const Fields kDefaults = {0, 1, 0, 0};

Fields load(const std::string& folder) {
    const ReferenceData data(folder);
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
    data.m_useHardwareAcceleration = -7;
    data.m_autoLogin = INT32_MIN;
    ASSERT_TRUE(data.Save());
    EXPECT_EQ(dir.Read("a/b/Settings.xml"), R"(<?xml version="1.0" encoding="utf-8"?>
<plist version="1.0">
	<dict>
	<key>Remember Account</key>
	<string>0</string>
	<key>Not Display Msg</key>
	<string>1</string>
	<key>Use Hardware Acceleration</key>
	<string>-7</string>
	<key>Auto Login</key>
	<string>-2147483648</string>
	</dict>
</plist>)");
    EXPECT_EQ(load(dir.Path("a/b")), (Fields{0, 1, -7, INT32_MIN}));
}

TEST(ReferenceData, WalksTheNodesOfItsFile) {
    const TempDir dir;
    dir.Write("secret", "6");
    const std::string login = pair("Auto Login", "6"), remember = pair("Remember Account", "5");
    const auto message = [](const char* text) { return plist(pair("Not Display Msg", text)); };
    const auto entity = "<!DOCTYPE plist [<!ENTITY s SYSTEM \"" + dir.Path("secret") + "\">]>";
    std::string wide = "\xFF\xFE";
    for (const char c : plist(login))
        wide += {c, '\0'};
    std::string deep(700000, '>');
    for (size_t i = 0; i < 300000; i += 3)
        deep.replace(i, 2, "<a").replace(300000 + i / 3 * 4, 3, "</a");
    const std::tuple<const char*, std::string, Fields> cases[] = {
        {"another order, unknown key", plist(login + pair("a", "3") + remember), {5, 1, 0, 6}},
        {"not a number", message("abc"), {0, 0, 0, 0}},
        {"digits and more", message("12abc"), {0, 0, 0, 0}},
        {"more than 32 bits", message("2147483648"), {0, 0, 0, 0}},
        {"blanks and a sign", message("\n +6 "), {0, 6, 0, 0}},
        {"no text", message(""), kDefaults},
        {"the last of two counts", plist(login + pair("Auto Login", "7")), {0, 1, 0, 7}},
        {"a key uses up what follows", plist("<key>Remember Account</key>" + login), kDefaults},
        {"a comment", plist("<key>Auto Login</key><!--?--><string>6</string>"), kDefaults},
        {"the first child", plist(pair("Auto Login", "<b>6<!--2--><c>1</c></b>7")), {0, 1, 0, 61}},
        {"the second child", "<plist><!----><dict>" + login + "</dict></plist>", kDefaults},
        {"another root", "<Plist><dict>" + login + "</dict></Plist>", kDefaults},
        {"cut off", "<plist><dict>" + login, kDefaults},
        {"a mark of UTF-8", "\xEF\xBB\xBF" + plist(login), {0, 1, 0, 6}},
        {"UTF-16", wide, {0, 1, 0, 6}},
        {"not UTF-8", plist(login + pair("Caf\xE9", "1")), kDefaults},
        {"an entity from outside", entity + plist(pair("Auto Login", "&s;")), kDefaults},
        {"deep", plist(pair("Auto Login", deep.insert(300000, "6"))), {0, 1, 0, 6}},
        {"too large", plist(login + "<!--" + std::string(kMaxPlistBytes, 'x') + "-->"), kDefaults},
    };
    for (const auto& [name, bytes, fields] : cases) {
        dir.Write("Settings.xml", bytes);
        EXPECT_EQ(load(dir.Path("")), fields) << name;
    }
}

TEST(ReferenceData, LivesWithWhatHasItsName) {
    const TempDir dir, other;
    const std::string file = dir.Path("Settings.xml");
    other.Write("real.xml", plist(pair("Auto Login", "6")));
    ASSERT_EQ(symlink(other.Path("real.xml").c_str(), file.c_str()), 0);
    ReferenceData data(dir.Path(""));
    EXPECT_EQ(data.m_autoLogin, 6);
    data.m_autoLogin = 7;
    ASSERT_TRUE(data.Save());
    EXPECT_NE(other.Read("real.xml").find("<string>7<"), std::string::npos) << "through the link";

    ASSERT_EQ(unlink(file.c_str()), 0);
    ASSERT_EQ(mkfifo(file.c_str(), 0600), 0);
    EXPECT_EQ(load(dir.Path("")), kDefaults) << "a pipe must not hang it";
    EXPECT_FALSE(data.Save());
    EXPECT_EQ(dir.FileCount(), 1u) << "nothing half written stays";
    EXPECT_EQ(ReferenceData(other.Path("real.xml/below")).GetSettingsFolder(), "");
}

}  // namespace
}  // namespace tarn

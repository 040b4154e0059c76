// The tables of all languages against each other, and against the keys that the code asks for.
#include <gtest/gtest.h>

#include <cctype>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <regex>
#include <set>
#include <vector>

#include "app/plist_file.h"
#include "app/xml_io.h"
#include "base/reason.h"

namespace tarn {
namespace {

namespace fs = std::filesystem;

const fs::path kSource = TARN_SOURCE_DIR;
const std::string kReason = "IDS_REASON_";

using Table = std::map<std::string, std::string>;

std::map<std::string, Table> all_tables() {
    std::map<std::string, Table> tables;
    for (const auto& entry : fs::directory_iterator(kSource / "resources/strings")) {
        if (!entry.is_directory()) continue;
        PlistPairs pairs;
        EXPECT_TRUE(ReadPlist(entry.path() / "Strings.xml", &pairs)) << entry.path();
        const Table& table = tables[entry.path().filename()] = Table(pairs.begin(), pairs.end());
        EXPECT_EQ(table.size(), pairs.size()) << "a key stands there twice";
    }
    return tables;
}

// Every `mark` with the character after it, sorted.
std::multiset<std::string> marks(const std::string& text, char mark) {
    std::multiset<std::string> found;
    for (size_t at = text.find(mark); at != std::string::npos; at = text.find(mark, at + 1))
        found.insert(text.substr(at, 2));
    return found;
}

TEST(Strings, LanguagesAgree) {
    const auto tables = all_tables();
    ASSERT_EQ(tables.size(), 9u);
    const Table& english = tables.at("EnglishUS");
    for (const auto& [language, table] : tables) {
        SCOPED_TRACE(language);
        EXPECT_EQ(table.at("Language"), language);
        EXPECT_NE(XMLIO(kSource / "resources", language).GetLocaleName(), "");
        EXPECT_EQ(table.size(), english.size());
        for (const auto& [key, text] : table) {
            SCOPED_TRACE(key);
            ASSERT_EQ(english.count(key), 1u);
            EXPECT_EQ(marks(text, '%'), marks(english.at(key), '%'));
            for (const auto& mark : marks(text, '%'))
                EXPECT_TRUE(mark >= "%1" && mark <= "%4") << mark;
            static const std::regex stray("^$|^ |  |\n| $");
            EXPECT_FALSE(std::regex_search(text, stray)) << text;
        }
    }
}

// The other tables have the keys and arguments of the English one.
TEST(Strings, EveryReasonHasItsText) {
    std::map<std::string, std::multiset<std::string>> codes, texts;
    for (int code = 1; code < static_cast<int>(ReasonCode::kCount); ++code) {
        const auto reason = static_cast<ReasonCode>(code);
        const std::string key = kReason + ReasonName(reason);
        EXPECT_EQ(codes.count(key), 0u) << key << " is two codes' name";
        codes[key] = marks(ReasonPattern(reason), '%');
    }
    const Table english = all_tables().at("EnglishUS");
    for (const auto& [key, text] : english)
        if (key.starts_with(kReason)) texts[key] = marks(text, '%');
    EXPECT_EQ(codes, texts);
    EXPECT_EQ(english.size() - texts.size(), 115u);
}

TEST(Strings, MnemonicsAreUniqueInTheirMenu) {
    const std::vector<std::vector<std::string>> menus = {
        {"FILE", "DISPLAY", "HELP"},
        {"IMPORT", "IMPORT_ALL", "OPEN", "SAVE_AS", "SAVE_AS_WAV", "QUIT"},
        {"SETTING", "REFRESH"},
        {"HELP_HELP", "CUSTOMER_REGISTRATION", "VERSION"},
    };
    for (const auto& [language, table] : all_tables()) {
        SCOPED_TRACE(language);
        for (const auto& menu : menus) {
            std::set<int> letters;
            for (const auto& item : menu) {
                const auto found = marks(table.at("IDS_MENU_" + item), '&');
                ASSERT_EQ(found.size(), 1u) << item;
                const int letter = std::tolower(found.begin()->at(1));
                EXPECT_TRUE(std::isalpha(letter) && letters.insert(letter).second) << item;
            }
        }
        for (const auto& [key, text] : table) {
            if (key.starts_with("IDS_MENU_") || text.find('&') == std::string::npos) continue;
            // Shown with "(&U)" taken out, or with the '&' alone, which would leave brackets.
            const bool button = key == "IDS_SAVE" || key == "IDS_LABEL_SAVE_AND_UPLOAD";
            EXPECT_TRUE(button ? text.find("(&") == std::string::npos
                               : key == "IDS_LABEL_UPLOAD" && text.ends_with("(&U)"))
                << key;
        }
    }
}

TEST(Strings, TheCodeAsksForNoOtherKey) {
    const Table english = all_tables().at("EnglishUS");
    const std::regex key("\"(IDS_[^\"]*)\"");
    for (const auto& entry : fs::recursive_directory_iterator(kSource / "src")) {
        if (!entry.is_regular_file()) continue;
        std::ifstream in(entry.path());
        const std::string code{std::istreambuf_iterator<char>(in), {}};
        for (std::sregex_iterator found(code.begin(), code.end(), key), end; found != end; ++found)
            EXPECT_EQ(english.count((*found)[1]), 1u) << found->str() << " in " << entry.path();
    }
}

}  // namespace
}  // namespace tarn

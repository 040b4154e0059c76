// The tables of all languages against each other, and against the keys that the code asks for.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <vector>

#include "app/plist_file.h"
#include "app/xml_io.h"

namespace tarn {
namespace {

namespace fs = std::filesystem;

const fs::path kSource = TARN_SOURCE_DIR;
constexpr size_t kKeys = 115;  // the language's own name among them

using Table = std::map<std::string, std::string>;

Table table_of(const fs::path& folder) {
    PlistPairs pairs;
    EXPECT_TRUE(ReadPlist(folder / "Strings.xml", &pairs)) << "well-formed, plain text, UTF-8";
    Table table(pairs.begin(), pairs.end());
    EXPECT_EQ(table.size(), pairs.size()) << "a key stands there twice";
    return table;
}

std::map<std::string, Table> all_tables() {
    std::map<std::string, Table> tables;
    for (const auto& entry : fs::directory_iterator(kSource / "resources/strings"))
        if (entry.is_directory()) tables[entry.path().filename()] = table_of(entry.path());
    return tables;
}

// Every `mark` with the character behind it, sorted.
std::vector<std::string> marks(const std::string& text, char mark) {
    std::vector<std::string> found;
    for (size_t at = text.find(mark); at != std::string::npos; at = text.find(mark, at + 1))
        found.push_back(text.substr(at, 2));
    std::sort(found.begin(), found.end());
    return found;
}

bool has_stray_blanks(const std::string& text) {
    return text.starts_with(' ') || text.ends_with(' ') || text.find("  ") != std::string::npos ||
           text.find('\n') != std::string::npos;
}

TEST(Strings, LanguagesAgree) {
    const auto tables = all_tables();
    ASSERT_EQ(tables.size(), 9u);
    const Table& english = tables.at("EnglishUS");
    EXPECT_EQ(english.size(), kKeys);
    for (const auto& [language, table] : tables) {
        SCOPED_TRACE(language);
        EXPECT_EQ(table.at("Language"), language);
        EXPECT_NE(XMLIO(kSource / "resources", language).GetLocaleName(), "");
        ASSERT_EQ(table.size(), english.size());
        for (const auto& [key, text] : table) {
            SCOPED_TRACE(key);
            ASSERT_EQ(english.count(key), 1u);
            EXPECT_NE(text, "");
            EXPECT_EQ(marks(text, '%'), marks(english.at(key), '%'));
            for (const auto& mark : marks(text, '%'))
                EXPECT_TRUE(mark == "%1" || mark == "%2") << mark;
            EXPECT_FALSE(has_stray_blanks(text)) << text;
        }
    }
}

// The letter behind the one '&', in lower case.
std::string mnemonic(const std::string& text) {
    const auto found = marks(text, '&');
    if (found.size() != 1 || found[0].size() != 2) return "";
    return {static_cast<char>(std::tolower(static_cast<unsigned char>(found[0][1])))};
}

TEST(Strings, MnemonicsAreUniqueInTheirMenu) {
    const std::vector<std::vector<std::string>> menus = {
        {"FILE", "DISPLAY", "HELP"},
        {"IMPORT", "IMPORT_ALL", "OPEN", "SAVE_AS", "SAVE_AS_WAV", "QUIT"},
        {"SETTING", "REFRESH"},
        {"HELP_HELP", "CUSTOMER_REGISTRATION", "VERSION"},
    };
    const std::set<std::string> marked = {"IDS_SAVE", "IDS_LABEL_SAVE_AND_UPLOAD",
                                          "IDS_LABEL_UPLOAD"};
    for (const auto& [language, table] : all_tables()) {
        SCOPED_TRACE(language);
        for (const auto& menu : menus) {
            std::set<std::string> letters;
            for (const auto& item : menu) {
                const std::string letter = mnemonic(table.at("IDS_MENU_" + item));
                EXPECT_TRUE(letter.size() == 1 && std::isalnum(letter[0])) << item;
                EXPECT_TRUE(letters.insert(letter).second) << item << " has one that is taken";
            }
        }
        for (const auto& [key, text] : table) {
            const bool may = key.starts_with("IDS_MENU_") || marked.count(key) > 0;
            EXPECT_TRUE(may || text.find('&') == std::string::npos) << key;
        }
        // Shown with the '&' alone taken out: "(&S)" would leave its brackets.
        for (const char* key : {"IDS_SAVE", "IDS_LABEL_SAVE_AND_UPLOAD"})
            EXPECT_EQ(table.at(key).find("(&"), std::string::npos) << key;
        // Shown with "(&U)" alone taken out.
        const std::string& upload = table.at("IDS_LABEL_UPLOAD");
        EXPECT_TRUE(marks(upload, '&').empty() || upload.ends_with("(&U)")) << upload;
    }
}

TEST(Strings, TheCodeAsksForNoOtherKey) {
    const Table english = table_of(kSource / "resources/strings/EnglishUS");
    for (const auto& entry : fs::recursive_directory_iterator(kSource / "src")) {
        const auto extension = entry.path().extension();
        if (extension != ".cpp" && extension != ".h") continue;
        std::ifstream in(entry.path());
        const std::string code{std::istreambuf_iterator<char>(in), {}};
        for (size_t at = code.find("\"IDS_"); at != std::string::npos;
             at = code.find("\"IDS_", at + 1)) {
            const std::string key = code.substr(at + 1, code.find('"', at + 1) - at - 1);
            EXPECT_EQ(english.count(key), 1u) << key << " in " << entry.path();
        }
    }
}

}  // namespace
}  // namespace tarn

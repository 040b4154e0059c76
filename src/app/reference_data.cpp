#include "app/reference_data.h"

#include <algorithm>
#include <charconv>
#include <exception>
#include <string_view>

#include "app/plist_file.h"
#include "base/xp_dir.h"
#include "base/xp_output_file.h"
#include "base/xp_path.h"
#include "base/xp_user_store.h"

namespace tarn {
namespace {

constexpr const char* kFileName = "Settings.xml";
constexpr mode_t kPrivate = 0700;

struct Setting {
    const char* key;
    int32_t ReferenceData::*field;
};

// In the file's order.
constexpr Setting kSettings[] = {
    {"Remember Account", &ReferenceData::m_rememberAccount},
    {"Not Display Msg", &ReferenceData::m_notDisplayMsg},
    {"Use Hardware Acceleration", &ReferenceData::m_useHardwareAcceleration},
    {"Auto Login", &ReferenceData::m_autoLogin},
};

// A decimal number and nothing else but white space around it; 0 for anything that is not one,
// and for one that 32 bits don't hold.
int32_t number_of(std::string_view text) {
    constexpr std::string_view kBlanks = " \t\n\r";
    text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
    text = text.substr(0, text.find_last_not_of(kBlanks) + 1);
    if (text.starts_with('+') && !text.starts_with("+-")) text.remove_prefix(1);
    int32_t value = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    return error == std::errc() && stop == end ? value : 0;
}

}  // namespace

std::shared_ptr<ReferenceData> ReferenceData::GetInstance() {
    static const auto instance = std::make_shared<ReferenceData>();
    return instance;
}

ReferenceData::ReferenceData(std::string folder) : m_folder(std::move(folder)) {
    try {
        Load();
    } catch (const std::exception&) {
        // No memory for so small a file: the defaults serve.
    }
}

void ReferenceData::Load() {
    const std::string folder = GetSettingsFolder();
    PlistPairs pairs;
    if (folder.empty() || !ReadPlist(XpPath::Join(folder, kFileName), &pairs)) return;
    for (const auto& [key, text] : pairs)
        for (const Setting& setting : kSettings)
            if (key == setting.key) this->*setting.field = number_of(text);
}

std::string ReferenceData::FileText() const {
    std::string text =
        "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
        "<plist version=\"1.0\">\n"
        "\t<dict>\n";
    for (const Setting& setting : kSettings) {
        text += "\t<key>" + std::string(setting.key) + "</key>\n";
        text += "\t<string>" + std::to_string(this->*setting.field) + "</string>\n";
    }
    return text + "\t</dict>\n</plist>";
}

bool ReferenceData::Save() const try {
    const std::string folder = GetSettingsFolder();
    if (folder.empty()) return false;
    const std::string text = FileText();
    XpOutputFile output;
    uint64_t done = 0;
    return output.Create(XpPath::Join(folder, kFileName), XpOutputFile::Existing::kReplace) == 0 &&
           output.File().Write(text.data(), text.size(), &done) == 0 && output.Commit() == 0;
} catch (const std::exception&) {
    return false;
}

std::string ReferenceData::GetSettingsFolder() const {
    if (!m_folder.empty()) return XpDir(m_folder).Make(kPrivate) == 0 ? m_folder : "";
    std::string folder;
    if (XpUserStore("tarn-studio").Folder(XpUserStore::Kind::kConfig, &folder) != 0) return "";
    return folder;
}

}  // namespace tarn

#include "app/xml_io.h"

#include <strings.h>

#include <algorithm>
#include <exception>
#include <filesystem>
#include <system_error>

#include "app/language.h"
#include "app/plist_file.h"
#include "base/user_locale.h"
#include "base/xp_file.h"
#include "base/xp_path.h"

namespace tarn {
namespace {

constexpr const char* kFileName = "Strings.xml";
// Where the share folder lies, seen from the program's: as it was installed, and in a build.
constexpr const char* kPlaces[] = {"", TARN_DATA_FROM_BIN, "../share/tarn-studio"};

constexpr int kUsualDpi = 96;
constexpr int kUsualHeight = -12;

constexpr struct {
    const char *language, *locale;
} kLocales[] = {
    {"EnglishUS", "en-US"},      {"Japanese", "ja-JP"},      {"French", "fr-FR"},
    {"German", "de-DE"},         {"SpanishModern", "es-ES"}, {"Chinese-PRChina", "zh-CN"},
    {"Chinese-Taiwan", "zh-TW"}, {"Korean", "ko-KR"},        {"PortugueseBrazilian", "pt-BR"},
};

bool can_read(const std::string& path) {
    XpFile file;
    return file.Open(path, XpFile::Mode::kRead) == 0;
}

}  // namespace

std::shared_ptr<XMLIO> XMLIO::GetInstance() {
    static const auto instance = std::make_shared<XMLIO>();
    return instance;
}

XMLIO::XMLIO() : XMLIO(GetResourceFolder(), LanguageOfLocale(UserLocale())) {}

// Without /proc nobody knows where the program lies. An empty name must not become the current
// folder, in which anybody's files may be.
XMLIO::XMLIO(const std::string& folder, std::string_view language)
    : m_folder(folder.empty() ? "/" : folder) {
    try {
        const std::string own = "strings/" + std::string(language) + "/" + kFileName;
        m_loaded = (!language.empty() && Load(XpPath::Join(m_folder, own))) ||
                   Load(XpPath::Join(m_folder, kFileName));
        if (m_loaded) m_language = GetString("Language");
    } catch (const std::exception&) {
        m_loaded = false;  // no memory for the table
    }
}

bool XMLIO::Load(const std::string& path) {
    PlistPairs pairs;
    if (path.find('*') != std::string::npos || !ReadPlist(path, &pairs)) return false;
    for (auto& [key, text] : pairs)
        if (!text.empty()) m_strings.try_emplace(std::move(key), std::move(text));
    return true;
}

std::string XMLIO::GetString(std::string_view key) const {
    const auto found = m_loaded ? m_strings.find(key) : m_strings.end();
    return found != m_strings.end() ? found->second : "";
}

std::string XMLIO::GetLocaleName() const {
    for (const auto& entry : kLocales)
        if (m_language == entry.language) return entry.locale;
    return "";
}

bool XMLIO::IsChineseLocale() {
    return LocaleTag(UserLocale()) == "zh-CN";
}

std::string XMLIO::GetModuleFolder() {
    std::error_code error;
    const std::string program = std::filesystem::read_symlink("/proc/self/exe", error).string();
    return error ? "" : XpPath::Folder(program);
}

std::string XMLIO::GetResourceFolder() {
    std::string program = GetModuleFolder();
    if (program.empty()) return program;
    for (const char* place : kPlaces) {
        std::string folder = *place ? XpPath::Join(program, place) : program;
        if (can_read(XpPath::Join(folder, kFileName))) return folder;
    }
    return program;
}

InterfaceFont XMLIO::MakeFont(int dpi, int delta) const {
    const bool japanese = strcasecmp(m_language.c_str(), "Japanese") == 0;
    const int height = dpi == 0 ? kUsualHeight : dpi * kUsualHeight / kUsualDpi;
    return {japanese ? "Meiryo" : "Segoe UI", height + dpi * delta / kUsualDpi};
}

std::string XMLIO::GetVersionText() const {
    std::string text;
    if (!ReadSmallFile(XpPath::Join(m_folder, "Version.txt"), &text)) return "";
    text.resize(std::min(text.find_first_of("\r\n"), text.size()));
    return text;
}

}  // namespace tarn

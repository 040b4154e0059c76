#include "movie/objects/movie_base.h"

#include <sys/stat.h>

#include <utility>

#include "base/user_locale.h"
#include "movie/engine/meta_lists.h"

namespace tarn {
namespace {

constexpr uint16_t kEnglish = 0x15C7;

}  // namespace

uint16_t PackedLanguage(const std::string& locale) {
    static constexpr struct {
        char code[3];
        uint16_t packed;
    } kLanguages[] = {
        {"zh", 0x690F}, {"de", 0x10B5}, {"es", 0x4E01}, {"fr", 0x1A41},
        {"it", 0x2681}, {"ja", 0x2A0E}, {"ko", 0x2DF2}, {"nl", 0x3984},
        {"pt", 0x41F2}, {"ru", 0x4AB3}, {"sv", 0x4EE5},
    };
    const std::string language = locale.substr(0, locale.find_first_of("_.@-"));
    for (const auto& known : kLanguages)
        if (language == known.code) return known.packed;
    return kEnglish;
}

CMP4MovieBase::CMP4MovieBase() : m_language(PackedLanguage(UserLocale())) {}

CMP4MovieBase::~CMP4MovieBase() {
    CloseEngine();
}

int64_t CMP4MovieBase::GetFileSize() const {
    struct stat info {};
    if (m_path.empty() || stat(m_path.c_str(), &info) != 0) return -1;
    return info.st_size;
}

void CMP4MovieBase::CloseEngine() {
    Mp4ReadSession* session = m_engine.file.Session();
    for (Mp4MetaList** list : {&m_engine.metaTextList, &m_engine.metaFileList})
        if (*list) static_cast<void>(mp4_close_meta_list(session, std::exchange(*list, nullptr)));
    m_engine.file.Close();
}

}  // namespace tarn

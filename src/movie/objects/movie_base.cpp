#include "movie/objects/movie_base.h"

#include <sys/stat.h>
#include <unistd.h>

#include <utility>

#include "base/user_locale.h"
#include "base/xp_file.h"
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

MovieCode CMP4MovieBase::OpenEngine(uint32_t* fileFlags) {
    CloseEngine();
    m_lastError = 0;
    XpFile file;
    m_lastError = file.Open(m_path, XpFile::Mode::kRead);
    if (m_lastError != 0) return kMovieSystem;
    struct stat info {};
    if (fstat(file.Descriptor(), &info) == 0) m_opened = info.st_mtim;
    m_engine.descriptor = file.Release();
    m_engine.descriptorBlock = std::make_unique<int32_t>(m_engine.descriptor);

    Mp4HostCallbacks callbacks{};
    mp4_init_fd_callbacks(&callbacks);
    callbacks.userData = m_engine.descriptorBlock.get();
    MovieCode code = movie_code(mp4_create_host(callbacks, &m_engine.context));
    if (code == kMovieOk) {
        auto* user_file = reinterpret_cast<Mp4File*>(callbacks.userData);
        code = movie_code(mp4_open_read(m_engine.context, user_file, {0, 50, 0},
                                        &m_engine.readSession, fileFlags));
    }
    if (code != kMovieOk) CloseEngine();
    return code;
}

void CMP4MovieBase::CloseEngine() {
    Mp4ReadSession* session = std::exchange(m_engine.readSession, nullptr);
    if (Mp4MetaList* list = std::exchange(m_engine.metaTextList, nullptr))
        static_cast<void>(mp4_close_meta_list(session, list));
    if (Mp4MetaList* list = std::exchange(m_engine.metaFileList, nullptr))
        static_cast<void>(mp4_close_meta_list(session, list));
    if (m_engine.descriptor >= 0) close(std::exchange(m_engine.descriptor, -1));
    if (session) static_cast<void>(mp4_close_read(m_engine.context, session));
    mp4_free_host(std::exchange(m_engine.context, nullptr));
    m_engine.descriptorBlock.reset();
}

}  // namespace tarn

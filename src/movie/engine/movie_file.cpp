#include "movie/engine/movie_file.h"

#include <cerrno>
#include <utility>

namespace tarn {

int MovieFile::Open(const std::string& path) {
    Close();
    if (const int error = m_file.Open(path, XpFile::Mode::kRead)) return error;
    if (const int error = m_file.GetLength(&m_size)) return error;
    Mp4HostCallbacks callbacks{};
    mp4_init_file_callbacks(&callbacks);
    callbacks.userData = &m_file;
    return mp4_create_host(callbacks, &m_host) == FF4_RET_OK ? 0 : ENOMEM;
}

void MovieFile::Close() {
    mp4_free_host(std::exchange(m_host, nullptr));
    m_file.Close();
}

}  // namespace tarn

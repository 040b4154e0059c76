// movie_file.h - a file on disk with the engine's host around it, for as long as it is looked at.
#pragma once

#include <cstdint>
#include <string>

#include "base/xp_file.h"
#include "mp4format/host.h"

namespace tarn {

// Owns the file and the host; sessions and lists made with them must be closed first.
class MovieFile {
public:
    MovieFile() = default;
    ~MovieFile() { Close(); }
    MovieFile(const MovieFile&) = delete;
    MovieFile& operator=(const MovieFile&) = delete;

    // 0, or the system's error number.
    [[nodiscard]] int Open(const std::string& path);
    void Close();

    Mp4Host* Host() const { return m_host; }
    Mp4File* File() { return reinterpret_cast<Mp4File*>(&m_file); }
    uint64_t Size() const { return m_size; }
    [[nodiscard]] int ReadAt(uint64_t offset, void* buffer, uint64_t size, uint64_t* done) {
        return m_file.ReadAt(offset, buffer, size, done);
    }

private:
    XpFile m_file;
    Mp4Host* m_host = nullptr;
    uint64_t m_size = 0;
};

}  // namespace tarn

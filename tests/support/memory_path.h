// memory_path.h - bytes as a file that has a path but lies in memory alone.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace tarn {

class MemoryPath {
public:
    MemoryPath(const uint8_t* data, size_t size) : m_descriptor(memfd_create("tarn", MFD_CLOEXEC)) {
        size_t done = 0;
        while (m_descriptor >= 0 && done < size) {
            const ssize_t written = write(m_descriptor, data + done, size - done);
            if (written <= 0) std::abort();
            done += static_cast<size_t>(written);
        }
        if (m_descriptor < 0) std::abort();
    }
    ~MemoryPath() { close(m_descriptor); }
    MemoryPath(const MemoryPath&) = delete;
    MemoryPath& operator=(const MemoryPath&) = delete;

    std::string Path() const { return "/proc/self/fd/" + std::to_string(m_descriptor); }

private:
    int m_descriptor;
};

}  // namespace tarn

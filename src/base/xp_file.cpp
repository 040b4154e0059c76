#include "base/xp_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <system_error>
#include <utility>

namespace tarn {
namespace {

// The kernel transfers at most 0x7ffff000 bytes a call; a smaller round step keeps Ctrl-C prompt.
constexpr uint64_t kMaxTransfer = uint64_t{1} << 30;

bool fits_offset(uint64_t offset, uint64_t size) {
    const auto limit = static_cast<uint64_t>(std::numeric_limits<off_t>::max());
    return offset <= limit && size <= limit - offset;
}

// Repeats `step` (as read or write: bytes done, 0 at the end, -1 with errno) until `size` is done.
template <typename Step>
int transfer(uint64_t size, uint64_t* done, Step step) {
    *done = 0;
    while (*done < size) {
        const ssize_t n = step(*done, static_cast<size_t>(std::min(size - *done, kMaxTransfer)));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return errno;
        if (n == 0) return 0;
        *done += static_cast<uint64_t>(n);
    }
    return 0;
}

}  // namespace

XpFile::~XpFile() {
    Close();
}

XpFile::XpFile(XpFile&& other) noexcept {
    *this = std::move(other);
}

XpFile& XpFile::operator=(XpFile&& other) noexcept {
    if (this != &other) {
        Close();
        m_descriptor = std::exchange(other.m_descriptor, -1);
        m_lastError = other.m_lastError;
        m_length = other.m_length;
        m_changed = other.m_changed;
    }
    return *this;
}

int XpFile::Open(const std::string& path, Mode mode) {
    Close();
    int flags = O_CLOEXEC;
    switch (mode) {
        // O_NONBLOCK: a named pipe without a writer must not hang the caller; it has no effect on
        // ordinary files.
        case Mode::kRead:
            flags |= O_RDONLY | O_NONBLOCK;
            break;
        case Mode::kCreateNew:
            flags |= O_RDWR | O_CREAT | O_EXCL;
            break;
        case Mode::kReadWrite:
            flags |= O_RDWR;
            break;
    }
    int descriptor;
    do {
        descriptor = open(path.c_str(), flags, 0666);
    } while (descriptor < 0 && errno == EINTR);
    if (descriptor < 0) return errno;

    struct stat info {};
    int error = 0;
    if (fstat(descriptor, &info) != 0) {
        error = errno;
    } else if (S_ISDIR(info.st_mode)) {
        error = EISDIR;
    } else if (!S_ISREG(info.st_mode)) {
        error = ESPIPE;  // pipes and devices can't be moved about in or tell no length
    }
    if (error != 0) {
        close(descriptor);
        return error;
    }
    Adopt(descriptor);
    m_length = info.st_size;
    m_changed = info.st_mtim;
    return 0;
}

bool XpFile::IsUnchanged() const {
    struct stat now {};
    return fstat(m_descriptor, &now) == 0 && now.st_nlink > 0 && now.st_size == m_length &&
           now.st_mtim.tv_sec == m_changed.tv_sec && now.st_mtim.tv_nsec == m_changed.tv_nsec;
}

void XpFile::Adopt(int descriptor) {
    Close();
    m_descriptor = descriptor;
    m_lastError = 0;
    m_length = -1;
}

int XpFile::Close() {
    if (m_descriptor < 0) return 0;
    // After EINTR the descriptor is gone on Linux: closing again could close somebody else's.
    const int result = close(std::exchange(m_descriptor, -1));
    return result != 0 && errno != EINTR ? errno : 0;
}

int XpFile::Read(void* buffer, uint64_t size, uint64_t* done) {
    auto* bytes = static_cast<uint8_t*>(buffer);
    return Note(transfer(size, done,
                         [&](uint64_t at, size_t n) { return read(m_descriptor, bytes + at, n); }));
}

int XpFile::Note(int error) {
    if (error != 0) m_lastError = error;
    return error;
}

int XpFile::ReadAt(uint64_t offset, void* buffer, uint64_t size, uint64_t* done) {
    return Note(XpReadAt(m_descriptor, offset, buffer, size, done));
}

int XpFile::Write(const void* data, uint64_t size, uint64_t* done) {
    const auto* bytes = static_cast<const uint8_t*>(data);
    const int error = transfer(
        size, done, [&](uint64_t at, size_t n) { return write(m_descriptor, bytes + at, n); });
    return Note(error == 0 && *done != size ? EIO : error);
}

int XpFile::Seek(int64_t offset, Origin origin, uint64_t* position) {
    const int whence = origin == Origin::kStart     ? SEEK_SET
                       : origin == Origin::kCurrent ? SEEK_CUR
                                                    : SEEK_END;
    const off_t result = lseek(m_descriptor, offset, whence);
    if (result < 0) return Note(errno);
    if (position) *position = static_cast<uint64_t>(result);
    return 0;
}

int XpFile::GetLength(uint64_t* length) const {
    struct stat info {};
    if (fstat(m_descriptor, &info) != 0) return errno;
    *length = static_cast<uint64_t>(info.st_size);
    return 0;
}

int XpFile::Sync() {
    int result;
    do {
        result = fsync(m_descriptor);
    } while (result != 0 && errno == EINTR);
    return result != 0 ? errno : 0;
}

int XpReadAt(int descriptor, uint64_t offset, void* buffer, uint64_t size, uint64_t* done) {
    *done = 0;
    if (!fits_offset(offset, size)) return EOVERFLOW;
    auto* bytes = static_cast<uint8_t*>(buffer);
    return transfer(size, done, [&](uint64_t at, size_t n) {
        return pread(descriptor, bytes + at, n, static_cast<off_t>(offset + at));
    });
}

std::string XpErrorText(int error) {
    return std::generic_category().message(error);
}

}  // namespace tarn

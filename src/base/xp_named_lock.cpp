#include "base/xp_named_lock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <string_view>
#include <utility>

#include "base/xp_path.h"

namespace tarn {

int XpNamedLock::TryLock(const std::string& folder, const std::string& name) {
    Unlock();
    if (name.empty()) return EINVAL;
    const std::string path = XpPath::Join(folder, FileName(name));
    const int descriptor =
        open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
    if (descriptor < 0) return errno;
    XpFile file;
    file.Adopt(descriptor);
    int result;
    do {
        result = flock(descriptor, LOCK_EX | LOCK_NB);
    } while (result != 0 && errno == EINTR);
    if (result != 0) return errno;
    m_file = std::move(file);
    return 0;
}

std::string XpNamedLock::FileName(const std::string& name) {
    constexpr std::string_view plain =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-.";
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string safe;
    for (const char c : name) {
        const auto byte = static_cast<unsigned char>(c);
        if (plain.find(c) != std::string_view::npos)
            safe += c;
        else
            safe.append({'%', digits[byte >> 4], digits[byte & 15]});
    }
    return safe + ".lock";
}

}  // namespace tarn

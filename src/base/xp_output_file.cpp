#include "base/xp_output_file.h"

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <utility>

namespace tarn {
namespace {

constexpr size_t kRandomLength = 8;
constexpr int kNameAttempts = 16;
constexpr time_t kLeftOverAge = 60 * 60;  // seconds without a write
constexpr mode_t kPermissionBits = 0777;

int close_descriptor(int* descriptor) {
    return *descriptor >= 0 ? close(std::exchange(*descriptor, -1)) : 0;
}

struct FreeText {
    void operator()(char* text) const { free(text); }
};

struct CloseFolder {
    void operator()(DIR* folder) const { closedir(folder); }
};

// Up to and with the last slash; "./" for a bare name.
std::string folder_part(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? "./" : path.substr(0, slash + 1);
}

std::string random_part() {
    static const char letters[] = "abcdefghijklmnopqrstuvwxyz012345";  // 32: no bias
    unsigned char bytes[kRandomLength] = {};
    if (getrandom(bytes, sizeof bytes, 0) < 0) {
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC, &now);
        const auto seed = static_cast<uint64_t>(now.tv_nsec) ^ static_cast<uint64_t>(getpid());
        for (size_t i = 0; i < kRandomLength; ++i)
            bytes[i] = static_cast<unsigned char>(seed >> (5 * i));
    }
    std::string text;
    for (const unsigned char byte : bytes)
        text += letters[byte % 32];
    return text;
}

// The first bytes of a name, never ending inside a UTF-8 character.
std::string shortened(const std::string& name, size_t limit) {
    if (name.size() <= limit) return name;
    while (limit > 0 && (static_cast<unsigned char>(name[limit]) & 0xC0) == 0x80)
        --limit;
    return name.substr(0, limit);
}

bool lacks_call(int error) {
    return error == EINVAL || error == ENOSYS || error == EOPNOTSUPP;
}

int rename_by_link(int folder, const char* from, const char* to) {
    if (linkat(folder, from, folder, to, 0) != 0) return errno;
    unlinkat(folder, from, 0);  // should it fail, the file is in its place all the same
    return 0;
}

int rename_by_claim(int folder, const char* from, const char* to) {
    int claim = openat(folder, to, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (claim < 0) return errno;
    close_descriptor(&claim);
    if (renameat(folder, from, folder, to) == 0) return 0;
    const int error = errno;
    unlinkat(folder, to, 0);
    return error;
}

// Some file systems can't sync a folder, and some folders can be written but not opened: neither is
// a failure of the save.
int sync_folder(int folder) {
    int readable = openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (readable < 0) return 0;
    const int error = fsync(readable) != 0 ? errno : 0;
    close_descriptor(&readable);
    return error == EIO || XpIsDiskFull(error) ? error : 0;
}

bool is_left_over(const struct stat& info) {
    return S_ISREG(info.st_mode) && info.st_uid == geteuid() &&
           info.st_mtime < time(nullptr) - kLeftOverAge;
}

}  // namespace

// Splits the target into folder and name, opens the folder and looks at what has the name now.
// `keptMode` gets the permissions of a file that is to be replaced.
int XpOutputFile::FindTarget(const std::string& target, mode_t* keptMode) {
    std::string path = target;
    struct stat info {};
    if (m_existing == Existing::kReplace && stat(path.c_str(), &info) == 0) {
        const std::unique_ptr<char, FreeText> real(realpath(path.c_str(), nullptr));
        if (!real) return errno;
        path = real.get();
    }
    m_folderPath = folder_part(path);
    m_name = path.substr(path.rfind('/') + 1);  // npos + 1 is 0
    if (path.empty()) return ENOENT;
    if (m_name.empty() || m_name == "." || m_name == "..") return EISDIR;

    m_folder = open(m_folderPath.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (m_folder < 0) return errno;
    if (fstatat(m_folder, m_name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0)
        return errno == ENOENT ? 0 : errno;
    if (m_existing == Existing::kRefuse) return EEXIST;
    if (S_ISDIR(info.st_mode)) return EISDIR;
    if (S_ISLNK(info.st_mode)) return 0;  // leads nowhere: the link itself is replaced
    if (!S_ISREG(info.st_mode)) return EEXIST;
    *keptMode = info.st_mode & kPermissionBits;
    return 0;
}

int XpOutputFile::Create(const std::string& target, Existing existing, const std::string& suffix) {
    Discard();
    m_existing = existing;
    mode_t keptMode = 0;
    int error = FindTarget(target, &keptMode);
    if (error == 0) error = OpenTemporary(suffix);
    // A file system without permissions refuses; then there are none to pass on.
    if (error == 0 && keptMode != 0 && fchmod(m_file.Descriptor(), keptMode) != 0 && errno != EPERM)
        error = errno;
    if (error != 0) Discard();
    return error;
}

int XpOutputFile::OpenTemporary(const std::string& suffix) {
    const long longest = pathconf(m_folderPath.c_str(), _PC_NAME_MAX);
    const size_t limit = longest > 0 ? static_cast<size_t>(longest) : NAME_MAX;
    const size_t fixed = 2 + kRandomLength + suffix.size();
    if (fixed >= limit || suffix.find('/') != std::string::npos) return EINVAL;
    std::string prefix(1, '.');
    prefix.append(shortened(m_name, limit - fixed)).append(1, '.');
    RemoveLeftOvers(prefix, suffix);

    for (int attempt = 0; attempt < kNameAttempts; ++attempt) {
        std::string name = prefix;
        name.append(random_part()).append(suffix);
        const int descriptor =
            openat(m_folder, name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (descriptor < 0 && (errno == EEXIST || errno == EINTR)) continue;
        if (descriptor < 0) return errno;
        m_temporary = name;
        m_file.Adopt(descriptor);
        // Marks the file as alive for RemoveLeftOvers; where locks are lacking its age does.
        static_cast<void>(flock(descriptor, LOCK_EX | LOCK_NB));
        return 0;
    }
    return EEXIST;
}

// Hidden files of this target whose program was killed. Nothing here may fail the save.
void XpOutputFile::RemoveLeftOvers(const std::string& prefix, const std::string& suffix) const {
    const int readable = openat(m_folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (readable < 0) return;
    const std::unique_ptr<DIR, CloseFolder> folder(fdopendir(readable));
    if (!folder) {
        close(readable);
        return;
    }
    while (const dirent* entry = readdir(folder.get())) {
        const std::string name = entry->d_name;
        if (name.size() != prefix.size() + kRandomLength + suffix.size() ||
            !name.starts_with(prefix) || !name.ends_with(suffix))
            continue;
        XpFile file;
        file.Adopt(openat(m_folder, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        struct stat info {};
        if (file.IsOpen() && fstat(file.Descriptor(), &info) == 0 && is_left_over(info) &&
            flock(file.Descriptor(), LOCK_EX | LOCK_NB) == 0)
            unlinkat(m_folder, name.c_str(), 0);
    }
}

int XpOutputFile::Commit() {
    if (!m_file.IsOpen() || m_temporary.empty()) return EBADF;
    int error = m_file.Sync();
    if (error == 0 && m_existing == Existing::kReplace) {
        if (renameat(m_folder, m_temporary.c_str(), m_folder, m_name.c_str()) != 0) error = errno;
    } else if (error == 0) {
        error = XpRenameNew(m_folder, m_temporary, m_name);
    }
    if (error == 0) {
        m_temporary.clear();
        error = sync_folder(m_folder);
        const int late = m_file.Close();
        if (error == 0) error = late;
    }
    Discard();
    return error;
}

void XpOutputFile::Discard() {
    if (!m_temporary.empty()) unlinkat(m_folder, m_temporary.c_str(), 0);
    m_temporary.clear();
    static_cast<void>(m_file.Close());
    close_descriptor(&m_folder);
}

int XpRenameNew(int folder, const std::string& from, const std::string& to, XpRenameWay way) {
    int error = ENOSYS;
    if (way == XpRenameWay::kNoReplace) {
        error =
            renameat2(folder, from.c_str(), folder, to.c_str(), RENAME_NOREPLACE) != 0 ? errno : 0;
        if (!lacks_call(error)) return error;
    }
    if (way != XpRenameWay::kClaim) {
        error = rename_by_link(folder, from.c_str(), to.c_str());
        // EPERM is what a file system without links answers.
        if (!lacks_call(error) && error != EPERM) return error;
    }
    return rename_by_claim(folder, from.c_str(), to.c_str());
}

bool XpIsDiskFull(int error) {
    return error == ENOSPC || error == EDQUOT || error == EFBIG;
}

int XpFreeSpace(const std::string& path, uint64_t* bytes) {
    struct statvfs info {};
    int result;
    do {
        result = statvfs(folder_part(path).c_str(), &info);
    } while (result != 0 && errno == EINTR);
    if (result != 0) return errno;
    *bytes = static_cast<uint64_t>(info.f_bavail) * info.f_frsize;
    return 0;
}

}  // namespace tarn

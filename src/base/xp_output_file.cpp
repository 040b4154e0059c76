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
#include <string_view>
#include <utility>

namespace tarn {
namespace {

constexpr std::string_view kMark = "tarn-";  // tells our hidden files from anybody else's
constexpr size_t kRandomLength = 8;
constexpr size_t kMarkedLength = kMark.size() + kRandomLength;
constexpr int kNameAttempts = 16;
constexpr time_t kLeftOverAge = 60;  // seconds without a write
constexpr mode_t kPermissionBits = 0777;
constexpr std::string_view kRandomLetters = "abcdefghijklmnopqrstuvwxyz012345";  // 32: no bias
constexpr std::string_view kSuffixes[] = {".part", ".$$$"};

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

std::string marked_part() {
    unsigned char bytes[kRandomLength] = {};
    if (getrandom(bytes, sizeof bytes, 0) < 0) {
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC, &now);
        const auto seed = static_cast<uint64_t>(now.tv_nsec) ^ static_cast<uint64_t>(getpid());
        for (size_t i = 0; i < kRandomLength; ++i)
            bytes[i] = static_cast<unsigned char>(seed >> (5 * i));
    }
    std::string text(kMark);
    for (const unsigned char byte : bytes)
        text += kRandomLetters[byte % 32];
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

// Whether a hidden name is of our making: ".<name>.tarn-<random>.part".
bool is_hidden_name(std::string_view name) {
    for (const std::string_view suffix : kSuffixes) {
        if (!name.ends_with(suffix) || name.size() < kMarkedLength + suffix.size() + 3) continue;
        name.remove_suffix(suffix.size());
        std::string_view marked = name.substr(name.size() - kMarkedLength);
        name.remove_suffix(kMarkedLength);
        if (name.front() != '.' || name.back() != '.' || !marked.starts_with(kMark)) return false;
        marked.remove_prefix(kMark.size());
        return marked.find_first_not_of(kRandomLetters) == std::string_view::npos;
    }
    return false;
}

bool is_left_over(const struct stat& info) {
    return S_ISREG(info.st_mode) && info.st_uid == geteuid() &&
           info.st_mtime < time(nullptr) - kLeftOverAge;
}

// The way to an open file that has no name.
std::string path_of(int descriptor) {
    return "/proc/self/fd/" + std::to_string(descriptor);
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

int XpOutputFile::Create(const std::string& target, Existing existing, const std::string& suffix,
                         Until until) {
    Discard();
    m_existing = existing;
    m_suffix = suffix;
    mode_t keptMode = 0;
    int error = FindTarget(target, &keptMode);
    if (error == 0) {
        RemoveLeftOvers();
        const bool nameless = until == Until::kNameless && OpenNameless() == 0;
        if (!nameless) error = OpenHidden();
    }
    // A file system without permissions refuses; then there are none to pass on.
    if (error == 0 && keptMode != 0 && fchmod(m_file.Descriptor(), keptMode) != 0 && errno != EPERM)
        error = errno;
    if (error != 0) Discard();
    return error;
}

std::string XpOutputFile::TemporaryPath() const {
    return m_temporary.empty() ? path_of(m_file.Descriptor()) : m_folderPath + m_temporary;
}

// 0 only where the file can be given a name later, which takes a way to it.
int XpOutputFile::OpenNameless() {
    m_file.Adopt(openat(m_folder, ".", O_TMPFILE | O_RDWR | O_CLOEXEC, 0666));
    struct stat info {};
    if (m_file.IsOpen() && stat(path_of(m_file.Descriptor()).c_str(), &info) == 0) return 0;
    static_cast<void>(m_file.Close());
    return EOPNOTSUPP;
}

// What a hidden name of the target begins with: as much of its name as there is room for.
int XpOutputFile::HiddenPrefix(std::string* prefix) const {
    const long longest = pathconf(m_folderPath.c_str(), _PC_NAME_MAX);
    const size_t limit = longest > 0 ? static_cast<size_t>(longest) : NAME_MAX;
    const size_t fixed = 2 + kMarkedLength + m_suffix.size();
    if (fixed >= limit || m_suffix.find('/') != std::string::npos) return EINVAL;
    prefix->assign(1, '.').append(shortened(m_name, limit - fixed)).append(1, '.');
    return 0;
}

// Calls take(name), which answers 0 or errno, with hidden names until one is free.
template <typename Take>
int XpOutputFile::TakeHiddenName(Take take) {
    std::string prefix;
    int error = HiddenPrefix(&prefix);
    for (int attempt = 0; error == 0 && attempt < kNameAttempts; ++attempt) {
        const std::string name = prefix + marked_part() + m_suffix;
        error = take(name);
        if (error == 0) m_temporary = name;
        if (error != EEXIST && error != EINTR) return error;
        error = 0;
    }
    return error != 0 ? error : EEXIST;
}

int XpOutputFile::OpenHidden() {
    const int error = TakeHiddenName([this](const std::string& name) {
        m_file.Adopt(openat(m_folder, name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
        return m_file.IsOpen() ? 0 : errno;
    });
    // Marks the file as alive for RemoveLeftOvers; where locks are lacking its age does.
    if (error == 0) static_cast<void>(flock(m_file.Descriptor(), LOCK_EX | LOCK_NB));
    return error;
}

// Hidden files whose program was killed. Nothing here may fail the save.
void XpOutputFile::RemoveLeftOvers() const {
    const int readable = openat(m_folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (readable < 0) return;
    const std::unique_ptr<DIR, CloseFolder> folder(fdopendir(readable));
    if (!folder) {
        close(readable);
        return;
    }
    while (const dirent* entry = readdir(folder.get())) {
        if (!is_hidden_name(entry->d_name)) continue;
        XpFile file;
        file.Adopt(openat(m_folder, entry->d_name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        struct stat info {};
        if (file.IsOpen() && fstat(file.Descriptor(), &info) == 0 && is_left_over(info) &&
            flock(file.Descriptor(), LOCK_EX | LOCK_NB) == 0)
            unlinkat(m_folder, entry->d_name, 0);
    }
}

// The target's name, for a file that has a hidden one or none.
int XpOutputFile::GiveName() {
    const auto link = [this](const std::string& name) {
        const std::string path = path_of(m_file.Descriptor());
        return linkat(AT_FDCWD, path.c_str(), m_folder, name.c_str(), AT_SYMLINK_FOLLOW) != 0
                   ? errno
                   : 0;
    };
    const bool nameless = m_temporary.empty();
    if (m_existing == Existing::kRefuse)
        return nameless ? link(m_name) : XpRenameNew(m_folder, m_temporary, m_name);
    // Only a rename replaces, and only what has a name can be renamed.
    if (nameless)
        if (const int error = TakeHiddenName(link)) return error;
    return renameat(m_folder, m_temporary.c_str(), m_folder, m_name.c_str()) != 0 ? errno : 0;
}

int XpOutputFile::Commit() {
    if (!m_file.IsOpen()) return EBADF;
    int error = m_file.Sync();
    if (error == 0) error = GiveName();
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

#include "base/xp_dir.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <utility>

namespace tarn {
namespace {

struct CloseFolder {
    void operator()(DIR* folder) const { closedir(folder); }
};

// False for an entry that has gone since its name was read.
bool describe(int folder, XpDirEntry* entry) {
    struct stat info {};
    if (fstatat(folder, entry->name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0)
        return errno != ENOENT;
    entry->isLink = S_ISLNK(info.st_mode);
    if (entry->isLink && fstatat(folder, entry->name.c_str(), &info, 0) != 0) return true;
    entry->modified = info.st_mtime;
    if (S_ISDIR(info.st_mode)) entry->type = XpDirEntry::Type::kFolder;
    if (S_ISREG(info.st_mode)) {
        entry->type = XpDirEntry::Type::kFile;
        entry->size = static_cast<uint64_t>(info.st_size);
    }
    return true;
}

bool is_folder(const std::string& path) {
    struct stat info {};
    return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

}  // namespace

bool XpDir::Exists() const {
    return is_folder(m_path);
}

int XpDir::List(std::vector<XpDirEntry>* entries) const {
    entries->clear();
    const std::unique_ptr<DIR, CloseFolder> folder(opendir(m_path.c_str()));
    if (!folder) return errno;

    std::vector<XpDirEntry> found;
    for (;;) {
        errno = 0;
        const dirent* next = readdir(folder.get());
        if (!next && errno != 0) return errno;
        if (!next) break;
        XpDirEntry entry;
        entry.name = next->d_name;
        if (entry.name != "." && entry.name != ".." && describe(dirfd(folder.get()), &entry))
            found.push_back(std::move(entry));
    }
    std::sort(found.begin(), found.end(),
              [](const XpDirEntry& a, const XpDirEntry& b) { return a.name < b.name; });
    *entries = std::move(found);
    return 0;
}

int XpDir::Make(mode_t mode) const {
    if (m_path.empty()) return ENOENT;
    for (size_t end = 0; end != std::string::npos;) {
        end = m_path.find('/', end + 1);
        const std::string part = m_path.substr(0, end);
        // Another program may make it at the same moment: what counts is that it is there.
        if (mkdir(part.c_str(), mode) == 0) continue;
        const int error = errno;
        if (!is_folder(part)) return error == EEXIST ? ENOTDIR : error;
    }
    return 0;
}

}  // namespace tarn

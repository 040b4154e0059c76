// xp_dir.h - a folder: is it there, what is in it, make it.
//
// Calls answer 0 or errno.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <ctime>
#include <string>
#include <utility>
#include <vector>

namespace tarn {

struct XpDirEntry {
    enum class Type { kFile, kFolder, kOther };  // kOther: a pipe, a device, a link to nowhere

    std::string name;
    Type type = Type::kOther;  // of what a link leads to
    bool isLink = false;
    uint64_t size = 0;    // bytes, of a file
    time_t modified = 0;  // seconds since 1970
};

class XpDir {
public:
    explicit XpDir(std::string path) : m_path(std::move(path)) {}
    const std::string& Path() const { return m_path; }

    bool Exists() const;
    // Sorted by the bytes of the names, hidden ones included, without "." and "..". After an error
    // `entries` is empty.
    [[nodiscard]] int List(std::vector<XpDirEntry>* entries) const;
    // With the folders above it. One that is there already is a success and keeps its permissions.
    [[nodiscard]] int Make(mode_t mode = 0777) const;

private:
    std::string m_path;
};

}  // namespace tarn

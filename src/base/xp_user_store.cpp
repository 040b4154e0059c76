#include "base/xp_user_store.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <vector>

#include "base/xp_dir.h"
#include "base/xp_path.h"

namespace tarn {
namespace {

constexpr mode_t kPrivate = 0700;

struct Place {
    const char* variable;
    const char* belowHome;
};

Place place_of(XpUserStore::Kind kind) {
    switch (kind) {
        case XpUserStore::Kind::kConfig:
            return {"XDG_CONFIG_HOME", ".config"};
        case XpUserStore::Kind::kData:
            return {"XDG_DATA_HOME", ".local/share"};
        case XpUserStore::Kind::kState:
            return {"XDG_STATE_HOME", ".local/state"};
        case XpUserStore::Kind::kCache:
            return {"XDG_CACHE_HOME", ".cache"};
        case XpUserStore::Kind::kRuntime:
            break;
    }
    return {"XDG_RUNTIME_DIR", nullptr};
}

// The variable's value when it is an absolute path, or nothing.
std::string absolute_value(const char* variable) {
    const char* value = getenv(variable);
    return value && value[0] == '/' ? value : "";
}

std::string home_folder() {
    std::string home = absolute_value("HOME");
    if (!home.empty()) return home;
    passwd entry{};
    passwd* found = nullptr;
    std::vector<char> texts(16 * 1024);
    if (getpwuid_r(geteuid(), &entry, texts.data(), texts.size(), &found) != 0 || !found) return "";
    return found->pw_dir && found->pw_dir[0] == '/' ? found->pw_dir : "";
}

// A folder itself, not a link to one, that belongs to this user and is open to nobody else.
bool is_private(const std::string& path) {
    struct stat info {};
    return lstat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode) && info.st_uid == geteuid() &&
           (info.st_mode & 077) == 0;
}

}  // namespace

int XpUserStore::Folder(Kind kind, std::string* path) const {
    path->clear();
    if (kind == Kind::kRuntime) return RuntimeFolder(path);
    const Place place = place_of(kind);
    std::string base = absolute_value(place.variable);
    if (base.empty()) {
        const std::string home = home_folder();
        if (home.empty()) return ENOENT;
        base = XpPath::Join(home, place.belowHome);
    }
    const std::string folder = XpPath::Join(base, m_application);
    const int error = XpDir(folder).Make(kPrivate);
    if (error == 0) *path = folder;
    return error;
}

int XpUserStore::RuntimeFolder(std::string* path) const {
    const std::string given = absolute_value(place_of(Kind::kRuntime).variable);
    std::string folder;
    if (!given.empty() && is_private(given)) {
        folder = XpPath::Join(given, m_application);
    } else {
        const std::string temporary = absolute_value("TMPDIR");
        folder = XpPath::Join(temporary.empty() ? "/tmp" : temporary,
                              m_application + "-" + std::to_string(geteuid()));
    }
    const int error = XpDir(folder).Make(kPrivate);
    if (error != 0) return error;
    if (!is_private(folder)) return EACCES;
    *path = folder;
    return 0;
}

}  // namespace tarn

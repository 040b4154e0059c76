// xp_user_store.h - the folders in which a program keeps what belongs to its user.
//
// By the XDG base directory rules: each kind has a variable of the environment and a default below
// the home folder. A value that is not absolute is ignored. Folders are made with mode 0700.
#pragma once

#include <string>

namespace tarn {

class XpUserStore {
public:
    enum class Kind {
        kConfig,   // settings
        kData,     // presets and all that a back-up should keep
        kState,    // window layout, recent clips: worth keeping, not worth a back-up
        kCache,    // may vanish at any time
        kRuntime,  // locks and sockets; gone after logout
    };

    // `application` names the folder in each place: "tarn-studio".
    explicit XpUserStore(std::string application) : m_application(std::move(application)) {}

    // The program's own folder of that kind, without a closing slash; it is made when it is not
    // there. ENOENT when the user has no home folder. Without a usable $XDG_RUNTIME_DIR the runtime
    // folder lies in the temporary folder; EACCES when somebody else could get into it.
    [[nodiscard]] int Folder(Kind kind, std::string* path) const;

private:
    int RuntimeFolder(std::string* path) const;

    std::string m_application;
};

}  // namespace tarn

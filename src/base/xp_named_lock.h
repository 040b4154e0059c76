// xp_named_lock.h - a lock that programs of one user know by its name.
//
// The lock is held on a file in a folder of the user's own (see XpUserStore, kRuntime). The system
// lets go of it when the program ends, however it ends. The empty file stays: to remove it would
// let two programs each lock a file of that name.
#pragma once

#include <string>

#include "base/xp_file.h"

namespace tarn {

class XpNamedLock {
public:
    // EWOULDBLOCK while another XpNamedLock holds the name, in this program or another one. Any
    // text but an empty one is a name. A lock held before is let go first.
    [[nodiscard]] int TryLock(const std::string& folder, const std::string& name);
    void Unlock() { m_file.Close(); }
    bool IsHeld() const { return m_file.IsOpen(); }

    // The name of the file: what is no letter, digit, dash or dot becomes %XX, so that two names
    // never share a file.
    static std::string FileName(const std::string& name);

private:
    XpFile m_file;
};

}  // namespace tarn

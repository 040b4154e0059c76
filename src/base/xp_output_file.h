// xp_output_file.h - a file that appears under its name complete or not at all.
//
// The bytes go to a hidden name in the target's own folder, ".<name>.<random>.part". Commit brings
// them to the medium and renames; until then the target's name is never touched. Without a Commit
// the destructor takes the hidden file away. A killed program can leave it behind, never under the
// target's name: the next output for the same target removes what has had no owner for an hour.
//
// Calls answer 0 or errno. The folder is held open: it may be moved or renamed meanwhile.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "base/xp_file.h"

namespace tarn {

class XpOutputFile {
public:
    enum class Existing {
        kRefuse,   // a target that is there is EEXIST, in Create and again in Commit
        kReplace,  // an ordinary file is replaced by rename and passes on its permissions; a link
                   // to one stays a link. A folder is EISDIR, anything else EEXIST
    };

    XpOutputFile() = default;
    ~XpOutputFile() { Discard(); }
    XpOutputFile(const XpOutputFile&) = delete;
    XpOutputFile& operator=(const XpOutputFile&) = delete;

    // `suffix` ends the hidden name. Permissions follow the umask.
    [[nodiscard]] int Create(const std::string& target, Existing existing = Existing::kRefuse,
                             const std::string& suffix = ".part");

    // Open for reading and writing between Create and Commit.
    XpFile& File() { return m_file; }
    // For a library that insists on a name. Valid until the folder moves.
    std::string TemporaryPath() const { return m_folderPath + m_temporary; }

    // After an error the target is as it was and the hidden file is gone, with one exception: when
    // only the folder could not be synced, the complete file stands under its name already.
    [[nodiscard]] int Commit();
    void Discard();

private:
    int FindTarget(const std::string& target, mode_t* keptMode);
    int OpenTemporary(const std::string& suffix);
    void RemoveLeftOvers(const std::string& prefix, const std::string& suffix) const;

    XpFile m_file;
    int m_folder = -1;
    Existing m_existing = Existing::kRefuse;
    std::string m_folderPath;  // ends with a slash
    std::string m_name;
    std::string m_temporary;  // empty when there is nothing to remove
};

// The ways of renaming without replacing, best first. The last claims the name with an empty file,
// which a kill in that instant would leave.
enum class XpRenameWay { kNoReplace, kLink, kClaim };

// Renames within a folder; EEXIST where anything has the name. Goes on to the next way when the
// file system lacks one.
[[nodiscard]] int XpRenameNew(int folder, const std::string& from, const std::string& to,
                              XpRenameWay way = XpRenameWay::kNoReplace);

// No room for a file: the disk is full, the quota is used up, or the file system or a limit does
// not allow one so large.
bool XpIsDiskFull(int error);

// Bytes that an ordinary user can still write in the folder of `path`, which need not exist itself.
[[nodiscard]] int XpFreeSpace(const std::string& path, uint64_t* bytes);

}  // namespace tarn

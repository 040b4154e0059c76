// xp_output_file.h - a file that appears under its name complete or not at all.
//
// The bytes go to a file without a name in the target's own folder; Commit brings them to the
// medium and gives it the name, which is never touched before. Without a Commit, and when the
// program is killed, the system takes the file away.
//
// Where a file system can't make files without a name, it has a hidden one,
// ".<name>.tarn-<random>.part", and is locked as long as it is written. A killed program leaves it,
// never under the target's name: the next output into that folder removes hidden files of ours that
// nobody holds and that have not been written for a minute.
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
    // How the file stands in its folder until Commit.
    enum class Until {
        kNameless,  // where the file system can; else hidden
        kHidden,
    };

    XpOutputFile() = default;
    ~XpOutputFile() { Discard(); }
    XpOutputFile(const XpOutputFile&) = delete;
    XpOutputFile& operator=(const XpOutputFile&) = delete;

    // `suffix` ends a hidden name. Permissions follow the umask.
    [[nodiscard]] int Create(const std::string& target, Existing existing = Existing::kRefuse,
                             const std::string& suffix = ".part", Until until = Until::kNameless);

    // Open for reading and writing between Create and Commit.
    XpFile& File() { return m_file; }
    // For whoever wants to open it a second time. Valid in this process, between Create and Commit;
    // that of a hidden file until the folder moves.
    std::string TemporaryPath() const;

    // After an error the target is as it was and the hidden file is gone, with one exception: when
    // only the folder could not be synced, the complete file stands under its name already.
    [[nodiscard]] int Commit();
    void Discard();

private:
    int FindTarget(const std::string& target, mode_t* keptMode);
    int OpenNameless();
    int OpenHidden();
    int HiddenPrefix(std::string* prefix) const;
    template <typename Take>
    int TakeHiddenName(Take take);
    int GiveName();
    void RemoveLeftOvers() const;

    XpFile m_file;
    int m_folder = -1;
    Existing m_existing = Existing::kRefuse;
    std::string m_folderPath;  // ends with a slash
    std::string m_name;
    std::string m_suffix;     // of a hidden name
    std::string m_temporary;  // the hidden name; empty when there is nothing to remove
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

#include "base/xp_output_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "support/temp_dir.h"

namespace tarn {
namespace {

using Existing = XpOutputFile::Existing;
using Until = XpOutputFile::Until;
constexpr Until kBothWays[] = {Until::kNameless, Until::kHidden};

void WriteText(XpFile& file, const std::string& text) {
    uint64_t done = 0;
    ASSERT_EQ(file.Write(text.data(), text.size(), &done), 0);
}

int ModeOf(const std::string& path) {
    return static_cast<int>(std::filesystem::status(path).permissions());
}

bool CanBeNameless(const TempDir& dir) {
    XpFile file;
    file.Adopt(open(dir.Path("").c_str(), O_TMPFILE | O_RDWR, 0600));
    return file.IsOpen();
}

TEST(XpOutputFile, AppearsWholeOrNotAtAll) {
    for (const Until until : kBothWays) {
        SCOPED_TRACE(static_cast<int>(until));
        TempDir dir;
        {
            XpOutputFile output;
            ASSERT_EQ(output.Create(dir.Path("song.mp4"), Existing::kRefuse, ".part", until), 0);
            WriteText(output.File(), "half");
            XpFile again;
            EXPECT_EQ(again.Open(output.TemporaryPath(), XpFile::Mode::kRead), 0);
            const std::string hidden = std::filesystem::path(output.TemporaryPath()).filename();
            const bool has_name = until == Until::kHidden || !CanBeNameless(dir);
            EXPECT_EQ(hidden.starts_with(".song.mp4.tarn-") && hidden.ends_with(".part"), has_name);
            EXPECT_EQ(dir.FileCount(), has_name ? 1u : 0u);
        }
        EXPECT_EQ(dir.FileCount(), 0u) << "without a commit nothing stays";

        const mode_t mask = umask(027);
        XpOutputFile output;
        ASSERT_EQ(output.Create(dir.Path("song.wav"), Existing::kRefuse, ".$$$", until), 0);
        umask(mask);
        WriteText(output.File(), "whole");
        EXPECT_EQ(output.Commit(), 0);
        EXPECT_EQ(output.Commit(), EBADF);
        EXPECT_EQ(dir.Read("song.wav"), "whole");
        EXPECT_EQ(ModeOf(dir.Path("song.wav")), 0640);

        XpOutputFile late;
        ASSERT_EQ(late.Create(dir.Path("song.mp4"), Existing::kRefuse, ".part", until), 0);
        dir.Write("song.mp4", "came first");
        EXPECT_EQ(late.Commit(), EEXIST);
        EXPECT_EQ(dir.Read("song.mp4"), "came first");
        EXPECT_EQ(dir.FileCount(), 2u);
    }
}

TEST(XpOutputFile, RefusesBeforeAnyWork) {
    TempDir dir;
    dir.Write("there", "x");
    ASSERT_EQ(mkdir(dir.Path("folder").c_str(), 0700), 0);
    ASSERT_EQ(mkfifo(dir.Path("pipe").c_str(), 0600), 0);
    ASSERT_EQ(symlink("nowhere", dir.Path("dangling").c_str()), 0);
    const size_t before = dir.FileCount();
    using enum XpOutputFile::Existing;
    const std::tuple<std::string, Existing, int> cases[] = {
        {dir.Path("there"), kRefuse, EEXIST},
        {dir.Path("dangling"), kRefuse, EEXIST},
        {dir.Path("folder"), kReplace, EISDIR},
        {dir.Path("folder/"), kReplace, EISDIR},
        {dir.Path("pipe"), kReplace, EEXIST},
        {dir.Path("none/song"), kRefuse, ENOENT},
        {dir.Path("there/song"), kRefuse, ENOTDIR},
        {"", kReplace, ENOENT},
        {dir.Path(std::string(256, 'n')), kRefuse, ENAMETOOLONG},
    };
    for (const auto& [target, existing, error] : cases) {
        XpOutputFile output;
        EXPECT_EQ(output.Create(target, existing), error) << target;
        EXPECT_FALSE(output.File().IsOpen());
    }
    EXPECT_EQ(dir.FileCount(), before);
}

TEST(XpOutputFile, ReplacesByRename) {
    TempDir dir;
    dir.Write("song.wav", "old");
    ASSERT_EQ(chmod(dir.Path("song.wav").c_str(), 0600), 0);
    ASSERT_EQ(symlink("song.wav", dir.Path("link.wav").c_str()), 0);
    std::ifstream reader(dir.Path("song.wav"));
    XpOutputFile output;
    ASSERT_EQ(output.Create(dir.Path("link.wav"), Existing::kReplace), 0);
    WriteText(output.File(), "new");
    EXPECT_EQ(dir.Read("song.wav"), "old");
    ASSERT_EQ(output.Commit(), 0);
    EXPECT_EQ(dir.Read("song.wav"), "new");
    EXPECT_TRUE(std::filesystem::is_symlink(dir.Path("link.wav")));
    EXPECT_EQ(ModeOf(dir.Path("song.wav")), 0600) << "a private file stays private";
    std::string text;
    EXPECT_TRUE(reader >> text && text == "old") << "whoever plays the old file keeps it";
}

TEST(XpOutputFile, KeepsToTheLongestNameAndFollowsItsFolder) {
    TempDir dir;
    ASSERT_EQ(mkdir(dir.Path("a").c_str(), 0700), 0);
    // Letters of two bytes: a plain cut at 235 of them would split one.
    std::string name;
    for (int i = 0; i < 127; ++i)
        name += "\xC3\xA4";
    XpOutputFile output;
    ASSERT_EQ(output.Create(dir.Path("a/" + name), Existing::kRefuse, ".part", Until::kHidden), 0);
    const std::string hidden = std::filesystem::path(output.TemporaryPath()).filename();
    EXPECT_EQ(hidden.substr(0, 235), "." + name.substr(0, 234));
    EXPECT_EQ(hidden.size(), 254u);
    ASSERT_EQ(rename(dir.Path("a").c_str(), dir.Path("b").c_str()), 0);
    EXPECT_EQ(output.Commit(), 0);
    EXPECT_TRUE(std::filesystem::exists(dir.Path("b/" + name)));
}

TEST(XpOutputFile, EveryWayOfRenamingRefusesToReplace) {
    for (const auto way : {XpRenameWay::kNoReplace, XpRenameWay::kLink, XpRenameWay::kClaim}) {
        SCOPED_TRACE(static_cast<int>(way));
        TempDir dir;
        dir.Write("from", "new");
        dir.Write("taken", "old");
        const int folder = open(dir.Path("").c_str(), O_PATH | O_DIRECTORY);
        EXPECT_EQ(XpRenameNew(folder, "from", "taken", way), EEXIST);
        EXPECT_EQ(XpRenameNew(folder, "none", "free", way), ENOENT);
        EXPECT_EQ(XpRenameNew(folder, "from", "free", way), 0);
        close(folder);
        EXPECT_EQ(dir.Read("free") + dir.Read("taken"), "newold");
        EXPECT_EQ(dir.FileCount(), 2u);
    }
}

// What a killed program left goes with the next save into that folder, unless it may be alive.
TEST(XpOutputFile, RemovesWhatAKilledSaveLeft) {
    TempDir dir;
    const timespec old[2] = {{1000, 0}, {1000, 0}};
    const struct {
        const char* name;
        bool aged, goes;
    } files[] = {
        {".song.mp4.tarn-abcdefgh.part", true, true},
        {".other.wav.tarn-ab012345.$$$", true, true},
        {".song.mp4.tarn-bcdefghi.part", false, false},  // written a moment ago
        {".song.mp4.download.part", true, false},        // others' from here on
        {".song.mp4.tarn-ABCDEFGH.part", true, false},
        {".song.mp4xtarn-abcdefgh.part", true, false},
        {"song.mp4.tarn-abcdefgh.part", true, false},
    };
    for (const auto& file : files) {
        dir.Write(file.name, "half");
        if (!file.aged) continue;
        ASSERT_EQ(utimensat(AT_FDCWD, dir.Path(file.name).c_str(), old, 0), 0);
    }
    XpOutputFile alive, output;
    ASSERT_EQ(alive.Create(dir.Path("a.mp4"), Existing::kRefuse, ".part", Until::kHidden), 0);
    ASSERT_EQ(utimensat(AT_FDCWD, alive.TemporaryPath().c_str(), old, 0), 0);
    ASSERT_EQ(output.Create(dir.Path("b.mp4")), 0);

    for (const auto& file : files)
        EXPECT_EQ(std::filesystem::exists(dir.Path(file.name)), !file.goes) << file.name;
    EXPECT_TRUE(std::filesystem::exists(alive.TemporaryPath()));
}

}  // namespace
}  // namespace tarn

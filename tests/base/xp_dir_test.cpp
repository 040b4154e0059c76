#include "base/xp_dir.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "support/temp_dir.h"

namespace tarn {
namespace {

TEST(XpDir, ListsByNameWithTypes) {
    TempDir dir;
    dir.Write("b.mp4", "12345");
    dir.Write(".hidden", "");
    ASSERT_EQ(mkdir(dir.Path("B").c_str(), 0700), 0);
    ASSERT_EQ(symlink("b.mp4", dir.Path("link").c_str()), 0);
    ASSERT_EQ(symlink("none", dir.Path("dangling").c_str()), 0);
    ASSERT_EQ(mkfifo(dir.Path("pipe").c_str(), 0600), 0);

    std::vector<XpDirEntry> entries;
    ASSERT_EQ(XpDir(dir.Path("")).List(&entries), 0);
    std::vector<std::string> lines;
    for (const auto& e : entries)
        lines.push_back(e.name + (e.isLink ? " link " : " ") +
                        std::to_string(static_cast<int>(e.type)) + " " + std::to_string(e.size));
    // File 0, folder 1, other 2.
    EXPECT_EQ(lines, (std::vector<std::string>{".hidden 0 0", "B 1 0", "b.mp4 0 5",
                                               "dangling link 2 0", "link link 0 5", "pipe 2 0"}));
    EXPECT_EQ(XpDir(dir.Path("b.mp4")).List(&entries), ENOTDIR);
    EXPECT_TRUE(entries.empty());
}

TEST(XpDir, MakesWithParents) {
    TempDir dir;
    dir.Write("file", "x");
    const XpDir deep(dir.Path("a//b/c/"));
    EXPECT_EQ(deep.Make(0700), 0);
    EXPECT_EQ(deep.Make(0755), 0) << "there already";
    EXPECT_TRUE(deep.Exists());
    struct stat info {};
    ASSERT_EQ(stat(dir.Path("a").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0700u);
    EXPECT_EQ(XpDir(dir.Path("file")).Make(), ENOTDIR);
    EXPECT_EQ(XpDir(dir.Path("file/a")).Make(), ENOTDIR);
    EXPECT_EQ(XpDir("").Make(), ENOENT);
    EXPECT_FALSE(XpDir(dir.Path("file")).Exists());
}

}  // namespace
}  // namespace tarn

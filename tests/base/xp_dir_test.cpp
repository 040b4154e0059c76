#include "base/xp_dir.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "support/temp_dir.h"

namespace tarn {
namespace {

TEST(XpDir, ListsByNameWithTypes) {
    using Type = XpDirEntry::Type;
    TempDir dir;
    dir.Write("b.mp4", "12345");
    dir.Write(".hidden", "");
    ASSERT_EQ(mkdir(dir.Path("B").c_str(), 0700), 0);
    ASSERT_EQ(symlink("b.mp4", dir.Path("link").c_str()), 0);
    ASSERT_EQ(symlink("none", dir.Path("dangling").c_str()), 0);
    ASSERT_EQ(mkfifo(dir.Path("pipe").c_str(), 0600), 0);

    std::vector<XpDirEntry> entries;
    ASSERT_EQ(XpDir(dir.Path("")).List(&entries), 0);
    const struct {
        const char* name;
        Type type;
        bool isLink;
        uint64_t size;
    } expected[] = {
        {".hidden", Type::kFile, false, 0}, {"B", Type::kFolder, false, 0},
        {"b.mp4", Type::kFile, false, 5},   {"dangling", Type::kOther, true, 0},
        {"link", Type::kFile, true, 5},     {"pipe", Type::kOther, false, 0},
    };
    ASSERT_EQ(entries.size(), std::size(expected));
    for (size_t i = 0; i < entries.size(); ++i) {
        SCOPED_TRACE(expected[i].name);
        EXPECT_EQ(entries[i].name, expected[i].name);
        EXPECT_EQ(entries[i].type, expected[i].type);
        EXPECT_EQ(entries[i].isLink, expected[i].isLink);
        EXPECT_EQ(entries[i].size, expected[i].size);
    }
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

#include "base/xp_user_store.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "base/xp_named_lock.h"
#include "support/temp_dir.h"

namespace tarn {
namespace {

using Kind = XpUserStore::Kind;

// An environment of the test's own.
class XpUserStoreTest : public testing::Test {
protected:
    XpUserStoreTest() {
        for (const char* kind : {"CONFIG_HOME", "DATA_HOME", "STATE_HOME", "CACHE_HOME"})
            unsetenv((std::string("XDG_") + kind).c_str());
        setenv("HOME", m_dir.Path("home").c_str(), 1);
        setenv("TMPDIR", m_dir.Path(".").c_str(), 1);
    }
    ~XpUserStoreTest() override { setenv("TMPDIR", m_before.c_str(), 1); }
    std::string FolderOf(Kind kind) const {
        std::string path;
        const int error = XpUserStore("tarn-studio").Folder(kind, &path);
        return error == 0 ? path : "error " + std::to_string(error);
    }
    std::string FallBack() const {
        return m_dir.Path("./tarn-studio-" + std::to_string(geteuid()));
    }

    const std::string m_before = std::filesystem::temp_directory_path();
    TempDir m_dir;
};

TEST_F(XpUserStoreTest, FollowsVariablesAndDefaults) {
    const struct {
        Kind kind;
        const char *variable, *standard;
    } cases[] = {
        {Kind::kConfig, "XDG_CONFIG_HOME", "home/.config/tarn-studio"},
        {Kind::kData, "XDG_DATA_HOME", "home/.local/share/tarn-studio"},
        {Kind::kState, "XDG_STATE_HOME", "home/.local/state/tarn-studio"},
        {Kind::kCache, "XDG_CACHE_HOME", "home/.cache/tarn-studio"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.variable);
        EXPECT_EQ(FolderOf(c.kind), m_dir.Path(c.standard));
        setenv(c.variable, "relative/path", 1);
        EXPECT_EQ(FolderOf(c.kind), m_dir.Path(c.standard));
        setenv(c.variable, m_dir.Path(c.variable).c_str(), 1);
        EXPECT_EQ(FolderOf(c.kind), m_dir.Path(std::string(c.variable) + "/tarn-studio"));
        struct stat info {};
        ASSERT_EQ(stat(FolderOf(c.kind).c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 0777, 0700u);
    }
}

TEST_F(XpUserStoreTest, KeepsTheRuntimeFolderPrivate) {
    ASSERT_EQ(mkdir(m_dir.Path("run").c_str(), 0700), 0);
    setenv("XDG_RUNTIME_DIR", m_dir.Path("run").c_str(), 1);
    EXPECT_EQ(FolderOf(Kind::kRuntime), m_dir.Path("run/tarn-studio"));

    ASSERT_EQ(chmod(m_dir.Path("run").c_str(), 0755), 0);
    EXPECT_EQ(FolderOf(Kind::kRuntime), FallBack()) << "open to others";
    ASSERT_EQ(chmod(FallBack().c_str(), 0777), 0);
    EXPECT_EQ(FolderOf(Kind::kRuntime), "error " + std::to_string(EACCES));
    ASSERT_EQ(rmdir(FallBack().c_str()), 0);
    ASSERT_EQ(mkdir(m_dir.Path("elsewhere").c_str(), 0700), 0);
    ASSERT_EQ(symlink("elsewhere", FallBack().c_str()), 0);
    EXPECT_EQ(FolderOf(Kind::kRuntime), "error " + std::to_string(EACCES)) << "a link laid there";
}

TEST(XpNamedLock, OneHolderAtATime) {
    TempDir dir;
    const std::string name = "Global\\Tarnstudio-Installer";
    EXPECT_EQ(XpNamedLock::FileName(name), "Global%5CTarnstudio-Installer.lock");
    EXPECT_EQ(XpNamedLock::FileName("../a_%\xC3\xA4"), "..%2Fa%5F%25%C3%A4.lock");
    XpNamedLock first, second, other;
    EXPECT_EQ(first.TryLock(dir.Path(""), ""), EINVAL);
    EXPECT_EQ(first.TryLock(dir.Path("none"), name), ENOENT);
    ASSERT_EQ(first.TryLock(dir.Path(""), name), 0);
    EXPECT_EQ(second.TryLock(dir.Path(""), name), EWOULDBLOCK);
    EXPECT_FALSE(second.IsHeld());
    EXPECT_EQ(other.TryLock(dir.Path(""), "Tarn studio"), 0);
    first.Unlock();
    EXPECT_EQ(second.TryLock(dir.Path(""), name), 0);
}

}  // namespace
}  // namespace tarn

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
using std::filesystem::perms;

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
    const std::tuple<Kind, std::string, std::string> cases[] = {
        {Kind::kConfig, "XDG_CONFIG_HOME", "home/.config/tarn-studio"},
        {Kind::kData, "XDG_DATA_HOME", "home/.local/share/tarn-studio"},
        {Kind::kState, "XDG_STATE_HOME", "home/.local/state/tarn-studio"},
        {Kind::kCache, "XDG_CACHE_HOME", "home/.cache/tarn-studio"},
    };
    for (const auto& [kind, variable, standard] : cases) {
        SCOPED_TRACE(variable);
        EXPECT_EQ(FolderOf(kind), m_dir.Path(standard));
        setenv(variable.c_str(), "relative/path", 1);
        EXPECT_EQ(FolderOf(kind), m_dir.Path(standard));
        setenv(variable.c_str(), m_dir.Path(variable).c_str(), 1);
        EXPECT_EQ(FolderOf(kind), m_dir.Path(variable + "/tarn-studio"));
        EXPECT_EQ(std::filesystem::status(FolderOf(kind)).permissions(), perms::owner_all);
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
    const TempDir dir;
    EXPECT_EQ(XpNamedLock::FileName("../a_%\xC3\xA4\\"), "..%2Fa%5F%25%C3%A4%5C.lock");
    XpNamedLock first, second;
    ASSERT_EQ(first.TryLock(dir.Path(""), "Tarn studio"), 0);
    EXPECT_EQ(second.TryLock(dir.Path(""), "Tarn studio"), EWOULDBLOCK);
    EXPECT_EQ(second.TryLock(dir.Path(""), "Tarn"), 0);
}

}  // namespace
}  // namespace tarn

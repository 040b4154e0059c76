// The small wrappers of the system's paths, files, folders, dates and threads.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <cstdlib>
#include <mutex>

#include "base/xp_datetime.h"
#include "base/xp_dir.h"
#include "base/xp_event.h"
#include "base/xp_file.h"
#include "base/xp_named_lock.h"
#include "base/xp_path.h"
#include "base/xp_thread.h"
#include "base/xp_user_store.h"
#include "support/temp_dir.h"

namespace tarn {
namespace {

using namespace std::chrono_literals;

TEST(XpPath, TakesPathsApart) {
    const std::tuple<const char*, const char*, const char*, const char*, const char*> cases[] = {
        {"/media/card/CLIP.MP4", "/media/card", "CLIP.MP4", "CLIP", ".MP4"},
        {"a//b.tar.gz", "a", "b.tar.gz", "b.tar", ".gz"},
        {"/clip.", "/", "clip.", "clip.", ""},
        {"//x", "/", "x", "x", ""},
        {".hidden", ".", ".hidden", ".hidden", ""},
        {"..hidden.wav", ".", "..hidden.wav", "..hidden", ".wav"},
        {"a/b/", "a/b", "", "", ""},
        {"..", ".", "..", "..", ""},
        {"", ".", "", "", ""},
    };
    for (const auto& [path, folder, name, stem, extension] : cases) {
        SCOPED_TRACE(path);
        EXPECT_EQ(XpPath::Folder(path), folder);
        EXPECT_EQ(XpPath::FileName(path), name);
        EXPECT_EQ(XpPath::Stem(path), stem);
        EXPECT_EQ(XpPath::Extension(path), extension);
    }
    EXPECT_TRUE(XpPath::HasExtension("a.Mp4", ".mP4"));
    EXPECT_FALSE(XpPath::HasExtension("a.mp", ".mp4"));
    EXPECT_FALSE(XpPath::HasExtension("mp4", ".mp4"));
    EXPECT_EQ(XpPath::Join("a", "b"), "a/b");
    EXPECT_EQ(XpPath::Join("/", "b"), "/b");
    EXPECT_EQ(XpPath::Join("", "b"), "b");
    EXPECT_EQ(XpPath::Join("a", "/b"), "/b");
}

TEST(XpPath, PrintsWhatIsNoText) {
    const std::string bad = "\xEF\xBF\xBD";
    // Letters of one to four bytes, and those after and before the overrides of direction.
    const std::string good = "a\xC3\xA4\xE2\x82\xAC\xF0\x9D\x84\x9E\xE2\x80\xAF\xE2\x81\xA5";
    const std::pair<std::string, std::string> cases[] = {
        {good, good},                                                     // text
        {"M\xFC.mp4", "M" + bad + ".mp4"},                                // Latin-1
        {"a\n\x1B[31m", "a" + bad + bad + "[31m"},                        // line feed and escape
        {"a\xE2\x82", "a" + bad + bad},                                   // cut off
        {"\xC0\xAF", bad + bad},                                          // overlong slash
        {"\xE0\x80\xAF", bad + bad + bad},                                // overlong of three
        {"\xED\xA0\x80", bad + bad + bad},                                // surrogate
        {"\xF4\x90\x80\x80", bad + bad + bad + bad},                      // past the last
        {"\x7F\xC2\x9F\xC2\xA0", bad + bad + bad + "\xC2\xA0"},           // DEL, the last control
        {"\xED\x9F\xBF\xEE\x80\x80", "\xED\x9F\xBF\xEE\x80\x80"},         // around the surrogates
        {"\xE2\x81\xA6\xE2\x81\xA9", bad + bad + bad + bad + bad + bad},  // isolates
        {"\xE2\x80\xA8\xE2\x81\xAA", bad + bad + bad + "\xE2\x81\xAA"},   // line separator
        {"\xC2\x9B", bad + bad},                                          // C1 control
        {"\xE2\x80\xAE", bad + bad + bad},                                // right-to-left override
    };
    for (const auto& [path, text] : cases)
        EXPECT_EQ(XpPath::Printable(path), text);
}

TEST(XpFile, RefusesWhatIsNoFile) {
    TempDir dir;
    ASSERT_EQ(mkfifo(dir.Path("pipe").c_str(), 0600), 0);
    dir.Write("there", "x");
    using enum XpFile::Mode;
    const std::tuple<const char*, XpFile::Mode, int> cases[] = {
        {"pipe", kRead, ESPIPE},  // must not wait for a writer
        {"none", kRead, ENOENT},       {"", kRead, EISDIR},
        {"there", kCreateNew, EEXIST}, {"no/such", kCreateNew, ENOENT},
    };
    for (const auto& [name, mode, error] : cases) {
        XpFile file;
        EXPECT_EQ(file.Open(dir.Path(name), mode), error) << name;
        EXPECT_FALSE(file.IsOpen());
    }
    EXPECT_EQ(dir.Read("there"), "x");
}

TEST(XpFile, ReadsAndWritesPastFourGigabytes) {
    TempDir dir;
    XpFile file;
    ASSERT_EQ(file.Open(dir.Path("big"), XpFile::Mode::kCreateNew), 0);
    const int64_t far = int64_t{5} << 30;
    uint64_t done = 0, at = 0;
    ASSERT_EQ(file.Seek(far, XpFile::Origin::kStart, &at), 0);
    ASSERT_EQ(file.Write("tail", 4, &done), 0);
    ASSERT_EQ(file.GetLength(&at), 0);
    EXPECT_EQ(at, static_cast<uint64_t>(far) + 4);
    char text[8] = {};
    ASSERT_EQ(file.ReadAt(static_cast<uint64_t>(far) + 1, text, 8, &done), 0);
    EXPECT_EQ(done, 3u) << "short only at the end";
    EXPECT_STREQ(text, "ail");
    EXPECT_EQ(file.ReadAt(UINT64_MAX, text, 1, &done), EOVERFLOW);
    EXPECT_EQ(file.Seek(-1, XpFile::Origin::kStart, &at), EINVAL);
    EXPECT_EQ(file.LastError(), EINVAL);
    ASSERT_EQ(file.Seek(-2, XpFile::Origin::kEnd, &at), 0);
    ASSERT_EQ(file.Seek(-1, XpFile::Origin::kCurrent, &at), 0);
    EXPECT_EQ(at, static_cast<uint64_t>(far) + 1);
    XpFile moved = std::move(file);
    EXPECT_FALSE(file.IsOpen());
    ASSERT_EQ(moved.Read(text, 8, &done), 0);
    EXPECT_EQ(done, 3u);
    EXPECT_EQ(moved.LastError(), EINVAL) << "kept until another file is opened";
    EXPECT_EQ(moved.Close(), 0);
    EXPECT_EQ(moved.Write("x", 1, &done), EBADF);
    EXPECT_EQ(moved.GetLength(&at), EBADF);
    EXPECT_EQ(moved.Sync(), EBADF);
    ASSERT_EQ(moved.Open(dir.Path("big"), XpFile::Mode::kReadWrite), 0);
    EXPECT_EQ(moved.LastError(), 0);
    EXPECT_EQ(moved.ReadAt(INT64_MAX - 3, text, 4, &done), EOVERFLOW);
    EXPECT_EQ(moved.ReadAt(INT64_MAX - 4, text, 4, &done), 0);
    EXPECT_EQ(done, 0u);
}

TEST(XpDir, ListsByNameWithTypes) {
    TempDir dir;
    dir.Write("b.mp4", "12345");
    ASSERT_EQ(mkdir(dir.Path("B").c_str(), 0700), 0);
    ASSERT_EQ(symlink("b.mp4", dir.Path("link").c_str()), 0);
    ASSERT_EQ(symlink("none", dir.Path("dangling").c_str()), 0);
    std::vector<XpDirEntry> entries;
    ASSERT_EQ(XpDir(dir.Path("")).List(&entries), 0);
    std::string lines;
    for (const auto& e : entries)
        lines += e.name + (e.isLink ? " link " : " ") + std::to_string(static_cast<int>(e.type)) +
                 " " + std::to_string(e.size) + "\n";
    EXPECT_EQ(lines, "B 1 0\nb.mp4 0 5\ndangling link 2 0\nlink link 0 5\n");
    struct stat info {};
    ASSERT_EQ(stat(dir.Path("b.mp4").c_str(), &info), 0);
    EXPECT_EQ(entries[3].modified, info.st_mtime);
    EXPECT_EQ(XpDir(dir.Path("none")).List(&entries), ENOENT);
    EXPECT_TRUE(entries.empty());
}

TEST(XpDir, MakesWithParents) {
    TempDir dir;
    dir.Write("file", "x");
    const XpDir deep(dir.Path("a//b/c/"));
    EXPECT_EQ(deep.Make(0700), 0);
    EXPECT_EQ(deep.Make(0755), 0) << "there already";
    struct stat info {};
    ASSERT_EQ(stat(dir.Path("a").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0700u);
    EXPECT_EQ(XpDir(dir.Path("file")).Make(), ENOTDIR);
    EXPECT_EQ(XpDir(dir.Path("file/a")).Make(), ENOTDIR);
    EXPECT_EQ(XpDir("").Make(), ENOENT);
    EXPECT_FALSE(XpDir(dir.Path("file")).Exists());
}

TEST(XpDateTime, ConvertsBothWaysAndRefusesWhatDoesNotExist) {
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
    const XpDateTime utc{2026, 5, 31, 18, 15, 0}, local{2026, 5, 31, 20, 15, 0};
    XpDateTime date;
    time_t seconds = 0;
    EXPECT_EQ(XpDateTime::FromTimeUtc(1780251300, &date), 0);
    EXPECT_EQ(date, utc) << date.Text();
    EXPECT_EQ(XpDateTime::FromTimeLocal(1780251300, &date), 0);
    EXPECT_EQ(date, local) << date.Text();
    EXPECT_EQ(utc.ToTimeUtc(&seconds), 0);
    EXPECT_EQ(seconds, 1780251300);
    EXPECT_EQ(local.ToTimeLocal(&seconds), 0);
    EXPECT_EQ(seconds, 1780251300);
    EXPECT_EQ((XpDateTime{2016, 12, 31, 23, 59, 60}.ToTimeUtc(&seconds)), 0) << "a leap second";
    EXPECT_EQ(seconds, 1483228800);
    for (const XpDateTime& none : {XpDateTime{2023, 2, 29, 0, 0, 0},
                                   {2023, 13, 1, 0, 0, 0},
                                   {2023, 2, 1, 24, 0, 0},
                                   {2023, 2, 1, 0, 0, 61}})
        EXPECT_EQ(none.ToTimeUtc(&seconds), EINVAL) << none.Text();
    EXPECT_EQ((XpDateTime{2026, 3, 29, 2, 30, 0}.ToTimeLocal(&seconds)), EINVAL) << "skipped hour";
    const time_t last = 67767976233532799;  // of the last year that an int can hold
    EXPECT_EQ(XpDateTime::FromTimeUtc(last, &date), 0);
    EXPECT_EQ(date.Text(), "2147483647-12-31 23:59:59");
    EXPECT_EQ(XpDateTime::FromTimeUtc(last + 1, &date), EOVERFLOW);
    setenv("TZ", "UTC0", 1);
    tzset();
    const time_t before = time(nullptr);
    for (const XpDateTime& now : {XpDateTime::NowUtc(), XpDateTime::NowLocal()}) {
        EXPECT_EQ(now.ToTimeUtc(&seconds), 0);
        EXPECT_TRUE(before <= seconds && seconds <= time(nullptr)) << now.Text();
    }
}

TEST(XpEvent, ManualLetsAllThroughAutomaticOne) {
    for (const bool manual : {true, false}) {
        XpEvent event(manual ? XpEvent::Reset::kManual : XpEvent::Reset::kAutomatic);
        EXPECT_FALSE(event.WaitFor(0ms));
        event.Set();
        event.Set();
        EXPECT_TRUE(event.WaitFor(0ms));
        EXPECT_EQ(event.WaitFor(0ms), manual);
        event.Set();
        event.Clear();
        EXPECT_FALSE(event.WaitFor(0ms));
    }
}

TEST(XpThread, StopsWhenAskedAndAtTheEndOfItsOwner) {
    int ended = 0;
    const auto body = [&](const std::stop_token& stop) {
        std::mutex mutex;
        std::condition_variable_any changed;
        std::unique_lock lock(mutex);
        changed.wait(lock, stop, [] { return false; });
        ++ended;
    };
    {
        XpThread thread;
        thread.Join();
        ASSERT_EQ(thread.Start("a name longer than fifteen bytes", body), 0);
        EXPECT_TRUE(thread.IsRunning());
        EXPECT_EQ(thread.Start("second", body), EBUSY);
        thread.RequestStop();
        thread.Join();
        EXPECT_FALSE(thread.IsRunning());
        EXPECT_EQ(ended, 1);
        ASSERT_EQ(thread.Start("again", body), 0);
    }
    EXPECT_EQ(ended, 2);
}

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

TEST_F(XpUserStoreTest, SaysThatThereIsNoHome) {
    unsetenv("HOME");
    if (geteuid() != 0 || seteuid(54321) != 0) GTEST_SKIP() << "every ordinary user has one";
    const std::string folder = FolderOf(Kind::kConfig);
    ASSERT_EQ(seteuid(0), 0);
    EXPECT_EQ(folder, "error " + std::to_string(ENOENT));
}

TEST(XpNamedLock, OneHolderAtATime) {
    const TempDir dir;
    EXPECT_EQ(XpNamedLock::FileName("../a_%\xC3\xA4\\"), "..%2Fa%5F%25%C3%A4%5C.lock");
    XpNamedLock first, second;
    ASSERT_EQ(first.TryLock(dir.Path(""), "Tarn studio"), 0);
    EXPECT_EQ(second.TryLock(dir.Path(""), "Tarn studio"), EWOULDBLOCK);
    EXPECT_EQ(second.TryLock(dir.Path(""), "Tarn"), 0);
    EXPECT_EQ(second.TryLock(dir.Path(""), ""), EINVAL);
    EXPECT_EQ(second.TryLock(dir.Path("none"), "Tarn"), ENOENT);
    EXPECT_EQ(first.TryLock(dir.Path(""), "Tarn"), 0) << "a failed lock has let go of the old one";
    EXPECT_EQ(second.TryLock(dir.Path(""), "Tarn studio"), 0);
}

}  // namespace
}  // namespace tarn

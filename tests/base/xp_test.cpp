// The small wrappers of the system's paths, files, folders, dates and threads.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <mutex>

#include "base/xp_datetime.h"
#include "base/xp_dir.h"
#include "base/xp_event.h"
#include "base/xp_file.h"
#include "base/xp_path.h"
#include "base/xp_thread.h"
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
        {good, good},                                 // text
        {"M\xFC.mp4", "M" + bad + ".mp4"},            // Latin-1
        {"a\n\x1B[31m", "a" + bad + bad + "[31m"},    // line feed and escape
        {"a\xE2\x82", "a" + bad + bad},               // cut off
        {"\xC0\xAF", bad + bad},                      // overlong slash
        {"\xE0\x80\xAF", bad + bad + bad},            // overlong of three
        {"\xED\xA0\x80", bad + bad + bad},            // surrogate
        {"\xF4\x90\x80\x80", bad + bad + bad + bad},  // past the last
        {"\xC2\x9B", bad + bad},                      // C1 control
        {"\xE2\x80\xAE", bad + bad + bad},            // right-to-left override
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
    EXPECT_EQ((XpDateTime{2023, 2, 29, 0, 0, 0}.ToTimeUtc(&seconds)), EINVAL);
    EXPECT_EQ((XpDateTime{2026, 3, 29, 2, 30, 0}.ToTimeLocal(&seconds)), EINVAL) << "skipped hour";
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

}  // namespace
}  // namespace tarn

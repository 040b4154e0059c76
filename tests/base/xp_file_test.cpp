#include "base/xp_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>

#include "support/temp_dir.h"

namespace tarn {
namespace {

TEST(XpFile, RefusesWhatIsNoFile) {
    TempDir dir;
    ASSERT_EQ(mkfifo(dir.Path("pipe").c_str(), 0600), 0);
    dir.Write("there", "x");
    using enum XpFile::Mode;
    const struct {
        const char* name;
        XpFile::Mode mode;
        int error;
    } cases[] = {
        {"none", kRead, ENOENT},       {"", kRead, EISDIR},
        {"pipe", kRead, ESPIPE},  // must not wait for a writer
        {"there", kCreateNew, EEXIST}, {"no/such", kCreateNew, ENOENT},
    };
    for (const auto& c : cases) {
        XpFile file;
        EXPECT_EQ(file.Open(dir.Path(c.name), c.mode), c.error) << c.name;
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
    EXPECT_EQ(at, static_cast<uint64_t>(far));
    ASSERT_EQ(file.Write("tail", 4, &done), 0);
    ASSERT_EQ(file.GetLength(&at), 0);
    EXPECT_EQ(at, static_cast<uint64_t>(far) + 4);

    char text[8] = {};
    ASSERT_EQ(file.ReadAt(static_cast<uint64_t>(far) + 1, text, 8, &done), 0);
    EXPECT_EQ(done, 3u) << "short only at the end";
    EXPECT_STREQ(text, "ail");
    EXPECT_EQ(file.ReadAt(UINT64_MAX, text, 1, &done), EOVERFLOW);
    EXPECT_EQ(file.Seek(-1, XpFile::Origin::kStart, &at), EINVAL);
    EXPECT_EQ(file.Seek(0, XpFile::Origin::kStart, &at), 0);
    EXPECT_EQ(at, 0u);
}

}  // namespace
}  // namespace tarn

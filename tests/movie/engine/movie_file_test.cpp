#include "movie/engine/movie_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>

#include "support/atoms.h"
#include "support/movie_builder.h"
#include "support/temp_dir.h"

namespace tarn {
namespace {

TEST(MovieFile, TellsWhyAFileIsNoMovie) {
    TempDir dir;
    using enum ReasonCode;
    const auto write = [&](const char* name, const Bytes& bytes) {
        dir.Write(name, {bytes.begin(), bytes.end()});
        return dir.Path(name);
    };
    ASSERT_EQ(mkfifo(dir.Path("pipe").c_str(), 0600), 0);
    const std::string good = write("good", MovieBuilder{.tracks = {VideoTrack(3)}}.Build());
    const std::tuple<std::string, bool, ReasonCode, int> cases[] = {
        {dir.Path("none"), false, kCantOpen, ENOENT},
        {"", false, kCantOpen, ENOENT},
        {dir.Path(""), false, kCantOpen, EISDIR},
        {dir.Path("pipe"), false, kNotAFile, ESPIPE},
        {write("empty", {}), true, kEmptyFile, 0},
        {write("text", Text("Hello, w")), true, kNotAMovie, 0},
        {write("cut", Ftyp("isom", 0, {})), true, kNoMovieHeader, 0},
        {good, true, kNone, 0},
    };
    for (const auto& [path, opens, code, error] : cases) {
        SCOPED_TRACE(path);
        MovieFile file;
        ASSERT_EQ(file.Open(good), kMovieOk) << "what was open before must not show through";
        EXPECT_EQ(file.Open(path) == kMovieOk, opens);
        EXPECT_EQ(file.Session() != nullptr, opens);
        EXPECT_EQ((file.Flags() & kFileMovie) != 0, code == kNone);
        EXPECT_EQ(file.GetReason().code, code);
        EXPECT_EQ(file.GetReason().SystemError(), error);
        if (code == kNone) continue;
        EXPECT_EQ(file.GetReason().file, path);
        EXPECT_EQ(file.GetReason().side, ReasonSide::kSource);
    }
}

TEST(MovieFile, ReadsWhatTheFileHolds) {
    TempDir dir;
    dir.Write("m", "abcd");
    MovieFile file;
    ASSERT_EQ(file.OpenFile(dir.Path("m")), kMovieOk);
    std::vector<uint8_t> bytes;
    EXPECT_EQ(file.ReadBytes(1, 3, &bytes), kMovieOk);
    EXPECT_EQ(bytes, Text("bcd"));
    EXPECT_EQ(file.ReadBytes(4, 0, &bytes), kMovieOk);
    EXPECT_EQ(file.ReadBytes(2, 3, &bytes), movie_code(FF4_RET_FORMAT));
    EXPECT_EQ(file.ReadBytes(5, UINT64_MAX - 1, &bytes), movie_code(FF4_RET_FORMAT));

    EXPECT_TRUE(file.IsUnchanged());
    std::filesystem::resize_file(dir.Path("m"), 2);  // under the reader's hands
    EXPECT_FALSE(file.IsUnchanged());
    EXPECT_EQ(file.ReadBytes(1, 3, &bytes), kMovieSystem);
    EXPECT_EQ(file.ReasonFor(kMovieSystem).code, ReasonCode::kEndsEarly);
}

}  // namespace
}  // namespace tarn

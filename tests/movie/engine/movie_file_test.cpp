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
    const auto write = [&](const char* name, const Bytes& bytes) {
        dir.Write(name, {bytes.begin(), bytes.end()});
        return dir.Path(name);
    };
    ASSERT_EQ(mkfifo(dir.Path("pipe").c_str(), 0600), 0);
    const Bytes movie = MovieBuilder{.tracks = {VideoTrack(3)}}.Build();
    const std::string good = write("good", movie);
    const struct {
        const char* name;
        std::string path;
        bool opens;
        ReasonCode code;
        int error;
    } cases[] = {
        {"missing", dir.Path("none"), false, ReasonCode::kCantOpen, ENOENT},
        {"no path", "", false, ReasonCode::kCantOpen, ENOENT},
        {"a folder", dir.Path(""), false, ReasonCode::kCantOpen, EISDIR},
        {"a pipe", dir.Path("pipe"), false, ReasonCode::kNotAFile, ESPIPE},
        {"empty", write("empty", {}), true, ReasonCode::kEmptyFile, 0},
        {"text", write("text", Be32({0x48656C6C, 0x6F2C2077})), true, ReasonCode::kNotAMovie, 0},
        {"no movie header", write("cut", Atom("ftyp", Be32({fourcc("isom"), 0}))), true,
         ReasonCode::kNoMovieHeader, 0},
        {"good", good, true, ReasonCode::kNone, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        MovieFile file;
        ASSERT_EQ(file.Open(good), kMovieOk) << "what was open before must not show through";
        EXPECT_EQ(file.Open(c.path) == kMovieOk, c.opens);
        EXPECT_EQ(file.Session() != nullptr, c.opens);
        EXPECT_EQ((file.Flags() & kFileMovie) != 0, c.code == ReasonCode::kNone);
        EXPECT_EQ(file.GetReason().code, c.code);
        EXPECT_EQ(file.GetReason().SystemError(), c.error);
        if (c.code == ReasonCode::kNone) continue;
        EXPECT_EQ(file.GetReason().file, c.path);
        EXPECT_EQ(file.GetReason().side, ReasonSide::kSource);
    }
}

TEST(MovieFile, ReadsWhatTheFileHolds) {
    TempDir dir;
    dir.Write("m", {'a', 'b', 'c', 'd'});
    MovieFile file;
    ASSERT_EQ(file.OpenFile(dir.Path("m")), kMovieOk);
    std::vector<uint8_t> bytes;
    EXPECT_EQ(file.ReadBytes(1, 3, &bytes), kMovieOk);
    EXPECT_EQ(bytes, (Bytes{'b', 'c', 'd'}));
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

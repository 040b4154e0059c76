#include "base/xp_path.h"

#include <gtest/gtest.h>

namespace tarn {
namespace {

TEST(XpPath, TakesPathsApart) {
    const struct {
        const char *path, *folder, *name, *stem, *extension;
    } cases[] = {
        {"/media/card/CLIP.MP4", "/media/card", "CLIP.MP4", "CLIP", ".MP4"},
        {"a//b.tar.gz", "a", "b.tar.gz", "b.tar", ".gz"},
        {"clip", ".", "clip", "clip", ""},
        {"/clip.", "/", "clip.", "clip.", ""},
        {"//x", "/", "x", "x", ""},
        {".hidden", ".", ".hidden", ".hidden", ""},
        {"..hidden.wav", ".", "..hidden.wav", "..hidden", ".wav"},
        {"a.b/c", "a.b", "c", "c", ""},
        {"a/b/", "a/b", "", "", ""},
        {"..", ".", "..", "..", ""},
        {"", ".", "", "", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path);
        EXPECT_EQ(XpPath::Folder(c.path), c.folder);
        EXPECT_EQ(XpPath::FileName(c.path), c.name);
        EXPECT_EQ(XpPath::Stem(c.path), c.stem);
        EXPECT_EQ(XpPath::Extension(c.path), c.extension);
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
    const struct {
        const char* name;
        std::string path, text;
    } cases[] = {
        {"letters of one to four bytes", "a\xC3\xA4\xE2\x82\xAC\xF0\x9D\x84\x9E",
         "a\xC3\xA4\xE2\x82\xAC\xF0\x9D\x84\x9E"},
        {"Latin-1", "M\xFC.mp4", "M" + bad + ".mp4"},
        {"line feed and escape", "a\n\x1B[31m", "a" + bad + bad + "[31m"},
        {"cut off", "a\xE2\x82", "a" + bad + bad},
        {"overlong slash", "\xC0\xAF", bad + bad},
        {"overlong DEL", "\xC1\xBF", bad + bad},
        {"overlong of three", "\xE0\x80\xAF", bad + bad + bad},
        {"surrogate", "\xED\xA0\x80", bad + bad + bad},
        {"past the last", "\xF4\x90\x80\x80", bad + bad + bad + bad},
        {"C1 control", "\xC2\x9B", bad + bad},
        {"right-to-left override", "\xE2\x80\xAE", bad + bad + bad},
        {"after and before the overrides", "\xE2\x80\xAF\xE2\x81\xA5", "\xE2\x80\xAF\xE2\x81\xA5"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(XpPath::Printable(c.path), c.text) << c.name;
}

}  // namespace
}  // namespace tarn

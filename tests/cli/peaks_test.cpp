#include <gtest/gtest.h>
#include <png.h>

#include "cli/run_tarn.h"
#include "support/temp_dir.h"
#include "support/wave_builder.h"

namespace tarn {
namespace {

TEST(PeaksCommand, DrawsAPictureOnce) {
    TempDir dir;
    // 1202 frames, each a point of the waveform: left half up and full down in turn, right silent.
    std::vector<int> tone;
    for (int i = 0; i < 1202; i += 2)
        tone.insert(tone.end(), {0x4000, 0, -0x8000, 0});
    dir.Write("in.wav", WaveFile({}, WaveSound(tone)));
    const std::string path = dir.Path("wave.png");
    const TarnRun run = RunTarn({"peaks", dir.Path("in.wav"), "--columns", "640", "--png", path});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, "");

    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    ASSERT_TRUE(png_image_begin_read_from_file(&image, path.c_str()));
    image.format = PNG_FORMAT_RGB;
    ASSERT_EQ(image.width, 640u);
    ASSERT_EQ(image.height, 434u);
    std::vector<uint8_t> rgb(PNG_IMAGE_SIZE(image));
    ASSERT_TRUE(png_image_finish_read(&image, nullptr, rgb.data(), 0, nullptr));

    constexpr uint32_t kBack = 0x141519, kLane = 0x1B1D23, kGrid = 0x292C35;
    const struct {
        const char* name;
        uint32_t x, y, colour;
    } pixels[] = {
        {"margin", 15, 100, kBack},
        {"above the sound", 17, 60, kLane},
        {"half up", 16, 68, 0xFFB866},
        {"loudness ends", 16, 195, 0xC86A2B},
        {"full down", 16, 199, 0xC86A2B},
        {"below the sound", 17, 203, kLane},
        {"centre", 16, 111, 0xB78955},
        {"last column", 623, 100, 0xFFB866},
        {"after it", 624, 100, kBack},
        {"between the lanes", 20, 210, kBack},
        {"silence", 20, 300, kLane},
        {"start of the grid", 16, 210, kGrid},
        {"a fifth of a second", 129, 210, kGrid},
        {"just before", 128, 210, kBack},
        {"label 0:00.00", 21, 413, 0x8C909C},
        {"corner of its zero", 20, 413, kBack},
        {"its colon", 28, 414, 0x8C909C},
        {"no room for a label", 587, 413, kBack},
    };
    for (const auto& p : pixels) {
        const uint8_t* at = rgb.data() + 3 * (p.y * image.width + p.x);
        EXPECT_EQ(at[0] << 16 | at[1] << 8 | at[2], static_cast<int>(p.colour)) << p.name;
    }

    const std::string drawn = dir.Read("wave.png");
    EXPECT_EQ(RunTarn({"peaks", dir.Path("in.wav"), "--png", path}).status, 1);
    EXPECT_TRUE(dir.Read("wave.png") == drawn);
    EXPECT_EQ(dir.FileCount(), 2u);
}

}  // namespace
}  // namespace tarn

#include <gtest/gtest.h>
#include <png.h>

#include <nlohmann/json.hpp>

#include "cli/run_tarn.h"
#include "support/temp_dir.h"

namespace tarn {
namespace {

const std::string kClip = TARN_TEST_DATA "/clips/cam_roles.mp4";  // two seconds of AAC

nlohmann::json Peaks(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"peaks", "--json", "--columns", "3", kClip});
    const TarnRun run = RunTarn(arguments);
    EXPECT_EQ(run.status, 0) << run.err;
    return nlohmann::json::parse(run.out);
}

TEST(PeaksCommand, JsonHasColumnsAndPoints) {
    const nlohmann::json plain = Peaks({}), raw = Peaks({"--raw"});
    EXPECT_EQ(plain.size(), 6u);
    EXPECT_EQ(raw.size(), 8u);
    EXPECT_EQ(plain["points_per_second"], 1120);
    EXPECT_EQ(plain["points"], 2245);  // 96256 frames
    EXPECT_EQ(plain["peak"], plain["max_absolute"].get<int>() / 128.0);
    ASSERT_EQ(raw["raw_left"].size(), 2245u);
    ASSERT_EQ(raw["raw_right"].size(), 2245u);
    int largest = 0;
    for (size_t i = 748; i < 2 * 748; ++i)  // the second column
        largest = std::max(largest, raw["raw_right"][i].get<int>());
    EXPECT_EQ(plain["columns_right"][1][0], largest);
}

// The clip's peak is measured: normalised to 0 dB it reaches 32000, or 125.
TEST(PeaksCommand, ShowsTheTreatedSound) {
    for (const char* name : {"0dB", "1"}) {
        int largest = 0;
        for (const auto& channel : {"columns_left", "columns_right"}) {
            const nlohmann::json columns = Peaks({"--normalize", name})[channel];
            for (const auto& pair : columns)
                largest = std::max({largest, pair[0].get<int>(), -pair[1].get<int>()});
        }
        EXPECT_EQ(largest, 125) << name;
    }
    EXPECT_NE(Peaks({"--compressor", "heavy"})["columns_left"], Peaks({})["columns_left"]);
    EXPECT_EQ(Peaks({"--compressor", "off"}), Peaks({}));
}

// 1202 frames, each a point of the waveform: left half up and full down in turn, right silent.
std::string ATone() {
    std::string wave("RIFF\0\0\0\0WAVEfmt \x10\0\0\0\1\0\2\0\x60\4\0\0\x80\x11\0\0\4\0\x10\0data",
                     40);
    wave += std::string("\xC8\x12\0\0", 4);
    for (int i = 0; i < 1202 / 2; ++i)
        wave += std::string("\0\x40\0\0\0\x80\0\0", 8);
    return wave;
}

TEST(PeaksCommand, DrawsAPictureOnce) {
    TempDir dir;
    dir.Write("in.wav", ATone());
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
    EXPECT_EQ(RunTarn({"peaks", kClip, "--png", path}).status, 1);
    EXPECT_TRUE(dir.Read("wave.png") == drawn);
    EXPECT_EQ(dir.FileCount(), 2u);
}

TEST(PeaksCommand, SaysWhatIsWrong) {
    TempDir dir;
    dir.Write("short.wav", "RIFF");
    dir.Write("wave.bin", "RIFF");
    dir.Write("text.mp4", "hello, hello");
    const struct {
        std::vector<std::string> arguments;
        int status;
        std::string err;  // a part of it
    } cases[] = {
        {{dir.Path("none.mp4")}, 1, "No such file"},
        {{dir.Path("short.wav")}, 1, "short.wav: not a WAV file"},
        {{dir.Path("wave.bin")}, 1, "wave.bin: not a WAV file"},
        {{dir.Path("text.mp4")}, 1, "text.mp4: "},
        {{kClip, "--png", dir.Path("no/wave.png")}, 1, "wave.png: can't be written"},
        {{kClip, "--columns", "0"}, 2, "--columns"},
        {{kClip, "--normalize", "4"}, 2, "--normalize"},
        {{}, 2, "FILE"},
    };
    for (const auto& c : cases) {
        std::vector<std::string> arguments = c.arguments;
        arguments.insert(arguments.begin(), "peaks");
        const TarnRun run = RunTarn(arguments);
        EXPECT_EQ(run.status, c.status) << c.err;
        EXPECT_NE(run.err.find(c.err), std::string::npos) << run.err;
        EXPECT_EQ(run.out, "");
    }
}

}  // namespace
}  // namespace tarn

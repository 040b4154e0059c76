#include <gtest/gtest.h>

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

TEST(PeaksCommand, DrawsAPictureOnce) {
    TempDir dir;
    const std::string picture = dir.Path("wave.png");
    const TarnRun run = RunTarn({"peaks", kClip, "--columns", "640", "--png", picture});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, "");
    const std::string drawn = dir.Read("wave.png");
    // Signature, length and name of the header, then width and height.
    EXPECT_EQ(drawn.substr(0, 20), std::string("\x89PNG\r\n\x1a\n\0\0\0\rIHDR\0\0\2\x80", 20));
    EXPECT_EQ(RunTarn({"peaks", kClip, "--png", picture}).status, 1);
    EXPECT_TRUE(dir.Read("wave.png") == drawn);
    EXPECT_EQ(dir.FileCount(), 1u);
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
        {{dir.Path("none.mp4")}, 1, "none.mp4: No such file"},
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

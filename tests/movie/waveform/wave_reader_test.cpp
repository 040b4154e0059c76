#include "movie/waveform/wave_reader.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "support/temp_dir.h"
#include "support/wave_builder.h"

namespace tarn {
namespace {

using Row = std::vector<int8_t>;

// Three frames, at 1120 Hz three points: left 1, 2, -128, right -1, 0, 127.
const std::string kSound = WaveSound({0x017F, 0xFF7F, 0x0180, 0xFF80, 0x7F80, 0x7F7F});

TEST(WaveReader, TakesTheSoundThatIsThere) {
    const Row left = {1, 2, -128}, right = {-1, 0, 127};
    const Row twice = {1, 1, 2, 2, -128, -128}, twice_right = {-1, -1, 0, 0, 127, 127};
    const std::string list = "LIST";
    const struct {
        const char* name;
        std::string file;
        bool opens;
        Row left, right;
    } cases[] = {
        {"plain", WaveFile({}, kSound), true, left, right},
        {"a chunk before it", WaveFile({.chunks = list + Le(2) + "xy"}, kSound), true, left, right},
        {"no pad byte", WaveFile({.chunks = list + Le(3) + "xyz"}, kSound), true, left, right},
        {"'a' in second place is enough", WaveFile({.name = "fact"}, kSound), true, left, right},
        {"'d' in second place is not", WaveFile({.name = "LdST"}, kSound), false, {}, {}},
        {"claims 4 GiB", WaveFile({.claimed = 0xFFFFFFFF}, kSound), true, left, right},
        {"ends inside a frame", WaveFile({.claimed = 10}, kSound), true, {1, 2}, {-1, 0}},
        {"half the points", WaveFile({.rate = 2240}, kSound), true, {1}, {-1}},
        {"twice the points", WaveFile({.rate = 560}, kSound), true, twice, twice_right},
        {"no sound", WaveFile({}, ""), true, {}, {}},
        {"a rate of 0", WaveFile({.rate = 0}, kSound), false, {}, {}},
        {"a rate of no sound", WaveFile({.rate = 1}, kSound), false, {}, {}},
    };
    TempDir dir;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        dir.Write("a.wav", c.file);
        WFWaveReader reader;
        EXPECT_EQ(reader.Open(dir.Path("a.wav"), 1120), c.opens);
        EXPECT_EQ(reader.Fault() == WaveformFault::kNone, c.opens);
        EXPECT_EQ(!reader.GetReason(), c.opens);
        ASSERT_EQ(reader.GetCount(), c.left.size());
        EXPECT_EQ(Row(reader.GetLeft(), reader.GetLeft() + reader.GetCount()), c.left);
        EXPECT_EQ(Row(reader.GetRight(), reader.GetRight() + reader.GetCount()), c.right);
    }
}

// Positions start afresh every 26214400 frames, which hold 611669 points at 48 kHz.
TEST(WaveReader, StartsAfreshBehindAHundredMebibytes) {
    TempDir dir;
    constexpr uint32_t kBlock = 0x6400000;
    dir.Write("a.wav", WaveFile({.rate = 48000, .claimed = kBlock + 43 * 4}, ""));
    const std::string path = dir.Path("a.wav");
    const uint64_t head = std::filesystem::file_size(path);
    std::filesystem::resize_file(path, head + kBlock + 43 * 4);
    std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
    file.seekp(static_cast<std::streamoff>(head + kBlock)) << Le(0x2A00, 2) << Le(0x1500, 2);
    file.close();

    WFWaveReader reader;
    ASSERT_TRUE(reader.Open(path, 1120));
    ASSERT_EQ(reader.GetCount(), 611670u);
    EXPECT_EQ(reader.GetLeft()[611669], 0x2A);
    EXPECT_EQ(reader.GetRight()[611669], 0x15);
    reader.SetProgress([](uint32_t, uint32_t count) { return count != 611670; });
    EXPECT_TRUE(reader.Open(path, 1120));
    EXPECT_EQ(reader.Fault(), WaveformFault::kCancelled);
}

}  // namespace
}  // namespace tarn

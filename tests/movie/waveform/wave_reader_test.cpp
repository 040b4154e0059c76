#include "movie/waveform/wave_reader.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "support/temp_dir.h"

namespace tarn {
namespace {

std::string Le(uint32_t value, int bytes = 4) {
    std::string text;
    for (int i = 0; i < bytes; ++i)
        text += static_cast<char>(value >> (8 * i));
    return text;
}

struct Shape {
    uint32_t rate = 1120, channels = 2, bits = 16, format_size = 16;
    std::string chunks = {};  // between the format and the sound
    std::string name = "data";
    uint32_t claimed = 12;  // bytes of sound
};

std::string Head(const Shape& shape) {
    return "RIFF" + Le(0) + "WAVEfmt " + Le(shape.format_size) + Le(1, 2) + Le(shape.channels, 2) +
           Le(shape.rate) + Le(0) + Le(4, 2) + Le(shape.bits, 2) + shape.chunks + shape.name +
           Le(shape.claimed);
}

using Row = std::vector<int8_t>;

// Three frames, at 1120 Hz three points: left 1, 2, -128, right -1, 0, 127.
const std::string kSound =
    Le(0x017F, 2) + Le(0xFF7F, 2) + Le(0x0180, 2) + Le(0xFF80, 2) + Le(0x7F80, 2) + Le(0x7F7F, 2);

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
        {"plain", Head({}) + kSound, true, left, right},
        {"a chunk before it", Head({.chunks = list + Le(2) + "xy"}) + kSound, true, left, right},
        {"no pad byte", Head({.chunks = list + Le(3) + "xyz"}) + kSound, true, left, right},
        {"'a' in second place is enough", Head({.name = "fact"}) + kSound, true, left, right},
        {"'d' in second place is not", Head({.name = "LdST"}) + kSound, false, {}, {}},
        {"claims 4 GiB", Head({.claimed = 0xFFFFFFFF}) + kSound, true, left, right},
        {"ends inside a frame", Head({.claimed = 10}) + kSound, true, {1, 2}, {-1, 0}},
        {"half the points", Head({.rate = 2240}) + kSound, true, {1}, {-1}},
        {"twice the points", Head({.rate = 560}) + kSound, true, twice, twice_right},
        {"no sound", Head({.claimed = 0}), true, {}, {}},
        {"a rate of 0", Head({.rate = 0}) + kSound, false, {}, {}},
        {"a rate of no sound", Head({.rate = 1}) + kSound, false, {}, {}},
        {"mono", Head({.channels = 1}) + kSound, false, {}, {}},
        {"8 bits", Head({.bits = 8}) + kSound, false, {}, {}},
        {"a longer format", Head({.format_size = 18}) + kSound, false, {}, {}},
        {"no chunk of sound", Head({}).substr(0, 36), false, {}, {}},
        {"shorter than its format", Head({}).substr(0, 35), false, {}, {}},
    };
    TempDir dir;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        dir.Write("a.wav", c.file);
        WFWaveReader reader;
        EXPECT_EQ(reader.Open(dir.Path("a.wav"), 1120), c.opens);
        EXPECT_EQ(reader.Fault() == WaveformFault::kNone, c.opens);
        EXPECT_EQ(reader.Reason().empty(), c.opens);
        ASSERT_EQ(reader.GetCount(), c.left.size());
        EXPECT_EQ(Row(reader.GetLeft(), reader.GetLeft() + reader.GetCount()), c.left);
        EXPECT_EQ(Row(reader.GetRight(), reader.GetRight() + reader.GetCount()), c.right);
    }
}

// Positions start afresh every 26214400 frames, which hold 611669 points at 48 kHz.
TEST(WaveReader, StartsAfreshBehindAHundredMebibytes) {
    TempDir dir;
    constexpr uint32_t kBlock = 0x6400000;
    dir.Write("a.wav", Head({.rate = 48000, .claimed = kBlock + 43 * 4}));
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
}

TEST(WaveReader, StopsWhenTold) {
    TempDir dir;
    dir.Write("a.wav", Head({}) + kSound);
    WFWaveReader reader;
    reader.SetProgress([](uint32_t, uint32_t count) { return count != 3; });
    EXPECT_TRUE(reader.Open(dir.Path("a.wav"), 1120));
    EXPECT_EQ(reader.Fault(), WaveformFault::kCancelled);
}

}  // namespace
}  // namespace tarn

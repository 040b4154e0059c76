#include "movie/waveform/peaks.h"

#include <gtest/gtest.h>

#include "support/temp_dir.h"
#include "support/wave_builder.h"

namespace tarn {
namespace {

using Row = WaveformRow;
using Pairs = std::vector<PeakPair>;

std::unique_ptr<PeakSource> Peaks(const Row& left, const Row& right, int32_t columns) {
    struct RowReader final : WFFileReader {
        RowReader(const Row& left, const Row& right) { m_points = {left, right}; }
    } reader(left, right);
    return PeakSource::Create(&reader, columns);
}

Pairs Columns(const PeakSource& peaks, int channel) {
    const PeakPair* first = peaks.GetColumns(channel);
    return {first, first + peaks.GetColumnCount()};
}

TEST(PeakSource, ColumnsReachFromZero) {
    const auto peaks = Peaks({5, 3, -7, -2, 9, -9, 100}, {-1, -2, -3, -4, -5, -6, -7}, 3);
    EXPECT_EQ(Columns(*peaks, 0), (Pairs{{5, 0}, {0, -7}, {9, -9}}));
    EXPECT_EQ(Columns(*peaks, 1), (Pairs{{0, -2}, {0, -4}, {0, -6}}));
    // 7 points in 2 columns of 3, the second from point 3 on; 7 are too few for 8.
    EXPECT_EQ(Columns(*Peaks({1, 2, 3, 4, 5, 6, 7}, Row(7), 2), 0), (Pairs{{3, 0}, {6, 0}}));
    EXPECT_EQ(Columns(*Peaks({1, 2, 3, 4, 5, 6, 7}, Row(7), 8), 0), Pairs(8));
    EXPECT_EQ(Peaks({}, {}, -1)->GetColumnCount(), 0);
}

// Eight points a pair, 1.12 points a millisecond.
TEST(PeakSource, PairsOfACloseUp) {
    Row left(20), right(20, -3);
    left[7] = 1, left[8] = 2, left[16] = -4, left[19] = 8;
    const auto peaks = Peaks(left, right, 1);
    const auto pairs = [&](int channel, int32_t start, int32_t count) {
        Pairs read(static_cast<size_t>(count), {99, 99});
        EXPECT_TRUE(peaks->ReadPeaks(channel, read.data(), count, start));
        return read;
    };
    EXPECT_EQ(pairs(0, 0, 4), (Pairs{{1, 0}, {2, 0}, {8, -4}, {0, 0}}));
    EXPECT_EQ(pairs(0, 8, 3), (Pairs{{2, 0}, {8, -4}, {0, 0}})) << "8 ms is point 8";
    EXPECT_EQ(pairs(1, 8, 3), (Pairs{{0, -3}, {0, -3}, {0, 0}}));
    EXPECT_EQ(pairs(0, 2000000000, 1), Pairs(1)) << "after the end";
    EXPECT_EQ(pairs(0, -8, 3), (Pairs{{0, 0}, {1, 0}, {2, 0}})) << "before the start";
}

TEST(PeakSource, LargestMagnitude) {
    const auto largest = [](const Row& left, const Row& right) {
        return int{Peaks(left, right, 1)->GetMaxAbsolute()};
    };
    EXPECT_EQ(largest({1, -90}, {80, 7}), 90);
    EXPECT_EQ(largest({-128, 3}, {100, 2}), 3) << "-128 is replaced";
    EXPECT_EQ(largest({1, -128}, {100, 2}), -128) << "or the last";
    EXPECT_EQ(largest({1, 5}, {100, -128}), 5) << "the left point follows";
    EXPECT_EQ(largest({}, {}), 0);
}

// To -6 dB with a peak of 0.5: 12000 / 16300 of each level, rounded towards 0; 46.875 at most.
TEST(PeakSource, TreatedSoundTakesTheRawOnesPlace) {
    const auto peaks = Peaks({64, -64, 10, 127}, {-128, 0, 1, -10}, 2);
    AMPEffectSettings settings;
    settings.normalize = 3;
    settings.peak = 0.5f;
    peaks->ApplyEffects(settings);
    EXPECT_EQ(peaks->GetPoints(0), (Row{46, -46, 7, 46}));
    EXPECT_EQ(peaks->GetPoints(1), (Row{-46, 0, 0, -7}));
    EXPECT_EQ(Columns(*peaks, 0), (Pairs{{46, -46}, {46, 0}}));
    PeakPair pair;
    peaks->ReadPeaks(1, &pair, 1, 0);
    EXPECT_EQ(pair, (PeakPair{0, -46}));
    // Always from the raw points, never from the treated ones.
    peaks->ApplyEffects(settings);
    EXPECT_EQ(peaks->GetPoints(0), (Row{46, -46, 7, 46}));
}

TEST(PeakSource, FilesByWhatIsInThem) {
    TempDir dir;
    dir.Write("wave.mp4", WaveFile({}, WaveSound({0x2000, 0x1000})));
    dir.Write("mono.mp4", WaveFile({.channels = 1}, WaveSound({1})));
    dir.Write("text.wav", "RIFF");
    const auto peaks = PeakSource::Create(dir.Path("wave.mp4"), 1);
    ASSERT_NE(peaks, nullptr);
    EXPECT_EQ(Columns(*peaks, 0), (Pairs{{0x20, 0}}));
    EXPECT_EQ(PeakSource::Create(dir.Path("mono.mp4"), 1), nullptr);
    // What is no movie that can be read is an empty one.
    for (const char* name : {"text.wav", "none.mp4"}) {
        const auto empty = PeakSource::Create(dir.Path(name), 3);
        ASSERT_NE(empty, nullptr);
        EXPECT_EQ(empty->GetCount(), 0u);
        EXPECT_EQ(Columns(*empty, 0), Pairs(3));
    }
}

}  // namespace
}  // namespace tarn

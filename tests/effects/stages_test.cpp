#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "effects/compressor.h"
#include "effects/fade.h"
#include "effects/normalize.h"

namespace tarn {
namespace {

TEST(SoftKneeCompressor, MeetsItsCurve) {
    const struct {
        const char* name;
        int setting;
        float x;
        double level;  // before the make-up gain
        double gain;
    } cases[] = {
        {"silence", 1, 0, 0, 1.14},
        {"start of the knee", 1, 15984, 15984, 1.14},
        {"middle of the knee", 1, 16384, 16384 - 25, 1.14},  // q f f = -0.25 / 1600 * 400 * 400
        {"end of the knee", 1, 16784, 16684, 1.14},
        {"just inside the end", 1, 16783.998f, 16684, 1.14},
        {"negative in the knee", 2, -13045, -(13045 - 50), 1.4},
        {"negative above it", 3, -30000, -(11626 + 18374 * 0.33), 1.75},
        {"curve of the preview", 4, 8192 + 1000, 8192 + 250, 2.25},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        float left = c.x, right = -c.x;
        AMPSoftKneeCompressor(AMPGetCompressorCurve(c.setting)).Process(&left, &right, 1);
        EXPECT_NEAR(left, c.level * c.gain, 0.01);
        EXPECT_EQ(right, -left);
    }
}

// At 48 kHz the ramp has 2400 frames. T 12000, R 0.3, G 1.8.
TEST(RampCompressor, RampsInAndStartsAfresh) {
    constexpr uint32_t kLoud = 2401 * 2 + 1;
    std::vector<float> left(kLoud + 1, -22000.0f), right(kLoud + 1, 11999.0f);
    left[0] = 12000.0f;  // not above the threshold: no trigger yet
    AMPRampCompressor compressor(48000, 12000.0f, 0.3f, 1.8f, 50.0f);
    // Odd cuts must not matter.
    for (uint32_t done = 0; done < left.size();) {
        const uint32_t size = std::min<uint32_t>(static_cast<uint32_t>(left.size()) - done, 7);
        compressor.Process(left.data() + done, right.data() + done, size);
        done += size;
    }
    EXPECT_FLOAT_EQ(left[0], 12000.0f * 1.8f);
    const auto expect_slope = [&](size_t frame, double slope) {
        EXPECT_NEAR(left[frame], (-10000 * slope - 12000) * 1.8, 0.05) << frame;
        EXPECT_FLOAT_EQ(right[frame], 11999.0f * 1.8f) << frame;
    };
    expect_slope(1, 1.0);  // the trigger
    expect_slope(2, 1 - 0.7 / 2400);
    expect_slope(1 + 1200, 1 - 0.7 / 2);
    expect_slope(1 + 2399, 1 - 0.7 * 2399 / 2400);
    expect_slope(1 + 2400, 0.3);
    expect_slope(1 + 2401, 1.0);  // still loud: the next ramp
    expect_slope(1 + 2401 + 600, 1 - 0.7 / 4);
}

TEST(Normalize, LimitsThePositiveSideAlone) {
    AMPNormalize normalize;
    normalize.SetSource(16300);
    normalize.SetTarget(24000);
    float left[] = {8150, 20000, -8150}, right[] = {16300, -20000, 0};
    normalize.Process(left, right, 3);
    EXPECT_FLOAT_EQ(left[0], 12000);
    EXPECT_EQ(left[1], 24000);
    EXPECT_FLOAT_EQ(left[2], -12000);
    EXPECT_FLOAT_EQ(right[0], 24000);
    EXPECT_FLOAT_EQ(right[1], -20000.0f * 24000 / 16300);
    normalize.SetSource(0);  // not known: taken as 20000
    normalize.Process(right + 2, left, 1);
    EXPECT_FLOAT_EQ(left[0], 14400);
}

TEST(Fade, GainsByPosition) {
    constexpr uint32_t kRate = 1000;  // a frame is a millisecond
    const struct {
        const char* name;
        uint32_t start, end, position, count, frame;
        float gain;
    } cases[] = {
        {"silent first second", 0, 0, 0, 4000, 999, 0},
        {"half way up", 0, 0, 0, 4000, 2000, 0.0625f},
        {"full after three", 0, 0, 0, 4000, 3000, 1},
        {"stays full", 0, 0, 0, 4000, 3500, 1},
        {"range that starts later", 500, 0, 1500, 2000, 1000, 0.0625f},
        {"block from before the start", 500, 0, 499, 2000, 1000, 1},
        {"block from past the rise", 0, 0, 3001, 10, 0, 1},
        {"down: begins four seconds before", 0, 10000, 5000, 6000, 1000, 1},
        {"down: two and a half left", 0, 10000, 5000, 6000, 2500, 0.0625f},
        {"down: the last second", 0, 10000, 5000, 6000, 4001, 0},
        {"down: block within", 0, 10000, 7500, 100, 0, 0.0625f},
        {"down: after the end", 0, 10000, 12000, 10, 3, 0},
        {"short range keeps its level", 0, 3999, 3500, 400, 399, 1},
        {"far position", 0, 4000000000, 3999997500, 10, 0, 0.0625f},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        AMPFade fade(kRate);
        fade.SetStartTime(c.start);
        fade.SetEndTime(c.end);
        std::vector<float> left(c.count, 16.0f), right(c.count, -16.0f);
        fade.Process(left.data(), right.data(), c.count, c.position);
        EXPECT_EQ(left[c.frame], 16 * c.gain);
        EXPECT_EQ(right[c.frame], -16 * c.gain);
    }
}

}  // namespace
}  // namespace tarn

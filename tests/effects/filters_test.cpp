#include "effects/filters.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "effects/comb_bank.h"
#include "support/wave_builder.h"

namespace tarn {
namespace {

using Samples = std::vector<float>;

Samples Filtered(IAMPFilter&& filter, const Samples& input) {
    Samples output(input.size());
    filter.Process(output.data(), input.data(), static_cast<uint32_t>(input.size()));
    return output;
}

Samples FloatNoise(size_t count, unsigned seed) {
    const std::vector<int16_t> noise = Noise(count / 2, seed);
    return {noise.begin(), noise.end()};
}

TEST(Filters, FollowTheirRecurrence) {
    // Worked out by hand.
    EXPECT_EQ(Filtered(AMPSimpleDelay(3), {1, 2, 3, 4, 5}), (Samples{0, 0, 0, 1, 2}));
    EXPECT_EQ(Filtered(AMPAllPathFilter(2, 0.5f), {1, 0, 0, 0, 0}),
              (Samples{-0.5f, 0, 0.75f, 0, 0.375f}));
    // The damping term answers two samples after the impulse, the echo after five.
    EXPECT_EQ(Filtered(AMPCombLPFFilter(5, 0.5f, 0.25f), {1, 0, 0, 0, 0, 0, 0, 0}),
              (Samples{0, 0, -0.25f, 0, -0.0625f, 1, -0.015625f, 0.125f}));
    EXPECT_EQ(Filtered(AMPBiQuadraticFilter({0.5f, 0.25f, 0.125f, -0.5f, 0.25f}), {8, 0, 0, 0}),
              (Samples{4, 4, 2, 0}));
    EXPECT_EQ(Filtered(AMPBiQuadraticFilter({0.5f, -0.5f, 0, -0.5f, 0}), {8, 0, 0}),
              (Samples{4, -2, -1}));
}

// The bank against twelve combs and the mix written out.
TEST(CombBank, GivesTheSamplesOfTwelveCombs) {
    const AMPCombSettings settings[kCombCount] = {
        {2, 0.24f, 0.43f, 0.24f},   {3, -0.22f, 0.42f, -0.22f}, {41, 0.16f, 0.41f, 0.16f},
        {64, -0.14f, 0.4f, -0.14f}, {600, 0.09f, 0.3f, 0.09f},  {6715, -0.13f, 0.35f, -0.13f}};
    const size_t length = 20000;
    const Samples left = FloatNoise(length, 3), right = FloatNoise(length, 4);
    Samples c[kCombCount], d[kCombCount];
    for (int k = 0; k < kCombCount; ++k) {
        const auto [delay, feedback, damping, mix] = settings[k];
        c[k] = Filtered(AMPCombLPFFilter(delay, feedback, damping), left);
        d[k] = Filtered(AMPCombLPFFilter(delay, feedback, damping), right);
    }

    AMPCombBank bank(settings);
    AMPCombMix mix;
    std::mt19937 random(5);
    for (uint32_t done = 0; done < length;) {
        const auto size = std::min<uint32_t>(length - done, 1 + random() % kReverbSlice);
        bank.Process(left.data() + done, right.data() + done, size, &mix);
        for (uint32_t i = 0; i < size; ++i) {
            const size_t at = done + i;
            float sum = c[0][at], other = d[0][at];
            for (int k = 1; k < kCombCount; ++k) {
                sum = sum + c[k][at];
                other = other + d[k][at];
            }
            for (int k = 0; k < kCombCount; ++k)
                sum = sum + settings[k].cross_mix * d[k][at];
            ASSERT_EQ(mix.left[i], sum) << at;
            ASSERT_EQ(mix.right[i], other) << at;
            for (int k = 2; k < kCombCount; ++k)
                ASSERT_EQ(mix.cross[k - 2][i], settings[k].cross_mix * c[k][at]) << at;
        }
        done += size;
    }
}

}  // namespace
}  // namespace tarn

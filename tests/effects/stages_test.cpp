#include <gtest/gtest.h>

#include <vector>

#include "effects/effect_chain.h"
#include "effects/normalize.h"

namespace tarn {
namespace {

TEST(Normalize, TakesAnUnknownPeakForALevel) {
    AMPNormalize normalize;
    normalize.SetTarget(24000);
    normalize.SetSource(0);  // stands for 20000
    float left = -12000, right = 24000;
    normalize.Process(&left, &right, 1);
    EXPECT_FLOAT_EQ(left, -14400);
    EXPECT_EQ(right, 24000);
}

TEST(Fade, GainsByPosition) {
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
    for (const auto& c : cases)
        for (const bool at_once : {true, false}) {
            SCOPED_TRACE(c.name);
            const AMPEffectChainPtr chain(AMPEffectCreate(1000));  // a frame is a millisecond
            ASSERT_TRUE(chain && AMPEffectSetParameters(chain.get(), {.fade = 1}));
            if (at_once) AMPEffectSetRange(chain.get(), c.start, c.end);
            if (!at_once) AMPEffectSetStart(chain.get(), c.start);
            if (!at_once) AMPEffectSetEnd(chain.get(), c.end);
            std::vector<int16_t> sound(2 * c.count, 16000);
            AMPEffectProcess(chain.get(), sound.data(), sound.data(), c.count, c.position);
            EXPECT_EQ(sound[2 * c.frame], 16000 * c.gain);
            EXPECT_EQ(sound[2 * c.frame + 1], 16000 * c.gain);
        }
}

}  // namespace
}  // namespace tarn

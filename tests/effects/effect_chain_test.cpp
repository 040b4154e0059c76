#include "effects/effect_chain.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "effects/allocation_count.h"
#include "effects/flush_denormals.h"

#if defined(__SSE__)
#include <xmmintrin.h>
#endif

namespace tarn {
namespace {

using Sound = std::vector<int16_t>;

constexpr uint32_t kRate = 48000;

AMPEffectSettings Everything() {
    AMPEffectSettings s;
    s.treble = -40;
    s.bass = 70;
    s.reverb = 7;
    s.compressor = 4;
    s.normalize = 1;
    s.fade = 1;
    s.peak = 0.5f;
    return s;
}

Sound Noise(size_t frames, unsigned seed = 1) {
    std::mt19937 random(seed);
    Sound sound(2 * frames);
    for (int16_t& sample : sound)
        sample = static_cast<int16_t>(random());
    return sound;
}

AMPEffectChainPtr MakeChain(const AMPEffectSettings& settings, uint32_t rate = kRate) {
    AMPEffectChainPtr chain(AMPEffectCreate(rate));
    EXPECT_TRUE(chain && AMPEffectSetParameters(chain.get(), settings));
    return chain;
}

Sound Treat(AMPEffectChain* chain, const Sound& input) {
    Sound output(input.size());
    AMPEffectProcess(chain, output.data(), input.data(), static_cast<uint32_t>(input.size() / 2),
                     0);
    return output;
}

TEST(EffectChain, DoesNotNoticeBlocks) {
    const Sound input = Noise(20000);
    AMPEffectSettings settings = Everything();
    settings.fade = 0;  // goes by the block's position, in milliseconds
    const Sound whole = Treat(MakeChain(settings).get(), input);
    for (const uint32_t largest : {1u, 2u, 3u, 700u}) {
        Sound pieces = input;  // in place
        const AMPEffectChainPtr chain = MakeChain(settings);
        std::mt19937 random(largest);
        for (uint32_t done = 0; done < 20000;) {
            const auto size = std::min<uint32_t>(20000 - done, 1 + random() % largest);
            AMPEffectProcess(chain.get(), pieces.data() + 2 * done, pieces.data() + 2 * done, size,
                             0);
            done += size;
        }
        EXPECT_TRUE(pieces == whole) << "blocks of up to " << largest;
    }
}

TEST(EffectChain, AllocatesNothingWhileItRuns) {
    const AMPEffectChainPtr chain = MakeChain(Everything());
    AMPEffectSetRange(chain.get(), 0, 60000);
    Sound sound = Noise(10000);
    const size_t before = AllocationCount();
    for (const uint32_t frames : {10000u, 1u, 999u, 0u, 10000u}) {
        AMPEffectProcess(chain.get(), sound.data(), sound.data(), frames, 0);
        EXPECT_TRUE(AMPEffectSetParameters(chain.get(), Everything())) << "settings that repeat";
    }
    EXPECT_EQ(AllocationCount(), before);
}

TEST(EffectChain, TreatsValuesOutOfRangeAsOff) {
    const Sound input = Noise(2000);
    const Sound plain = Treat(MakeChain({}).get(), input);
    for (const int32_t value : {INT_MIN, -101, 101, INT_MAX}) {
        AMPEffectSettings s;
        s.treble = s.bass = s.reverb = s.compressor = s.normalize = value;
        EXPECT_TRUE(Treat(MakeChain(s).get(), input) == plain) << value;
    }
    const auto normalized = [&](float peak) {
        AMPEffectSettings s;
        s.normalize = 2;
        s.peak = peak;
        return Treat(MakeChain(s).get(), input);
    };
    const Sound unknown = normalized(1.0f);
    for (const float peak : {0.0f, -1.0f, 1.5f, std::numeric_limits<float>::infinity(),
                             std::numeric_limits<float>::quiet_NaN()})
        EXPECT_TRUE(normalized(peak) == unknown) << peak;
    EXPECT_EQ(AMPEffectCreate(999), nullptr);
    EXPECT_EQ(AMPEffectCreate(0), nullptr);
    EXPECT_EQ(AMPEffectCreate(UINT_MAX), nullptr);
}

// The gain is infinite, so silence times it is no number.
TEST(EffectChain, KeepsSilenceUnderATinyPeak) {
    AMPEffectSettings s;
    s.normalize = 1;
    s.fade = 1;
    s.peak = 1e-44f;
    EXPECT_EQ(Treat(MakeChain(s).get(), {0, 0, 5, -5}), (Sound{0, 0, 0, 0}));
    s.fade = 0;
    EXPECT_EQ(Treat(MakeChain(s).get(), {0, 0, 5, -5}), (Sound{0, 0, 32000, -32766}));
}

TEST(EffectChain, ChangesSettingsOnTheWay) {
    const Sound input = Noise(5000);
    AMPEffectSettings hall;
    hall.reverb = 8;
    const Sound fresh = Treat(MakeChain(hall).get(), input);
    AMPEffectSettings other = hall;
    other.reverb = 2;
    const AMPEffectChainPtr chain = MakeChain(other);
    Treat(chain.get(), input);
    EXPECT_TRUE(AMPEffectSetParameters(chain.get(), hall));
    EXPECT_TRUE(Treat(chain.get(), input) == fresh) << "a new reverb starts silent";

    // The peak counts when the normalise setting changes, not by itself.
    AMPEffectSettings level;
    level.normalize = 1;
    level.peak = 0.5f;
    const AMPEffectChainPtr leveled = MakeChain(level);
    level.peak = 0.25f;
    EXPECT_TRUE(AMPEffectSetParameters(leveled.get(), level));
    EXPECT_EQ(Treat(leveled.get(), {1630, 0}), (Sound{3200, 0}));
    level.normalize = 2;
    EXPECT_TRUE(AMPEffectSetParameters(leveled.get(), level));
    EXPECT_EQ(Treat(leveled.get(), {1630, 0}), (Sound{4800, 0}));

    // While both bands are at 0 the equaliser hears nothing.
    AMPEffectSettings bass;
    const AMPEffectChainPtr silent = MakeChain(bass);
    Treat(silent.get(), input);
    bass.bass = 50;
    EXPECT_TRUE(AMPEffectSetParameters(silent.get(), bass));
    EXPECT_TRUE(Treat(silent.get(), input) == Treat(MakeChain(bass).get(), input));

    AMPEffectSettings bypass = Everything();
    bypass.bypass = 1;
    EXPECT_TRUE(AMPEffectSetParameters(chain.get(), bypass));
    EXPECT_TRUE(Treat(chain.get(), input) == input);
}

#if defined(__SSE__)
TEST(EffectChain, GivesTheCallersFloatingPointModeBack) {
    const unsigned mode = _mm_getcsr();
    for (const unsigned own : {mode & ~0x8040u, mode | 0x8040u}) {
        _mm_setcsr(own);
        {
            const FlushDenormals flush;
            volatile float tiny = std::numeric_limits<float>::min();
            tiny = tiny * 0.5f;
            EXPECT_EQ(tiny, 0.0f);
        }
        EXPECT_EQ(_mm_getcsr() & 0x8040u, own & 0x8040u);
        Treat(MakeChain(Everything()).get(), Noise(100));
        EXPECT_EQ(_mm_getcsr() & 0x8040u, own & 0x8040u);
    }
    _mm_setcsr(mode);
}
#endif

}  // namespace
}  // namespace tarn

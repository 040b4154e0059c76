#include "effects/effect_chain.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "effects/filters.h"
#include "support/allocation_count.h"
#include "support/wave_builder.h"

#if defined(__SSE__)
#include <xmmintrin.h>
#endif

namespace tarn {
namespace {

using Sound = std::vector<int16_t>;

constexpr uint32_t kRate = 48000;

constexpr AMPEffectSettings kEverything = {.treble = -40,
                                           .bass = 70,
                                           .reverb = 7,
                                           .compressor = 4,
                                           .normalize = 1,
                                           .fade = 1,
                                           .peak = 0.5f};
constexpr AMPEffectSettings kHall = {.reverb = 8};

AMPEffectChainPtr MakeChain(const AMPEffectSettings& settings) {
    AMPEffectChainPtr chain(AMPEffectCreate(kRate));
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
    AMPEffectSettings settings = kEverything;
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
    const AMPEffectChainPtr chain = MakeChain(kEverything);
    AMPEffectSetRange(chain.get(), 0, 60000);
    Sound sound = Noise(10000);
    const size_t before = AllocationCount();
    for (const uint32_t frames : {10000u, 1u, 999u, 0u, 10000u}) {
        AMPEffectProcess(chain.get(), sound.data(), sound.data(), frames, 0);
        EXPECT_TRUE(AMPEffectSetParameters(chain.get(), kEverything)) << "settings that repeat";
    }
    EXPECT_EQ(AllocationCount(), before);
}

TEST(EffectChain, TreatsValuesOutOfRangeAsOff) {
    const Sound input = Noise(2000);
    const Sound plain = Treat(MakeChain({}).get(), input);
    const struct {
        const char* name;
        int32_t AMPEffectSettings::*field;
        int32_t lowest, highest;
    } fields[] = {{"treble", &AMPEffectSettings::treble, -100, 100},
                  {"bass", &AMPEffectSettings::bass, -100, 100},
                  {"reverb", &AMPEffectSettings::reverb, 0, 9},
                  {"compressor", &AMPEffectSettings::compressor, 0, 4},
                  {"normalize", &AMPEffectSettings::normalize, 0, 3}};
    for (const auto& f : fields) {
        const auto treated = [&](int32_t value) {
            AMPEffectSettings s;
            s.*f.field = value;
            return Treat(MakeChain(s).get(), input);
        };
        for (const int32_t value : {INT_MIN, f.lowest - 1, f.highest + 1, INT_MAX})
            EXPECT_TRUE(treated(value) == plain) << f.name << " " << value;
        EXPECT_EQ(treated(f.lowest) == plain, f.lowest == 0) << f.name;
        EXPECT_FALSE(treated(f.highest) == plain) << f.name;
    }
    const auto normalized = [&](float peak) {
        return Treat(MakeChain({.normalize = 2, .peak = peak}).get(), input);
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
    AMPEffectSettings s = {.normalize = 1, .fade = 1, .peak = 1e-44f};
    EXPECT_EQ(Treat(MakeChain(s).get(), {0, 0, 5, -5}), (Sound{0, 0, 0, 0}));
    s.fade = 0;
    EXPECT_EQ(Treat(MakeChain(s).get(), {0, 0, 5, -5}), (Sound{0, 0, 32000, -32766}));
}

TEST(EffectChain, ChangesSettingsOnTheWay) {
    const Sound input = Noise(5000);
    const Sound fresh = Treat(MakeChain(kHall).get(), input);
    const AMPEffectChainPtr chain = MakeChain({.reverb = 2});
    Treat(chain.get(), input);
    EXPECT_TRUE(AMPEffectSetParameters(chain.get(), kHall));
    EXPECT_TRUE(Treat(chain.get(), input) == fresh) << "a new reverb starts silent";

    // The peak counts when the normalise setting changes, not by itself.
    const AMPEffectChainPtr leveled = MakeChain({.normalize = 1, .peak = 0.5f});
    EXPECT_TRUE(AMPEffectSetParameters(leveled.get(), {.normalize = 1, .peak = 0.25f}));
    EXPECT_EQ(Treat(leveled.get(), {1630, 0}), (Sound{3200, 0}));
    EXPECT_TRUE(AMPEffectSetParameters(leveled.get(), {.normalize = 2, .peak = 0.25f}));
    EXPECT_EQ(Treat(leveled.get(), {1630, 0}), (Sound{4800, 0}));

    // While both bands are at 0 the equaliser hears nothing.
    const AMPEffectChainPtr silent = MakeChain({});
    Treat(silent.get(), input);
    EXPECT_TRUE(AMPEffectSetParameters(silent.get(), {.bass = 50}));
    EXPECT_TRUE(Treat(silent.get(), input) == Treat(MakeChain({.bass = 50}).get(), input));

    EXPECT_TRUE(AMPEffectSetParameters(chain.get(), {.bypass = 1, .bass = 70, .reverb = 7}));
    EXPECT_TRUE(Treat(chain.get(), input) == input);
}

TEST(EffectChain, ResetEqualsNew) {
    const Sound before = Noise(5001, 2), input = Noise(5000);
    for (const int32_t compressor : {1, 4}) {
        AMPEffectSettings settings = kEverything;
        settings.fade = 0;       // would keep the first second silent
        settings.normalize = 0;  // would clip what the ramp lets through
        settings.compressor = compressor;
        const AMPEffectChainPtr chain = MakeChain(settings);
        Treat(chain.get(), before);
        const size_t count = AllocationCount();
        AMPEffectReset(chain.get());
        EXPECT_EQ(AllocationCount(), count);
        EXPECT_TRUE(Treat(chain.get(), input) == Treat(MakeChain(settings).get(), input))
            << compressor;
    }
}

// Each row is a way from one set of settings to the next. A change that a later one supersedes
// must leave the chain as if it had been applied without a block in between.
TEST(EffectChain, PreparedChangesActLikeSettings) {
    struct State {
        int32_t reverb, normalize;
        float peak;
    };
    const auto with = [](const State& state) {
        AMPEffectSettings s = kEverything;
        s.fade = 0;
        s.reverb = state.reverb;
        s.normalize = state.normalize;
        s.peak = state.peak;
        return s;
    };
    const State cases[][3] = {
        {{1, 1, 1.0f}, {9, 1, 1.0f}, {9, 1, 1.0f}},  // reverb handed on
        {{5, 1, 1.0f}, {2, 1, 1.0f}, {5, 1, 1.0f}},  // there and back
        {{0, 0, 1.0f}, {2, 2, 0.5f}, {6, 3, 0.7f}},  // on, then another
        {{3, 0, 1.0f}, {4, 1, 0.5f}, {0, 0, 1.0f}},  // on, then off
        {{3, 2, 0.5f}, {0, 0, 0.5f}, {3, 2, 0.8f}},  // off and on
        {{0, 1, 1.0f}, {0, 2, 0.5f}, {0, 2, 0.9f}},  // the peak of the skipped
        {{7, 1, 0.5f}, {7, 1, 0.6f}, {7, 1, 0.7f}},  // nothing of weight
    };
    const Sound input = Noise(8000);
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        const AMPEffectSettings first = with(c[0]), second = with(c[1]), third = with(c[2]);
        const AMPEffectChainPtr expected = MakeChain(first), chain = MakeChain(first);
        EXPECT_TRUE(Treat(expected.get(), input) == Treat(chain.get(), input));
        EXPECT_TRUE(AMPEffectSetParameters(expected.get(), second));
        EXPECT_TRUE(AMPEffectSetParameters(expected.get(), third));
        const AMPEffectChangePtr skipped(AMPEffectPrepare(kRate, first, second, nullptr));
        const AMPEffectChangePtr last(AMPEffectPrepare(kRate, second, third, skipped.get()));
        ASSERT_TRUE(skipped && last);
        const size_t before = AllocationCount();
        EXPECT_TRUE(AMPEffectApply(chain.get(), last.get()));
        EXPECT_EQ(AllocationCount(), before);
        EXPECT_TRUE(Treat(chain.get(), input) == Treat(expected.get(), input));
    }
}

TEST(EffectChain, StaysAsItWasWithoutMemoryOrAtAnotherRate) {
    const AMPEffectChainPtr chain = MakeChain({});
    FailAllocations(true);
    const AMPEffectChainPtr none(AMPEffectCreate(kRate));
    const bool set = AMPEffectSetParameters(chain.get(), kHall);
    const AMPEffectChangePtr change(AMPEffectPrepare(kRate, {}, kHall, nullptr));
    FailAllocations(false);
    EXPECT_FALSE(none || set || change || AMPEffectPrepare(0, {}, kHall, nullptr));
    const AMPEffectChangePtr low(AMPEffectPrepare(44100, {}, kHall, nullptr));
    ASSERT_TRUE(low && !AMPEffectApply(chain.get(), low.get()));
    EXPECT_TRUE(Treat(chain.get(), Noise(3000)) == Treat(MakeChain({}).get(), Noise(3000)));
    // Its reverb is no use to a change of the chain's own rate.
    const AMPEffectChangePtr own(AMPEffectPrepare(kRate, kHall, kHall, low.get()));
    ASSERT_TRUE(own && AMPEffectApply(chain.get(), own.get()));
    EXPECT_TRUE(Treat(chain.get(), Noise(3000)) == Treat(MakeChain(kHall).get(), Noise(3000)));
}

TEST(EffectChain, FadesByPosition) {
    // Start and end of the range, position and length of the block, a frame in it, its sample.
    const uint32_t cases[][6] = {
        {0, 0, 0, 4000, 999, 0},                   // silent first second
        {0, 0, 0, 4000, 2000, 1000},               // half way up
        {0, 0, 0, 4000, 3000, 16000},              // full after three
        {500, 0, 1500, 2000, 1000, 1000},          // a range that starts later
        {500, 0, 499, 2000, 1000, 16000},          // a block from before the start
        {0, 10000, 5000, 6000, 1000, 16000},       // down: begins four seconds before
        {0, 10000, 5000, 6000, 4001, 0},           // down: the last second
        {0, 10000, 7500, 100, 0, 1000},            // down: a block within
        {0, 10000, 12000, 10, 3, 0},               // down: after the end
        {0, 3999, 3500, 400, 399, 16000},          // a short range keeps its level
        {0, 4000000000, 3999997500, 10, 0, 1000},  // a far position
    };
    for (const auto& [start, end, position, count, frame, sample] : cases) {
        SCOPED_TRACE(testing::Message() << start << " " << end << " " << position << " " << frame);
        const AMPEffectChainPtr chain(AMPEffectCreate(1000));  // a frame is a millisecond
        ASSERT_TRUE(chain && AMPEffectSetParameters(chain.get(), {.fade = 1}));
        AMPEffectSetStart(chain.get(), start);
        AMPEffectSetEnd(chain.get(), end);
        Sound sound(2 * count, 16000);
        AMPEffectProcess(chain.get(), sound.data(), sound.data(), count, position);
        EXPECT_EQ(sound[2 * frame], static_cast<int16_t>(sample));
        EXPECT_EQ(sound[2 * frame + 1], static_cast<int16_t>(sample));
    }
}

using Samples = std::vector<float>;

Samples Filtered(IAMPFilter&& filter, const Samples& input) {
    Samples output(input.size());
    filter.Process(output.data(), input.data(), static_cast<uint32_t>(input.size()));
    return output;
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
}

#if defined(__SSE__)
TEST(EffectChain, GivesTheCallersFloatingPointModeBack) {
    const unsigned mode = _mm_getcsr();
    for (const unsigned own : {mode & ~0x8040u, mode | 0x8040u}) {
        _mm_setcsr(own);
        Treat(MakeChain(kEverything).get(), Noise(100));
        EXPECT_EQ(_mm_getcsr() & 0x8040u, own & 0x8040u);
    }
    _mm_setcsr(mode);
}
#endif

}  // namespace
}  // namespace tarn

#include "effects/comb_bank.h"

#include <algorithm>
#include <utility>

namespace tarn {
namespace {

// One frame more than is in use: the last odd frame of a run is computed as half of a pair.
constexpr uint32_t kPadding = 2;
// Room for this many slices of input before the history moves down.
constexpr uint32_t kInputSlices = 16;

// Calls f with the constants 0 to 5: a plain loop would keep the registers in an array in memory.
template <typename F>
inline void for_each_comb(F f) {
    [&]<int... k>(std::integer_sequence<int, k...>) {
        (f(std::integral_constant<int, k>{}), ...);
    }
    (std::make_integer_sequence<int, kCombCount>{});
}

// A comb while a run lasts. Offsets count floats from the run's first frame.
struct Lane {
    const float* input;  // one delay before the run's first frame
    float* past;
    Float4 feedback, damping;
    Float4 before;  // the last two frames of output

    Float4 Next(Float4 input_before, uint32_t at) const {
        return (before - input_before) * damping + Load4(input + at) + feedback * Load4(past + at);
    }
};

Float4 swap_channels(Float4 v) {
    return __builtin_shufflevector(v, v, 1, 0, 3, 2);
}

// Two frames of the mix.
[[gnu::always_inline]] inline void store_mix(const Float4 (&c)[kCombCount],
                                             const Float4 (&gains)[kCombCount], AMPCombMix* mix,
                                             uint32_t frame) {
    const Float4 own = c[0] + c[1] + c[2] + c[3] + c[4] + c[5];
    Float4 product[kCombCount];
    Float4 sum = own;
    for_each_comb([&](auto k) {
        product[k] = gains[k] * c[k];
        sum = sum + swap_channels(product[k]);
    });
    StoreHalves(mix->left + frame, mix->right + frame,
                __builtin_shufflevector(sum, own, 0, 2, 5, 7));
    StoreHalves(mix->cross[0] + frame, mix->cross[1] + frame,
                __builtin_shufflevector(product[2], product[3], 0, 2, 4, 6));
    StoreHalves(mix->cross[2] + frame, mix->cross[3] + frame,
                __builtin_shufflevector(product[4], product[5], 0, 2, 4, 6));
}

}  // namespace

AMPCombBank::Comb::Comb(const AMPCombSettings& settings)
    : delay(settings.delay),
      feedback(Splat4(settings.feedback)),
      damping(Splat4(settings.damping)),
      cross_mix(Splat4(settings.cross_mix)),
      past(2 * settings.delay + kPadding, 0.0f) {}

AMPCombBank::AMPCombBank(const AMPCombSettings (&settings)[kCombCount]) {
    m_combs.reserve(kCombCount);
    for (const AMPCombSettings& comb : settings) {
        m_combs.emplace_back(comb);
        m_longest = std::max(m_longest, comb.delay);
    }
    m_inputEnd = m_longest;
    m_input.assign(2 * (m_longest + kInputSlices * kReverbSlice) + kPadding, 0.0f);
}

void AMPCombBank::Process(const float* left, const float* right, uint32_t count, AMPCombMix* mix) {
    const uint32_t input = AppendInput(left, right, count);
    for (uint32_t done = 0; done < count;) {
        const uint32_t run = ShortestRun(count - done);
        ProcessRun(input + done, done, run, mix);
        done += run;
    }
}

void AMPCombBank::Reset() {
    for (Comb& comb : m_combs) {
        std::fill(comb.past.begin(), comb.past.end(), 0.0f);
        comb.oldest = 0;
        comb.before = Splat4(0.0f);
    }
    std::fill(m_input.begin(), m_input.end(), 0.0f);
    m_inputEnd = m_longest;
}

// The place in m_input that the first frame came to.
uint32_t AMPCombBank::AppendInput(const float* left, const float* right, uint32_t count) {
    if (2 * (m_inputEnd + count) + kPadding > m_input.size()) {
        float* const start = m_input.data();
        std::copy(start + 2 * (m_inputEnd - m_longest), start + 2 * m_inputEnd, start);
        m_inputEnd = m_longest;
    }
    const uint32_t first = m_inputEnd;
    float* const frames = m_input.data() + 2 * first;
    uint32_t i = 0;
    for (; i + 4 <= count; i += 4) {
        const Float4 l = Load4(left + i), r = Load4(right + i);
        Store4(frames + 2 * i, __builtin_shufflevector(l, r, 0, 4, 1, 5));
        Store4(frames + 2 * i + 4, __builtin_shufflevector(l, r, 2, 6, 3, 7));
    }
    for (; i < count; ++i) {
        frames[2 * i] = left[i];
        frames[2 * i + 1] = right[i];
    }
    m_inputEnd += count;
    return first;
}

// Frames up to the nearest end of a ring.
uint32_t AMPCombBank::ShortestRun(uint32_t count) const {
    for (const Comb& comb : m_combs)
        count = std::min(count, comb.delay - comb.oldest);
    return count;
}

// `input`: the run's first frame in m_input; `first`: its place in the mix. No ring wraps.
void AMPCombBank::ProcessRun(uint32_t input, uint32_t first, uint32_t count, AMPCombMix* mix) {
    Lane lanes[kCombCount];
    Float4 gains[kCombCount], outputs[kCombCount];
    for (int k = 0; k < kCombCount; ++k) {
        Comb& comb = m_combs[static_cast<size_t>(k)];
        lanes[k] = {m_input.data() + 2 * (input - comb.delay), comb.past.data() + 2 * comb.oldest,
                    comb.feedback, comb.damping, comb.before};
        gains[k] = comb.cross_mix;
    }
    const float* const input_before = m_input.data() + 2 * (input - 2);

    const uint32_t even = count & ~1u;
    for (uint32_t i = 0; i < even; i += 2) {
        const Float4 x = Load4(input_before + 2 * i);
        for_each_comb([&](auto k) {
            outputs[k] = lanes[k].Next(x, 2 * i);
            Store4(lanes[k].past + 2 * i, outputs[k]);
            lanes[k].before = outputs[k];
        });
        store_mix(outputs, gains, mix, first + i);
    }
    if (count > even) {
        const Float4 x = Load4(input_before + 2 * even);
        for_each_comb([&](auto k) {
            outputs[k] = lanes[k].Next(x, 2 * even);
            StoreLow(lanes[k].past + 2 * even, outputs[k]);
            lanes[k].before = __builtin_shufflevector(lanes[k].before, outputs[k], 2, 3, 4, 5);
        });
        store_mix(outputs, gains, mix, first + even);
    }

    for (int k = 0; k < kCombCount; ++k) {
        Comb& comb = m_combs[static_cast<size_t>(k)];
        comb.before = lanes[k].before;
        comb.oldest += count;
        if (comb.oldest == comb.delay) comb.oldest = 0;
    }
}

}  // namespace tarn

#include "effects/fade.h"

#include <algorithm>

namespace tarn {
namespace {

// Seconds. The lengths contain the silences.
constexpr uint32_t kInSilence = 1, kInLength = 3;
constexpr uint32_t kOutSilence = 1, kOutLength = 4;
constexpr uint64_t kNever = UINT64_MAX;

// The gain `frames` away from the outer end of a fade.
float gain_at(uint64_t frames, uint64_t silence, uint64_t length) {
    if (frames < silence) return 0.0f;
    const float g = static_cast<float>(frames - silence) / static_cast<float>(length - silence);
    return g * g * g * g;
}

}  // namespace

AMPFade::Plan AMPFade::MakePlan(uint32_t count, uint32_t position) const {
    Plan plan{0, 0, kNever, 0};
    const uint64_t first = Frames(position), start = Frames(m_start), end = Frames(m_end);
    if (position <= kInLength * 1000 + uint64_t{m_start} && first >= start) {
        const uint64_t length = uint64_t{kInLength} * m_sampleRate;
        plan.in_first = first - start;
        if (plan.in_first <= length) plan.in_frames = length - plan.in_first + 1;
    }

    // Wraps for ends within the first four seconds, which therefore get no fade-out. Intended.
    const uint32_t block_ms = static_cast<uint32_t>(uint64_t{count} * 1000 / m_sampleRate);
    if (m_end == 0 || position + block_ms < m_end - kOutLength * 1000) return plan;
    const uint64_t length = uint64_t{kOutLength} * m_sampleRate;
    if (end < first) {
        plan.out_frame = 0;
    } else if (end < first + length) {
        plan.out_frame = 0;
        plan.out_left = end - first;
    } else {
        plan.out_frame = end - length - first;
        plan.out_left = length;
    }
    return plan;
}

void AMPFade::Apply(const Plan& plan, float* left, float* right, uint32_t first,
                    uint32_t count) const {
    const uint64_t rate = m_sampleRate;
    const uint64_t in_end = std::min<uint64_t>(plan.in_frames, uint64_t{first} + count);
    for (uint64_t frame = first; frame < in_end; ++frame) {
        const float g = gain_at(plan.in_first + frame, kInSilence * rate, kInLength * rate);
        left[frame - first] = left[frame - first] * g;
        right[frame - first] = right[frame - first] * g;
    }
    if (plan.out_frame == kNever) return;
    for (uint64_t frame = std::max<uint64_t>(first, plan.out_frame);
         frame < uint64_t{first} + count; ++frame) {
        const uint64_t gone = frame - plan.out_frame;
        const uint64_t rest = gone < plan.out_left ? plan.out_left - gone : 0;
        const float g = gain_at(rest, kOutSilence * rate, kOutLength * rate);
        left[frame - first] = left[frame - first] * g;
        right[frame - first] = right[frame - first] * g;
    }
}

void AMPFade::Process(float* left, float* right, uint32_t count, uint32_t position) const {
    Apply(MakePlan(count, position), left, right, 0, count);
}

}  // namespace tarn

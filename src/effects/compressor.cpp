#include "effects/compressor.h"

#include <algorithm>
#include <cmath>
#include <iterator>

#include "effects/vector4.h"

namespace tarn {
namespace {

constexpr AMPCompressorCurve kCurves[] = {
    {16384.0f, 400.0f, 0.75f, 1.14f},  // soft
    {13045.0f, 400.0f, 0.5f, 1.4f},    // mid
    {11626.0f, 400.0f, 0.33f, 1.75f},  // high
    {8192.0f, 800.0f, 0.25f, 2.25f},   // heavy
};
static_assert(std::size(kCurves) == kCompressorCurveCount);

// Every branch is computed and one is picked.
void apply_curve(const AMPCompressorCurve& curve, float* samples, uint32_t count) {
    const float threshold = curve.threshold, knee = curve.knee;
    const float ratio = curve.ratio, gain = curve.gain;
    const float q = (ratio - 1.0f) / (knee * 4.0f);
    const float below = threshold - knee, above = threshold + knee;
    Transform4(samples, count, [=](Float4 x, uint32_t) {
        const Float4 size = Abs4(x);
        const Float4 over = (size - threshold) * ratio + threshold;
        const Float4 f = (size - threshold) + knee;
        const Float4 bent = (q * f * f + threshold - knee) + f;
        const Float4 level = size <= below ? size : size >= above ? over : bent;
        return CopySign4(level * gain, x);
    });
}

// A hard knee: what is above the threshold keeps its sign and grows by `slope`, a float or four.
template <typename Slope>
Float4 bend(Float4 x, float threshold, Slope slope) {
    const Float4 edge = CopySign4(Splat4(threshold), x);
    return Abs4(x) < threshold ? x : (x - edge) * slope + edge;
}

// `count` is a multiple of four.
bool any_above(const float* samples, uint32_t count, float level) {
    Mask4 found{};
    for (uint32_t i = 0; i < count; i += 4)
        found |= Abs4(Load4(samples + i)) > level;
    return Any4(found);
}

// Frames before the first with a sample above the level.
uint32_t quiet_frames(const float* left, const float* right, uint32_t count, float level) {
    constexpr uint32_t kStride = 32;
    uint32_t i = 0;
    while (count - i >= kStride && !any_above(left + i, kStride, level) &&
           !any_above(right + i, kStride, level))
        i += kStride;
    while (i < count && !(std::fabs(left[i]) > level) && !(std::fabs(right[i]) > level))
        ++i;
    return i;
}

void scale(float* samples, uint32_t count, float gain) {
    for (uint32_t i = 0; i < count; ++i)
        samples[i] = samples[i] * gain;
}

}  // namespace

const AMPCompressorCurve& AMPGetCompressorCurve(int setting) {
    return kCurves[std::clamp(setting, 1, kCompressorCurveCount) - 1];
}

void AMPSoftKneeCompressor::Process(float* left, float* right, uint32_t count) const {
    apply_curve(m_curve, left, count);
    apply_curve(m_curve, right, count);
}

AMPAttackRamp::AMPAttackRamp(uint32_t sample_rate, float trigger, float milliseconds)
    : m_trigger(trigger) {
    const float length = static_cast<float>(sample_rate) / 1000.0f * milliseconds;
    m_length = std::max(static_cast<uint32_t>(length), 1u);
}

AMPAttackRamp::Run AMPAttackRamp::Next(const float* left, const float* right, uint32_t count) {
    if (m_counter > 1) {
        const uint32_t step = m_length - m_counter + 1;
        const uint32_t run = std::min(count, m_counter - 1);
        m_counter -= run;
        return {Phase::kRamp, run, step};
    }
    if (m_counter == 1) {
        m_counter = 0;
        return {Phase::kFull, 1, 0};
    }
    const uint32_t quiet = quiet_frames(left, right, count, m_trigger);
    if (quiet > 0) return {Phase::kFull, quiet, 0};
    m_counter = m_length;
    return {Phase::kTrigger, 1, 0};
}

AMPRampCompressor::AMPRampCompressor(uint32_t sample_rate, float threshold, float ratio, float gain,
                                     float ramp_milliseconds)
    : m_threshold(threshold),
      m_ratio(ratio),
      m_gain(gain),
      m_ramp(sample_rate, threshold, ramp_milliseconds),
      m_slopes(m_ramp.Length() + 3) {  // the last four are read as one
    const float length = static_cast<float>(m_ramp.Length());
    for (uint32_t step = 0; step < m_ramp.Length(); ++step)
        m_slopes[step] = 1.0f - (1.0f - ratio) * (static_cast<float>(step) / length);
}

void AMPRampCompressor::Process(float* left, float* right, uint32_t count) {
    while (count > 0) {
        const AMPAttackRamp::Run run = m_ramp.Next(left, right, count);
        for (float* const samples : {left, right}) {
            switch (run.phase) {
                case AMPAttackRamp::Phase::kFull:
                    CompressFully(samples, run.count);
                    break;
                case AMPAttackRamp::Phase::kTrigger:
                    scale(samples, run.count, m_gain);
                    break;
                case AMPAttackRamp::Phase::kRamp:
                    Compress(samples, m_slopes.data() + run.step, run.count);
                    break;
            }
        }
        left += run.count, right += run.count, count -= run.count;
    }
}

void AMPRampCompressor::Compress(float* samples, const float* slopes, uint32_t count) const {
    Transform4(samples, count, [=, this](Float4 x, uint32_t i) {
        return bend(x, m_threshold, Load4(slopes + i)) * m_gain;
    });
}

void AMPRampCompressor::CompressFully(float* samples, uint32_t count) const {
    Transform4(samples, count,
               [this](Float4 x, uint32_t) { return bend(x, m_threshold, m_ratio) * m_gain; });
}

}  // namespace tarn

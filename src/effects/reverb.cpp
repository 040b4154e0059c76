#include "effects/reverb.h"

#include <algorithm>
#include <cmath>
#include <iterator>

namespace tarn {
namespace {

struct Depth {
    float dry, wet;
};
constexpr Depth kDepths[] = {{0.65f, 0.07f}, {0.55f, 0.15f}, {0.45f, 0.20f}};  // low, mid, high

struct Space {
    AMPReverbPreset::Comb combs[kCombCount];  // feedback, delay in ms, damping, cross gain
    float all_pass_delay, all_pass_gain, pre_delay;
};
constexpr Space kSpaces[] = {
    {{{0.35f, 12.5f, 0.43f, 0.24f},  // room
      {0.38f, 14.0f, 0.425f, -0.22f},
      {0.40f, 15.2f, 0.42f, 0.16f},
      {0.41f, 16.3f, 0.40f, -0.14f},
      {0.42f, 18.1f, 0.385f, 0.09f},
      {0.53f, 19.0f, 0.3735f, -0.13f}},
     3.0f,
     0.7f,
     5.0f},
    {{{0.46f, 40.1f, 0.4482f, 0.24f},  // club
      {0.47f, 42.0f, 0.4399f, -0.22f},
      {0.475f, 43.5f, 0.435f, 0.16f},
      {0.48f, 45.3f, 0.4316f, -0.14f},
      {0.49f, 47.3f, 0.4233f, 0.09f},
      {0.50f, 49.7f, 0.3735f, -0.13f}},
     8.3f,
     0.7f,
     12.0f},
    {{{0.46f, 50.1f, 0.4482f, 0.30f},  // concert hall
      {0.47f, 61.9f, 0.4399f, -0.20f},
      {0.475f, 73.4f, 0.435f, 0.10f},
      {0.48f, 89.5f, 0.4316f, -0.07f},
      {0.49f, 92.1f, 0.4233f, -0.10f},
      {0.50f, 139.9f, 0.3735f, 0.03f}},
     12.0f,
     0.7f,
     36.0f},
};
constexpr int kDepthCount = static_cast<int>(std::size(kDepths));
static_assert(std::size(kSpaces) * std::size(kDepths) == kReverbPresetCount);

// Crossed on purpose: the preset's cross gain is the feedback, and the cross mix is the room's.
AMPCombBank make_combs(const AMPReverbPreset& preset) {
    AMPCombSettings settings[kCombCount];
    for (int k = 0; k < kCombCount; ++k) {
        const AMPReverbPreset::Comb& comb = preset.combs[k];
        settings[k] = {AMPDelayInSamples(comb.delay, preset.sample_rate), comb.cross_gain,
                       comb.damping, kSpaces[0].combs[k].cross_gain};
    }
    return AMPCombBank(settings);
}

constexpr float kHighPassShare = 0.3f;  // of the high-passed wet signal, subtracted

}  // namespace

struct AMPReverb::Scratch {
    float left[kReverbSlice], right[kReverbSlice];  // after the pre-delay
    AMPCombMix combs;
    float wet[kReverbSlice], high[kReverbSlice];  // of the channel at hand
    float sum[kReverbSlice];
};

void AMPLoadReverbPreset(AMPReverbPreset* preset, int index) {
    if (index < 0 || index >= kReverbPresetCount) return;
    const Space& space = kSpaces[index / kDepthCount];
    const Depth& depth = kDepths[index % kDepthCount];
    preset->dry = depth.dry;
    preset->wet = depth.wet;
    std::copy(std::begin(space.combs), std::end(space.combs), preset->combs);
    preset->all_pass_delay = space.all_pass_delay;
    preset->all_pass_gain = space.all_pass_gain;
    preset->pre_delay = space.pre_delay;
}

uint32_t AMPDelayInSamples(float milliseconds, uint32_t sample_rate) {
    const float rate = static_cast<float>(sample_rate);
    return static_cast<uint32_t>(std::trunc(milliseconds * rate / 1000.0f + 0.5f));
}

// First order, near 75 Hz.
AMPBiQuadraticCoefficients AMPDesignReverbHighPass(uint32_t sample_rate) {
    const float w = 6.2831855f * 1000.0f / static_cast<float>(sample_rate);
    const double half = w / 2.0f;
    const float k = static_cast<float>(static_cast<double>(0.075f) * std::tan(half));
    const float a = (1.0f - k) / (1.0f + k);
    const float b = (1.0f + a) / 2.0f;
    return {b, -b, 0.0f, -a, 0.0f};
}

AMPReverb::Channel::Channel(const AMPReverbPreset& preset)
    : pre_delay(AMPDelayInSamples(preset.pre_delay, preset.sample_rate)),
      all_pass(AMPDelayInSamples(preset.all_pass_delay, preset.sample_rate), preset.all_pass_gain),
      high_pass(AMPDesignReverbHighPass(preset.sample_rate)) {}

void AMPReverb::Channel::Reset() {
    pre_delay.Reset();
    all_pass.Reset();
    high_pass.Reset();
}

AMPReverb::AMPReverb(const AMPReverbPreset& preset)
    : m_dry(preset.dry),
      m_wet(preset.wet),
      m_left(preset),
      m_right(preset),
      m_combs(make_combs(preset)),
      m_scratch(std::make_unique<Scratch>()) {}

AMPReverb::~AMPReverb() = default;

void AMPReverb::Process(float* left, float* right, uint32_t count) {
    for (uint32_t done = 0; done < count;) {
        const uint32_t slice = std::min(kReverbSlice, count - done);
        ProcessSlice(left + done, right + done, slice);
        done += slice;
    }
}

void AMPReverb::Reset() {
    m_left.Reset();
    m_right.Reset();
    m_combs.Reset();
}

void AMPReverb::ProcessSlice(float* left, float* right, uint32_t count) {
    Scratch& s = *m_scratch;
    m_left.pre_delay.Process(s.left, left, count);
    m_right.pre_delay.Process(s.right, right, count);
    m_combs.Process(s.left, s.right, count, &s.combs);

    Smooth(&m_left, s.combs.left, count);
    AddWet(left, count);
    // The right channel hears the finished left signal and its high-pass in place of left combs 1
    // and 2, which the left channel has from the right as such. So the channels differ even for
    // mono; that is the intended image.
    const float k1 = kSpaces[0].combs[0].cross_gain, k2 = kSpaces[0].combs[1].cross_gain;
    for (uint32_t i = 0; i < count; ++i) {
        s.sum[i] = s.combs.right[i] + k1 * s.wet[i] + k2 * s.high[i] + s.combs.cross[0][i] +
                   s.combs.cross[1][i] + s.combs.cross[2][i] + s.combs.cross[3][i];
    }
    Smooth(&m_right, s.sum, count);
    AddWet(right, count);
}

// The all-pass, less a part of what a high-pass leaves of it.
void AMPReverb::Smooth(Channel* channel, const float* combs, uint32_t count) {
    Scratch& s = *m_scratch;
    channel->all_pass.Process(s.wet, combs, count);
    channel->high_pass.Process(s.high, s.wet, count);
    for (uint32_t i = 0; i < count; ++i)
        s.wet[i] = s.wet[i] - kHighPassShare * s.high[i];
}

void AMPReverb::AddWet(float* signal, uint32_t count) const {
    const float* const wet = m_scratch->wet;
    for (uint32_t i = 0; i < count; ++i)
        signal[i] = signal[i] * m_dry + wet[i] * m_wet;
}

}  // namespace tarn

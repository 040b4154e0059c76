#include "effects/effect_chain.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "effects/compressor.h"
#include "effects/equalizer.h"
#include "effects/fade.h"
#include "effects/flush_denormals.h"
#include "effects/normalize.h"
#include "effects/reverb.h"

namespace tarn {
namespace {

// Frames that pass through all stages at a time: they stay in the nearest cache.
constexpr uint32_t kSlice = 256;
constexpr float kLimit = 32766.5f;

constexpr float kRampThreshold = 12000.0f, kRampRatio = 0.3f, kRampGain = 1.8f;
constexpr float kRampMilliseconds = 50.0f;
constexpr int kRampSetting = 4;  // the settings below it are soft knees

bool is_sample_rate(uint32_t rate) {
    return rate >= kMinSampleRate && rate <= kMaxSampleRate;
}

int32_t in_range(int32_t value, int32_t lowest, int32_t highest) {
    return value < lowest || value > highest ? 0 : value;
}

AMPEffectSettings sanitized(const AMPEffectSettings& s) {
    AMPEffectSettings clean = s;
    clean.treble = in_range(s.treble, -100, 100);
    clean.bass = in_range(s.bass, -100, 100);
    clean.reverb = in_range(s.reverb, 0, kReverbPresetCount);
    clean.compressor = in_range(s.compressor, 0, kCompressorCurveCount);
    clean.normalize = in_range(s.normalize, 0, kNormalizeSettingCount);
    clean.peak = s.peak >= 0.0f && s.peak <= 1.0f ? s.peak : 0.0f;  // no for NaN, too
    return clean;
}

std::unique_ptr<AMPReverb> make_reverb(int32_t setting, uint32_t sample_rate) {
    if (setting == 0) return nullptr;
    AMPReverbPreset preset{};
    preset.sample_rate = sample_rate;
    AMPLoadReverbPreset(&preset, setting - 1);
    return std::make_unique<AMPReverb>(preset);
}

void split(const int16_t* input, float* left, float* right, uint32_t frames) {
    for (uint32_t i = 0; i < frames; ++i) {
        left[i] = input[2 * i];
        right[i] = input[2 * i + 1];
    }
}

// Anything that is no number is silence: the gain of a tiny peak can be infinite.
int16_t to_sample(float value) {
    value = value > kLimit ? kLimit : value;
    value = value < -kLimit ? -kLimit : value;
    value = value == value ? value : 0.0f;
    return static_cast<int16_t>(static_cast<int32_t>(value));
}

void join(const float* left, const float* right, int16_t* output, uint32_t frames) {
    for (uint32_t i = 0; i < frames; ++i) {
        output[2 * i] = to_sample(left[i]);
        output[2 * i + 1] = to_sample(right[i]);
    }
}

}  // namespace

// The settings are in range. A level or a reverb stage that doesn't change is left alone.
class AMPEffectChange {
public:
    AMPEffectChange(uint32_t sample_rate, const AMPEffectSettings& from,
                    const AMPEffectSettings& to, AMPEffectChange* superseded);

    uint32_t sampleRate;
    AMPEffectSettings settings;
    bool newLevel, newReverb;
    float levelPeak = 0;                // when newLevel
    std::unique_ptr<AMPReverb> reverb;  // before it is applied the new one, then the old one
};

AMPEffectChange::AMPEffectChange(uint32_t sample_rate, const AMPEffectSettings& from,
                                 const AMPEffectSettings& to, AMPEffectChange* superseded)
    : sampleRate(sample_rate),
      settings(to),
      newLevel(to.normalize != from.normalize),
      newReverb(to.reverb != from.reverb) {
    if (newLevel) {
        levelPeak = to.peak;
    } else if (superseded && superseded->newLevel) {
        newLevel = true;
        levelPeak = superseded->levelPeak;
    }
    AMPEffectChange* const donor = superseded && superseded->newReverb &&
                                           superseded->sampleRate == sample_rate &&
                                           superseded->settings.reverb == to.reverb
                                       ? superseded
                                       : nullptr;
    newReverb = newReverb || (superseded && superseded->newReverb);
    if (donor)
        reverb = std::move(donor->reverb);
    else if (newReverb)
        reverb = make_reverb(to.reverb, sample_rate);
}

class AMPEffectChain {
public:
    explicit AMPEffectChain(uint32_t sample_rate)
        : m_sampleRate(sample_rate),
          m_equalizer(sample_rate),
          m_softKnee(AMPGetCompressorCurve(1)),
          m_ramp(sample_rate, kRampThreshold, kRampRatio, kRampGain, kRampMilliseconds),
          m_fade(sample_rate) {
        m_normalize.SetSource(0);
    }

    void SetStart(uint32_t ms) { m_fade.SetStartTime(ms); }
    void SetEnd(uint32_t ms) { m_fade.SetEndTime(ms); }
    void SetParameters(const AMPEffectSettings& settings);
    bool Apply(AMPEffectChange* change);
    void Reset();
    void Process(int16_t* output, const int16_t* input, uint32_t frames, uint32_t position_ms);

private:
    void ProcessSlice(const AMPFade::Plan& fade, uint32_t first, uint32_t frames);

    uint32_t m_sampleRate;
    AMPEffectSettings m_settings;
    AMPEqualizer m_equalizer;
    std::unique_ptr<AMPReverb> m_reverb;
    AMPSoftKneeCompressor m_softKnee;
    AMPRampCompressor m_ramp;
    AMPNormalize m_normalize;
    AMPFade m_fade;
    alignas(16) float m_left[kSlice], m_right[kSlice];
};

void AMPEffectChain::SetParameters(const AMPEffectSettings& settings) {
    AMPEffectChange change(m_sampleRate, m_settings, sanitized(settings), nullptr);
    static_cast<void>(Apply(&change));  // of our own rate
}

bool AMPEffectChain::Apply(AMPEffectChange* change) {
    if (change->sampleRate != m_sampleRate) return false;
    const AMPEffectSettings& next = change->settings;
    if (change->newReverb) m_reverb.swap(change->reverb);
    m_equalizer.SetGains(static_cast<float>(next.bass) / 100.0f,
                         static_cast<float>(next.treble) / 100.0f);
    if (next.compressor != 0) m_softKnee.SetCurve(AMPGetCompressorCurve(next.compressor));
    if (change->newLevel && next.normalize != 0) {
        m_normalize.SetSource((change->levelPeak == 0.0f ? 1.0f : change->levelPeak) *
                              kNormalizeFullScale);
        m_normalize.SetTarget(AMPNormalizeTarget(next.normalize));
    }
    m_settings = next;
    return true;
}

// The other stages have no history.
void AMPEffectChain::Reset() {
    m_equalizer.Reset();
    if (m_reverb) m_reverb->Reset();
    m_ramp.Reset();
}

void AMPEffectChain::Process(int16_t* output, const int16_t* input, uint32_t frames,
                             uint32_t position_ms) {
    if (m_settings.bypass) {
        std::memmove(output, input, size_t{frames} * 2 * sizeof *output);
        return;
    }
    const FlushDenormals flush;
    const AMPFade::Plan fade = m_fade.MakePlan(frames, position_ms);
    for (uint32_t done = 0; done < frames;) {
        const uint32_t slice = std::min(kSlice, frames - done);
        split(input + size_t{done} * 2, m_left, m_right, slice);
        ProcessSlice(fade, done, slice);
        join(m_left, m_right, output + size_t{done} * 2, slice);
        done += slice;
    }
}

void AMPEffectChain::ProcessSlice(const AMPFade::Plan& fade, uint32_t first, uint32_t frames) {
    if (m_settings.bass != 0 || m_settings.treble != 0)
        m_equalizer.Process(m_left, m_right, frames);
    if (m_reverb) m_reverb->Process(m_left, m_right, frames);
    if (m_settings.compressor == kRampSetting)
        m_ramp.Process(m_left, m_right, frames);
    else if (m_settings.compressor != 0)
        m_softKnee.Process(m_left, m_right, frames);
    if (m_settings.normalize != 0) m_normalize.Process(m_left, m_right, frames);
    if (m_settings.fade) m_fade.Apply(fade, m_left, m_right, first, frames);
}

AMPEffectChain* AMPEffectCreate(uint32_t sample_rate) {
    if (!is_sample_rate(sample_rate)) return nullptr;
    try {
        return std::make_unique<AMPEffectChain>(sample_rate).release();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void AMPEffectDestroy(AMPEffectChain* chain) {
    const std::unique_ptr<AMPEffectChain> owner(chain);
}

void AMPEffectSetRange(AMPEffectChain* chain, uint32_t start_ms, uint32_t end_ms) {
    chain->SetStart(start_ms);
    chain->SetEnd(end_ms);
}

void AMPEffectSetStart(AMPEffectChain* chain, uint32_t ms) {
    chain->SetStart(ms);
}

void AMPEffectSetEnd(AMPEffectChain* chain, uint32_t ms) {
    chain->SetEnd(ms);
}

bool AMPEffectSetParameters(AMPEffectChain* chain, const AMPEffectSettings& settings) {
    try {
        chain->SetParameters(settings);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

AMPEffectChange* AMPEffectPrepare(uint32_t sample_rate, const AMPEffectSettings& from,
                                  const AMPEffectSettings& to, AMPEffectChange* superseded) {
    if (!is_sample_rate(sample_rate)) return nullptr;
    try {
        return std::make_unique<AMPEffectChange>(sample_rate, sanitized(from), sanitized(to),
                                                 superseded)
            .release();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

bool AMPEffectApply(AMPEffectChain* chain, AMPEffectChange* change) {
    return chain->Apply(change);
}

void AMPEffectDiscard(AMPEffectChange* change) {
    const std::unique_ptr<AMPEffectChange> owner(change);
}

void AMPEffectReset(AMPEffectChain* chain) {
    chain->Reset();
}

void AMPEffectProcess(AMPEffectChain* chain, int16_t* output, const int16_t* input, uint32_t frames,
                      uint32_t position_ms) {
    chain->Process(output, input, frames, position_ms);
}

}  // namespace tarn

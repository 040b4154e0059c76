// reverb.h - the stereo reverberator: three spaces by three depths.
//
// Each channel has a pre-delay, six parallel combs, a mix that crosses over from the other channel,
// one all-pass and a first-order high-pass that is partly subtracted. The space settles the delays,
// the depth only the dry and wet gains. Any other setting is a new object, silent at first.
#pragma once

#include <cstdint>
#include <memory>

#include "effects/comb_bank.h"
#include "effects/filters.h"

namespace tarn {

struct AMPReverbPreset {
    struct Comb {
        float feedback;  // the preset's data; reaches no filter, see AMPReverb
        float delay;     // milliseconds
        float damping;
        float cross_gain;
    };
    uint32_t sample_rate;
    float dry, wet;
    Comb combs[kCombCount];
    float all_pass_delay;  // milliseconds
    float all_pass_gain;
    float pre_delay;  // milliseconds
};

// Room low, mid, high, then club, then concert hall.
constexpr int kReverbPresetCount = 9;
// Fills all but the sample rate. An index that is no preset leaves the record as it stands.
void AMPLoadReverbPreset(AMPReverbPreset* preset, int index);

// Milliseconds to the nearest whole sample.
uint32_t AMPDelayInSamples(float milliseconds, uint32_t sample_rate);
AMPBiQuadraticCoefficients AMPDesignReverbHighPass(uint32_t sample_rate);

// Two columns of the presets are crossed, and meant to be: each comb's feedback is the preset's
// cross gain, and the cross mix has the room's cross gains in every preset.
class AMPReverb {
public:
    explicit AMPReverb(const AMPReverbPreset& preset);
    ~AMPReverb();

    // In place, any block length.
    void Process(float* left, float* right, uint32_t count);
    // Back to silence.
    void Reset();

private:
    struct Channel {
        explicit Channel(const AMPReverbPreset& preset);
        void Reset();
        AMPSimpleDelay pre_delay;
        AMPAllPathFilter all_pass;
        AMPBiQuadraticFilter high_pass;
    };
    struct Scratch;

    void ProcessSlice(float* left, float* right, uint32_t count);
    void Smooth(Channel* channel, const float* combs, uint32_t count);
    void AddWet(float* signal, uint32_t count) const;

    float m_dry, m_wet;
    Channel m_left, m_right;
    AMPCombBank m_combs;
    std::unique_ptr<Scratch> m_scratch;
};

}  // namespace tarn

// equalizer.h - bass and treble.
//
// Adds a low-passed (400 Hz) and a high-passed (2500 Hz) copy of the signal to itself, each times
// its gain: 1 doubles the band, -1 cancels it. Second-order Butterworth-like sections, Q 0.707.
#pragma once

#include <cstdint>

#include "effects/filters.h"

namespace tarn {

AMPBiQuadraticCoefficients AMPDesignLowPass(uint32_t sample_rate);
AMPBiQuadraticCoefficients AMPDesignHighPass(uint32_t sample_rate);

class AMPEqualizer {
public:
    explicit AMPEqualizer(uint32_t sample_rate);

    // -1 to 1. They act from the next block on, without a step in the filters' history.
    void SetGains(float bass, float treble) { m_bassGain = bass, m_trebleGain = treble; }
    // In place, any block length.
    void Process(float* left, float* right, uint32_t count);
    // Back to silence; the gains stay.
    void Reset();

private:
    float m_trebleGain = 0, m_bassGain = 0;
    AMPBiQuadraticFilter m_leftHigh, m_leftLow, m_rightHigh, m_rightLow;
};

}  // namespace tarn

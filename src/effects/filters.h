// filters.h - the four primitive filters that the equaliser and the reverb are built from.
//
// Sums are formed in single precision, strictly from left to right as the formulas stand, so that
// every build gives the same samples.
#pragma once

#include <cstdint>

#include "effects/delay_line.h"
#include "effects/filter.h"

namespace tarn {

// Two zeros and two poles, direct form I:
// y[n] = x[n] b0 + x[n-1] b1 + x[n-2] b2 - y[n-1] a1 - y[n-2] a2.
struct AMPBiQuadraticCoefficients {
    float b0, b1, b2, a1, a2;
};

class AMPBiQuadraticFilter final : public IAMPFilter {
public:
    struct State {
        float y2 = 0, y1 = 0, x2 = 0, x1 = 0;
    };

    explicit AMPBiQuadraticFilter(const AMPBiQuadraticCoefficients& c) : m_coefficients(c) {}
    void Process(float* output, const float* input, uint32_t count) override;
    void Reset() override { m_state = {}; }

    // For a stage that runs several filters side by side.
    const AMPBiQuadraticCoefficients& Coefficients() const { return m_coefficients; }
    State& History() { return m_state; }

private:
    State m_state;
    AMPBiQuadraticCoefficients m_coefficients;
};

// A feedback comb with a damping term. With delay D of at least 2, feedback g and damping c:
// y[n] = (y[n-2] - x[n-2]) c + x[n-D] + g y[n-D].
// The damping term looks two samples back, not one, in both lines, and so lets an impulse out after
// two samples already, as -c. That is intended: the sound of the reverb rests on it. The reverb
// itself runs its twelve as one AMPCombBank, with the same samples.
class AMPCombLPFFilter final : public IAMPFilter {
public:
    AMPCombLPFFilter(uint32_t delay, float feedback, float damping);
    void Process(float* output, const float* input, uint32_t count) override;
    void Reset() override;

private:
    AMPDelayLine m_output, m_input;
    float m_feedback, m_damping;
};

// The Schroeder all-pass: y[n] = (y[n-D] - x[n]) g + x[n-D].
class AMPAllPathFilter final : public IAMPFilter {
public:
    AMPAllPathFilter(uint32_t delay, float gain) : m_output(delay), m_input(delay), m_gain(gain) {}
    void Process(float* output, const float* input, uint32_t count) override;
    void Reset() override;

private:
    AMPDelayLine m_output, m_input;
    float m_gain;
};

// Gives back its input `delay` samples late.
class AMPSimpleDelay final : public IAMPFilter {
public:
    explicit AMPSimpleDelay(uint32_t delay) : m_line(delay) {}
    void Process(float* output, const float* input, uint32_t count) override;
    void Reset() override { m_line.Clear(); }

private:
    AMPDelayLine m_line;
};

}  // namespace tarn

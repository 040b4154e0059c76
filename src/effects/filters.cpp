#include "effects/filters.h"

#include <algorithm>

namespace tarn {

void AMPBiQuadraticFilter::Process(float* output, const float* input, uint32_t count) {
    const auto [b0, b1, b2, a1, a2] = m_coefficients;
    State s = m_state;
    if (b2 == 0 && a2 == 0) {
        // First order: the terms that are left out would add a zero.
        for (uint32_t i = 0; i < count; ++i) {
            const float x = input[i];
            const float y = x * b0 + s.x1 * b1 - s.y1 * a1;
            s = {s.y1, y, s.x1, x};
            output[i] = y;
        }
    } else {
        for (uint32_t i = 0; i < count; ++i) {
            const float x = input[i];
            const float y = x * b0 + s.x1 * b1 + s.x2 * b2 - s.y1 * a1 - s.y2 * a2;
            s = {s.y1, y, s.x1, x};
            output[i] = y;
        }
    }
    m_state = s;
}

AMPCombLPFFilter::AMPCombLPFFilter(uint32_t delay, float feedback, float damping)
    : m_output(delay), m_input(delay), m_feedback(feedback), m_damping(damping) {}

void AMPCombLPFFilter::Process(float* output, const float* input, uint32_t count) {
    float y2 = m_output.Read(-1), y1 = m_output.Read(0);
    float x2 = m_input.Read(-1), x1 = m_input.Read(0);
    while (count > 0) {
        const uint32_t run = std::min(count, m_output.RunLength());
        float* const past_y = m_output.Run();
        float* const past_x = m_input.Run();
        for (uint32_t i = 0; i < run; ++i) {
            const float y = (y2 - x2) * m_damping + past_x[i] + m_feedback * past_y[i];
            y2 = y1, y1 = y;
            x2 = x1, x1 = input[i];
            past_x[i] = x1;
            past_y[i] = y;
            output[i] = y;
        }
        m_output.Advance(run);
        m_input.Advance(run);
        output += run, input += run, count -= run;
    }
}

void AMPCombLPFFilter::Reset() {
    m_output.Clear();
    m_input.Clear();
}

void AMPAllPathFilter::Process(float* output, const float* input, uint32_t count) {
    while (count > 0) {
        const uint32_t run = std::min(count, m_output.RunLength());
        float* __restrict const past_y = m_output.Run();
        float* __restrict const past_x = m_input.Run();
        const float* __restrict const in = input;
        float* __restrict const out = output;
        for (uint32_t i = 0; i < run; ++i) {
            const float y = (past_y[i] - in[i]) * m_gain + past_x[i];
            past_y[i] = y;
            past_x[i] = in[i];
            out[i] = y;
        }
        m_output.Advance(run);
        m_input.Advance(run);
        output += run, input += run, count -= run;
    }
}

void AMPAllPathFilter::Reset() {
    m_output.Clear();
    m_input.Clear();
}

void AMPSimpleDelay::Process(float* output, const float* input, uint32_t count) {
    while (count > 0) {
        const uint32_t run = std::min(count, m_line.RunLength());
        std::copy_n(m_line.Run(), run, output);
        std::copy_n(input, run, m_line.Run());
        m_line.Advance(run);
        output += run, input += run, count -= run;
    }
}

}  // namespace tarn

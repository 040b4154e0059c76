#include "effects/equalizer.h"

#include <cmath>

#include "effects/vector4.h"

namespace tarn {
namespace {

constexpr float kLowAngle = 2513.2742f;           // 2 pi 400 Hz
constexpr float kHighAngle = 15707.964f;          // 2 pi 2500 Hz
constexpr double kInverseQ = 1.4144271612167358;  // 1 / 0.707, as a float would have it

// What both designs share: the poles, and the numerator's common term.
struct Poles {
    float base, gamma, a1, a2;
};

Poles design_poles(float angle, uint32_t sample_rate) {
    const double w = angle / static_cast<float>(sample_rate);
    const double a = std::sin(w) * kInverseQ * 0.5;
    const float beta = static_cast<float>(((1.0 - a) * 0.5) / (a + 1.0));
    const float base = beta + 0.5f;
    const float gamma = static_cast<float>(std::cos(w) * static_cast<double>(base));
    return {base, gamma, gamma * -2.0f, beta + beta};
}

// The four filters in the lanes of one register: each frame depends on the one before, so the
// only work that can go side by side is that of different filters.
struct FourFilters {
    Float4 b0, b1, b2, a1, a2;
    Float4 x1, x2, y1, y2;

    Float4 Next(Float4 x) {
        const Float4 y = x * b0 + x1 * b1 + x2 * b2 - y1 * a1 - y2 * a2;
        x2 = x1, x1 = x;
        y2 = y1, y1 = y;
        return y;
    }
};

template <typename Field>
Float4 gather(AMPBiQuadraticFilter* const filters[4], Field field) {
    return Float4{field(*filters[0]), field(*filters[1]), field(*filters[2]), field(*filters[3])};
}

FourFilters load_filters(AMPBiQuadraticFilter* const filters[4]) {
    using Filter = AMPBiQuadraticFilter;
    return {gather(filters, [](Filter& f) { return f.Coefficients().b0; }),
            gather(filters, [](Filter& f) { return f.Coefficients().b1; }),
            gather(filters, [](Filter& f) { return f.Coefficients().b2; }),
            gather(filters, [](Filter& f) { return f.Coefficients().a1; }),
            gather(filters, [](Filter& f) { return f.Coefficients().a2; }),
            gather(filters, [](Filter& f) { return f.History().x1; }),
            gather(filters, [](Filter& f) { return f.History().x2; }),
            gather(filters, [](Filter& f) { return f.History().y1; }),
            gather(filters, [](Filter& f) { return f.History().y2; })};
}

void store_history(const FourFilters& four, AMPBiQuadraticFilter* const filters[4]) {
    for (int i = 0; i < 4; ++i)
        filters[i]->History() = {four.y2[i], four.y1[i], four.x2[i], four.x1[i]};
}

}  // namespace

AMPBiQuadraticCoefficients AMPDesignLowPass(uint32_t sample_rate) {
    const Poles p = design_poles(kLowAngle, sample_rate);
    const float x = p.base - p.gamma;
    return {x * 0.5f, x, x * 0.5f, p.a1, p.a2};
}

AMPBiQuadraticCoefficients AMPDesignHighPass(uint32_t sample_rate) {
    const Poles p = design_poles(kHighAngle, sample_rate);
    const float x = p.base + p.gamma;
    return {x * 0.5f, -x, x * 0.5f, p.a1, p.a2};
}

AMPEqualizer::AMPEqualizer(uint32_t sample_rate)
    : m_leftHigh(AMPDesignHighPass(sample_rate)),
      m_leftLow(AMPDesignLowPass(sample_rate)),
      m_rightHigh(m_leftHigh),
      m_rightLow(m_leftLow) {}

void AMPEqualizer::Process(float* left, float* right, uint32_t count) {
    AMPBiQuadraticFilter* const filters[4] = {&m_leftLow, &m_leftHigh, &m_rightLow, &m_rightHigh};
    FourFilters four = load_filters(filters);
    const Float4 gains = {m_bassGain, m_trebleGain, m_bassGain, m_trebleGain};
    for (uint32_t i = 0; i < count; ++i) {
        const Float4 band = four.Next(Float4{left[i], left[i], right[i], right[i]}) * gains;
        left[i] = left[i] + band[0] + band[1];
        right[i] = right[i] + band[2] + band[3];
    }
    store_history(four, filters);
}

void AMPEqualizer::Reset() {
    for (AMPBiQuadraticFilter* const filter : {&m_leftHigh, &m_leftLow, &m_rightHigh, &m_rightLow})
        filter->Reset();
}

}  // namespace tarn

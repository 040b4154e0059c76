#include "effects/normalize.h"

#include <algorithm>
#include <iterator>

namespace tarn {
namespace {

constexpr float kTargets[] = {32000.0f, 24000.0f, 12000.0f};
static_assert(std::size(kTargets) == kNormalizeSettingCount);

void amplify(float* samples, uint32_t count, float gain, float target) {
    for (uint32_t i = 0; i < count; ++i) {
        const float y = samples[i] * gain;
        samples[i] = y > target ? target : y;
    }
}

}  // namespace

float AMPNormalizeTarget(int setting) {
    return kTargets[std::clamp(setting, 1, kNormalizeSettingCount) - 1];
}

void AMPNormalize::SetSource(float level) {
    m_source = level == 0.0f ? kUnknownSource : level;
    m_gain = m_target / m_source;
}

void AMPNormalize::SetTarget(float level) {
    m_target = level;
    m_gain = m_target / m_source;
}

void AMPNormalize::Process(float* left, float* right, uint32_t count) const {
    amplify(left, count, m_gain, m_target);
    amplify(right, count, m_gain, m_target);
}

}  // namespace tarn

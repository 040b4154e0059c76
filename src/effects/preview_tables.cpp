#include "effects/preview_tables.h"

#include "effects/compressor.h"
#include "effects/normalize.h"

namespace tarn {
namespace {

// What is below -128 becomes -127, not -128. Intended. What is no number becomes 0.
int8_t to_point(float level) {
    float q = level / 256.0f;
    if (q < -128.0f) q = -127.0f;
    if (q > 127.0f) q = 127.0f;
    return q == q ? static_cast<int8_t>(q) : int8_t{0};
}

template <typename Level>
void fill(AMPPreviewTable* table, Level level) {
    int v = -128;
    for (int8_t& point : *table)
        point = to_point(level(static_cast<float>(v++) * 256.0f));
}

}  // namespace

void AMPEffectBuildCompressorTable(AMPPreviewTable* table, int32_t setting) {
    if (setting < 1 || setting > kCompressorCurveCount) {
        fill(table, [](float f) { return f; });
        return;
    }
    const AMPCompressorCurve curve = AMPGetCompressorCurve(setting);
    fill(table, [&](float f) {
        const float level =
            f <= curve.threshold ? f : (f - curve.threshold) * curve.ratio + curve.threshold;
        return level * curve.gain;
    });
}

void AMPEffectBuildNormalizeTable(AMPPreviewTable* table, int32_t setting, float peak) {
    const float source = peak * kNormalizeFullScale;
    const bool on = setting >= 1 && setting <= kNormalizeSettingCount;
    const float target = on ? AMPNormalizeTarget(setting) : source;
    fill(table, [&](float f) {
        float level = f * (target / source);
        if (level < -target) level = -target;
        if (level > target) level = target;
        return level;
    });
}

}  // namespace tarn

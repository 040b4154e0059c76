#include "effects/wave_peak.h"

#include "effects/wave_points.h"

namespace tarn {

Reason AMPMeasureWavePeak(AMPWaveSource* source, float* peak, const AMPPeakProgress& progress) {
    constexpr uint64_t kProgressStep = 1 << 12;  // points
    AMPWavePoints points(&source->file, source->header, kOverviewRate);
    AMPPeakMeter meter;
    int8_t left = 0, right = 0;
    uint64_t taken = 0;
    for (; points.Next(&left, &right); ++taken) {
        if (taken % kProgressStep == 0 && progress && !progress(taken, points.Count()))
            return {ReasonCode::kCancelled, ReasonSide::kNone, source->path, {}};
        meter.Add(right);
        meter.Add(left);
    }
    if (taken < points.Count()) meter.Add(0);  // the rest of the overview stays 0
    *peak = meter.Peak();
    Reason reason = points.GetReason();
    if (reason) reason.file = source->path;
    return reason;
}

}  // namespace tarn

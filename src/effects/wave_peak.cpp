#include "effects/wave_peak.h"

#include <cstdlib>

#include "effects/wave_points.h"

namespace tarn {

void AMPPeakMeter::Add(int8_t point) {
    const int size = std::abs(int{point});
    if (size > m_maximum) m_maximum = static_cast<int8_t>(size);
}

Reason AMPMeasureWavePeak(const std::string& source, float* peak) {
    XpFile file;
    WaveHeader header;
    if (Reason reason = AMPOpenWaveFile(source, &file, &header)) return reason;
    AMPWavePoints points(&file, header, kOverviewRate);
    AMPPeakMeter meter;
    int8_t left = 0, right = 0;
    uint64_t taken = 0;
    for (; points.Next(&left, &right); ++taken) {
        meter.Add(right);
        meter.Add(left);
    }
    if (taken < points.Count()) meter.Add(0);  // the rest of the overview stays 0
    *peak = meter.Peak();
    Reason reason = points.GetReason();
    if (reason) reason.file = source;
    return reason;
}

}  // namespace tarn

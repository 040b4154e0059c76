// wave_peak.h - the peak of a WAV file as the waveform overview has it.
//
// The overview holds 1120 points a second of each channel, single samples rounded to 8 bits. The
// peak is the largest magnitude of them, divided by 128, and so an estimate: what lies between two
// points isn't seen.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <functional>

#include "effects/wave_file.h"

namespace tarn {

// Points a second that overviews are made with.
constexpr uint32_t kOverviewRate = 1120;

// The running maximum is a signed byte: a point of -128 becomes a maximum of -128, which the next
// point replaces. Intended. Feed the right channel's point before the left one's.
class AMPPeakMeter {
public:
    // Here, as there are millions of them.
    void Add(int8_t point) {
        const int size = std::abs(int{point});
        if (size > m_maximum) m_maximum = static_cast<int8_t>(size);
    }
    int8_t Maximum() const { return m_maximum; }
    float Peak() const { return static_cast<float>(m_maximum) / 128.0f; }  // -1 to 127 / 128

private:
    int8_t m_maximum = 0;
};

// Called now and then with the points so far and their number. False cancels.
using AMPPeakProgress = std::function<bool(uint64_t done, uint64_t count)>;

// Of the whole file.
[[nodiscard]] Reason AMPMeasureWavePeak(AMPWaveSource* source, float* peak,
                                        const AMPPeakProgress& progress = nullptr);

}  // namespace tarn

// waveform_picture.h - a waveform as a picture: two channels over a time grid, in the colours of
// the application.
#pragma once

#include <cstdint>
#include <vector>

#include "movie/waveform/peaks.h"

namespace tarn {

struct Picture {
    uint32_t width = 0, height = 0;
    std::vector<uint8_t> rgb;  // rows from the top, three bytes a pixel
};

constexpr uint32_t kNarrowestPicture = 320, kWidestPicture = 8000;  // pixels

// The treated sound where there is one. Widths out of range are brought into it.
Picture DrawWaveform(const PeakSource& peaks, uint32_t width);

}  // namespace tarn

// sample_quantizer.h - an element that makes 16-bit samples out of a decoder's floats, with the
// very rounding that a save has, so that both treat the same sound.
#pragma once

#include "playback/gst_handles.h"

namespace tarn {

// Interleaved F32LE becomes S16LE. What was 16 bits before comes out as it was.
[[nodiscard]] GstElementPtr MakeSampleQuantizer();

}  // namespace tarn

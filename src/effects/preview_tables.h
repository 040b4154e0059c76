// preview_tables.h - what compressor and normalise make of an 8-bit overview of the sound.
//
// A view redraws a waveform at once by remapping its points instead of running the sound:
// v' = normalize[compressor[v]]. Entry v + 128 stands for v. The curves are simpler than those of
// the samples: no knee, no ramp, and negative levels are only amplified, never compressed.
#pragma once

#include <array>
#include <cstdint>

namespace tarn {

using AMPPreviewTable = std::array<int8_t, 256>;

// A setting that is 0 or unknown leaves every value as it is.
void AMPEffectBuildCompressorTable(AMPPreviewTable* table, int32_t setting);
// Setting 0, or an unknown one, limits to the peak. With a peak of 0 the entry of 0 stays 0.
void AMPEffectBuildNormalizeTable(AMPPreviewTable* table, int32_t setting, float peak);

}  // namespace tarn

// effect_settings.h - the eight effect controls, as the editor, the writers and the player share
// them, and the steps that their settings have.
#pragma once

#include <cstdint>

namespace tarn {

// All zero but the peak means: nothing is done to the sound. Any value may stand in a record; the
// chain treats one that is out of range as 0 (`sanitized` in effect_chain.cpp has the ranges).
struct AMPEffectSettings {
    uint8_t bypass = 0;      // not 0: all effects off, samples copied
    int32_t treble = 0;      // -100 to 100
    int32_t bass = 0;        // -100 to 100
    int32_t reverb = 0;      // 0 off; 1 to 9: room low, mid, high, club ..., concert hall ...
    int32_t compressor = 0;  // 0 off; 1 soft, 2 mid, 3 high, 4 heavy
    int32_t normalize = 0;   // 0 off; 1 "0dB", 2 "-3dB", 3 "-6dB"
    uint8_t fade = 0;        // not 0: fade in and out at the ends of the range
    float peak = 1.0f;       // the clip's, as a fraction of full scale; 0: not known

    bool operator==(const AMPEffectSettings&) const = default;
};
static_assert(sizeof(AMPEffectSettings) == 32);

}  // namespace tarn

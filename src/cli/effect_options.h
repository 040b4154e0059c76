// effect_options.h - the options of the sound effects, by name or by number.
#pragma once

#include <optional>
#include <string>

#include "effects/effect_settings.h"

namespace CLI {
class App;
}

namespace tarn {

struct EffectOptions {
    AMPEffectSettings settings;  // but for peak, bypass and fade
    bool bypass = false, fade = false;
    std::optional<float> peak;  // none: to be measured

    // With the peak that was given, else with `measured`.
    AMPEffectSettings Settings(float measured) const;
    bool NeedsPeak() const;
    // Whether anything is to be done to the sound.
    bool AnyChosen() const;
};

// --bass --treble --reverb --compressor --normalize --fade --bypass --peak
void AddEffectOptions(CLI::App* command, EffectOptions* options);
// --compressor and --normalize alone.
void AddLevelOptions(CLI::App* command, AMPEffectSettings* settings);

}  // namespace tarn

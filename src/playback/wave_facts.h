// wave_facts.h - how long a WAV file of any kind is, for a player: not only those that can be
// edited.
#pragma once

#include <cstdint>
#include <string>

#include "base/reason.h"

namespace tarn {

// Duration in 100-nanosecond units, of what is there; rate in Hz. Both 0 for a file that says
// neither: its parser may know. A reason for one that can't be read, and for a rate that can't be.
[[nodiscard]] Reason ReadWaveFacts(const std::string& path, int64_t* duration, int32_t* rate);

}  // namespace tarn

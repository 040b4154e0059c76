// wave_file.h - treats the sound of a WAV file and writes it to a new one.
//
// Source and target stay whole whatever happens: the new file grows under a hidden name beside the
// target and takes its name when it is complete and on the medium.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "base/xp_file.h"
#include "effects/effect_settings.h"
#include "effects/wave_header.h"

namespace tarn {

// Called before each block with its number, from 1, and the number of blocks, which can be one more
// than there are. False cancels.
using AMPEffectProgressCallback = std::function<bool(uint32_t block, uint32_t blocks)>;

enum AMPWaveResult : int {
    kWaveDone = 1,
    kWaveSourceFailed = -1,  // can't be opened
    kWaveReadFailed = -2,    // bad header, bad range or a read that failed
    kWaveWriteFailed = -3,
    kWaveNoMemory = -4,
    kWaveCancelled = -5,
};

// Why, for a message.
enum class AMPWaveFault {
    kNone,
    kSystem,    // the error number stands beside it
    kFormat,    // no WAV file, or not 16-bit stereo with a plain header
    kNoData,    // no sound in it
    kRate,      // a sample rate that can't be treated
    kTooLarge,  // 4 GiB or more
    kRange,     // start behind the end, or an end behind the sound
    kCutShort,  // the file ends before its sound does
    kLongName,  // target
    kSameFile,  // the target is the source
};

struct AMPWaveFailure {
    AMPWaveFault fault = AMPWaveFault::kNone;
    int system_error = 0;
};

struct AMPWaveOptions {
    bool replace_target = true;         // false: an existing target is a failure, and stays
    AMPWaveFailure* failure = nullptr;  // filled when the result is a failure
};

// Opens a WAV file that can be treated. kWaveDone, kWaveSourceFailed or kWaveReadFailed.
[[nodiscard]] int AMPOpenWaveFile(const std::string& path, XpFile* file, WaveHeader* header,
                                  AMPWaveFailure* failure);

// Milliseconds of the source; `end_ms` 0 takes the rest. The fade works on the range.
[[nodiscard]] int AMPEffectProcessWaveFile(const std::string& target, const std::string& source,
                                           const AMPEffectSettings& settings, uint32_t start_ms,
                                           uint32_t end_ms,
                                           const AMPEffectProgressCallback& callback,
                                           const AMPWaveOptions& options = {});

}  // namespace tarn

// wave_file.h - treats the sound of a WAV file and writes it to a new one.
//
// Whatever happens, the source is never written to, and an old target stays until the new file is
// complete and gets its name.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "base/reason.h"
#include "base/xp_file.h"
#include "effects/effect_settings.h"
#include "effects/wave_header.h"

namespace tarn {

// Called before each block with its number, from 1, and the number of all, which is one too many
// where the last block is a full one. False cancels.
using AMPEffectProgressCallback = std::function<bool(uint32_t block, uint32_t blocks)>;

enum AMPWaveResult : int {
    kWaveDone = 1,
    kWaveSourceFailed = -1,  // can't be opened
    kWaveReadFailed = -2,    // bad header, bad range or a read that failed
    kWaveWriteFailed = -3,
    kWaveNoMemory = -4,
    kWaveCancelled = -5,
};

struct AMPWaveRewrite {
    std::string target, source;
    AMPEffectSettings settings = {};
    uint32_t start_ms = 0, end_ms = 0;  // of the source; end 0 takes the rest
    bool replace_target = true;         // false: an existing target is a failure, and stays
};

// Opens a WAV file that can be treated.
[[nodiscard]] Reason AMPOpenWaveFile(const std::string& path, XpFile* file, WaveHeader* header);

// The fade works on the range. Cancelling is a failure of the target's, too.
[[nodiscard]] Reason AMPRewriteWaveFile(const AMPWaveRewrite& job,
                                        const AMPEffectProgressCallback& callback);

// The same, with a target that is replaced. An AMPWaveResult.
[[nodiscard]] int AMPEffectProcessWaveFile(const std::string& target, const std::string& source,
                                           const AMPEffectSettings& settings, uint32_t start_ms,
                                           uint32_t end_ms,
                                           const AMPEffectProgressCallback& callback);

}  // namespace tarn

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

// A WAV file that is open and can be treated.
struct AMPWaveSource {
    std::string path;
    XpFile file;
    WaveHeader header{};
};

struct AMPWaveRewrite {
    std::string target;
    AMPEffectSettings settings = {};
    uint32_t start_ms = 0, end_ms = 0;  // of the source; end 0 takes the rest
    bool replace_target = true;         // false: an existing target is a failure, and stays
};

[[nodiscard]] Reason AMPOpenWaveSource(const std::string& path, AMPWaveSource* source);
// The same for a source whose path and open file are there already.
[[nodiscard]] Reason AMPReadWaveSource(AMPWaveSource* source);

// The fade works on the range. Cancelling is a failure of the target's, too. A source that was
// changed since it was opened is a failure of its own. `frames`, where given, gets what was
// written.
[[nodiscard]] Reason AMPRewriteWaveFile(AMPWaveSource* source, const AMPWaveRewrite& job,
                                        const AMPEffectProgressCallback& callback,
                                        uint64_t* frames = nullptr);

// From open to commit, with a target that is replaced. An AMPWaveResult.
[[nodiscard]] int AMPEffectProcessWaveFile(const std::string& target, const std::string& source,
                                           const AMPEffectSettings& settings, uint32_t start_ms,
                                           uint32_t end_ms,
                                           const AMPEffectProgressCallback& callback);

}  // namespace tarn

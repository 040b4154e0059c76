// export_job.h - what `tarn export` does for one input, by its kind.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "cli/cancel.h"
#include "cli/effect_options.h"

namespace tarn {

struct ExportOptions {
    std::string input, output;
    std::optional<uint32_t> in_ms, out_ms;
    EffectOptions effects;
};

// Each answers an exit status and has said why on standard error if it failed.
int ExportWave(const ExportOptions& options, const CancelOnSignals& cancel);

}  // namespace tarn

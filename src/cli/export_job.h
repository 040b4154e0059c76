// export_job.h - what `tarn export` does for one input, by its kind.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "base/reason.h"
#include "base/xp_file.h"
#include "cli/cancel.h"
#include "cli/effect_options.h"

namespace tarn {

struct ExportOptions {
    std::string input, output;
    std::optional<uint32_t> in_ms, out_ms;
    EffectOptions effects;
    bool exact = false, raw_delay = false, verify = false;
    bool strict = false;  // only a recording that is whole
    bool json = false;    // say nothing of what was done: `document` does
    bool quiet = false;   // no progress bar: one of several at once
};

// What became of one input.
struct ExportReport {
    Reason reason;                    // why it failed
    nlohmann::ordered_json document;  // of a finished one
};

// `file` is the input, opened: all is read through it.
ExportReport ExportWave(const ExportOptions& options, XpFile file, const CancelOnSignals& cancel);
ExportReport ExportMovie(const ExportOptions& options, const CancelOnSignals& cancel);

}  // namespace tarn

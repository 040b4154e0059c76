// export_wave.cpp - `tarn export IN.wav OUT.wav`.
#include <chrono>
#include <string>
#include <utility>

#include "base/reason.h"
#include "cli/export_job.h"
#include "cli/progress.h"
#include "effects/wave_file.h"
#include "effects/wave_peak.h"

namespace tarn {
namespace {

// The out point as the rewriting takes it, 0 for the end; an out point after the end is the end. An
// in point that is not before the end is a failure.
Reason choose_end(const ExportOptions& options, const WaveHeader& header, uint32_t* end_ms) {
    const uint64_t rate = header.sample_rate, frames = header.data_size / kWaveFrameSize;
    const uint64_t in_ms = options.in_ms.value_or(0), skip = in_ms * rate / 1000;
    if (skip > 0 && skip >= frames) {
        return {ReasonCode::kInPastEndAt,
                ReasonSide::kSource,
                options.input,
                {ReasonTime{in_ms}, ReasonTime{frames * 1000 / rate}}};
    }
    *end_ms = options.out_ms.value_or(0);
    if (*end_ms * rate / 1000 >= frames) *end_ms = 0;
    return {};
}

Reason save(const ExportOptions& options, const CancelOnSignals& cancel) {
    uint32_t end_ms = 0;
    {
        XpFile file;
        WaveHeader header;
        if (Reason reason = AMPOpenWaveFile(options.input, &file, &header)) return reason;
        if (Reason reason = choose_end(options, header, &end_ms)) return reason;
    }
    float peak = 1.0f;
    if (options.effects.NeedsPeak())
        if (Reason reason = AMPMeasureWavePeak(options.input, &peak)) return reason;

    ProgressBar bar;
    const auto progress = [&](uint32_t block, uint32_t blocks) {
        if (!options.quiet) bar.Show(block - 1, blocks);
        return !cancel.Requested();
    };
    return AMPRewriteWaveFile({.target = options.output,
                               .source = options.input,
                               .settings = options.effects.Settings(peak),
                               .start_ms = options.in_ms.value_or(0),
                               .end_ms = end_ms,
                               .replace_target = false},
                              progress);
}

// What was saved, read from the new file itself.
nlohmann::ordered_json document_of(const ExportOptions& options,
                                   std::chrono::duration<double> seconds) {
    XpFile file;
    WaveHeader header{};
    static_cast<void>(AMPOpenWaveFile(options.output, &file, &header));
    uint64_t bytes = 0;
    static_cast<void>(file.GetLength(&bytes));
    const uint64_t frames = header.data_size / kWaveFrameSize;
    const uint64_t in_ms = options.in_ms.value_or(0);
    const uint64_t length_ms = header.sample_rate ? frames * 1000 / header.sample_rate : 0;
    const uint64_t out_ms = in_ms + length_ms;
    return {{"input", options.input},
            {"output", options.output},
            {"requested", {{"in_ms", in_ms}, {"out_ms", options.out_ms.value_or(out_ms)}}},
            {"actual", {{"in_ms", in_ms}, {"out_ms", out_ms}}},
            {"audio", {{"samples", frames}, {"bytes", header.data_size}}},
            {"bytes", bytes},
            {"seconds", seconds.count()}};
}

}  // namespace

ExportReport ExportWave(const ExportOptions& options, const CancelOnSignals& cancel) {
    const auto start = std::chrono::steady_clock::now();
    if (Reason reason = save(options, cancel)) return {std::move(reason), {}};
    return {{}, document_of(options, std::chrono::steady_clock::now() - start)};
}

}  // namespace tarn

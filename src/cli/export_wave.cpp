// export_wave.cpp - `tarn export IN.wav OUT.wav`.
#include <chrono>
#include <string>
#include <utility>

#include "base/reason.h"
#include "cli/export_job.h"
#include "cli/progress.h"
#include "cli/report.h"
#include "effects/wave_file.h"
#include "effects/wave_peak.h"

namespace tarn {
namespace {

// The out point as the rewriting takes it, 0 for the end; an out point after the end is the end. An
// in point that is not before the end is a failure.
Reason choose_end(const ExportOptions& options, const WaveHeader& header, uint32_t* end_ms) {
    const uint64_t rate = header.sample_rate, frames = header.Frames();
    const uint64_t in_ms = options.in_ms.value_or(0), skip = in_ms * rate / 1000;
    if (skip > 0 && skip >= frames) {
        return {ReasonCode::kInPastEndAt,
                ReasonSide::kSource,
                options.input,
                {ReasonTime{in_ms}, ReasonTime{header.EndMs()}}};
    }
    *end_ms = options.out_ms.value_or(0);
    if (*end_ms * rate / 1000 >= frames) *end_ms = 0;
    return {};
}

Reason save(const ExportOptions& options, AMPWaveSource* source, const CancelOnSignals& cancel,
            uint64_t* frames) {
    if (Reason reason = AMPReadWaveSource(source)) return reason;
    uint32_t end_ms = 0;
    if (Reason reason = choose_end(options, source->header, &end_ms)) return reason;
    ProgressBar bar;
    const auto progress = [&](uint64_t done, uint64_t count) {
        if (!options.quiet) bar.Show(done, count);
        return !cancel.Requested();
    };
    float peak = 1.0f;
    if (options.effects.NeedsPeak())
        if (Reason reason = AMPMeasureWavePeak(source, &peak, progress)) return reason;
    return AMPRewriteWaveFile(
        source,
        {.target = options.output,
         .settings = options.effects.Settings(peak),
         .start_ms = options.in_ms.value_or(0),
         .end_ms = end_ms,
         .replace_target = false},
        [&](uint32_t block, uint32_t blocks) { return progress(block - 1, blocks); }, frames);
}

nlohmann::ordered_json document_of(const ExportOptions& options, const WaveHeader& header,
                                   uint64_t frames, std::chrono::duration<double> seconds) {
    const uint64_t in_ms = options.in_ms.value_or(0), bytes = frames * kWaveFrameSize;
    const uint64_t out_ms = in_ms + frames * 1000 / header.sample_rate;
    nlohmann::ordered_json json = {
        {"input", options.input},
        {"output", options.output},
        {"requested", {{"in_ms", in_ms}, {"out_ms", options.out_ms.value_or(out_ms)}}},
        {"actual", {{"in_ms", in_ms}, {"out_ms", out_ms}}},
        {"audio", {{"samples", frames}, {"bytes", bytes}}},
        {"bytes", sizeof(WaveStart) + bytes}};
    if (header.IsCutShort()) json["source_ends_early_ms"] = header.EndMs();
    json["seconds"] = seconds.count();
    return json;
}

}  // namespace

ExportReport ExportWave(const ExportOptions& options, XpFile file, const CancelOnSignals& cancel) {
    const auto start = std::chrono::steady_clock::now();
    AMPWaveSource source{options.input, std::move(file), {}};
    uint64_t frames = 0;
    if (Reason reason = save(options, &source, cancel, &frames)) return {std::move(reason), {}};
    if (source.header.IsCutShort()) {
        const Reason early{ReasonCode::kWaveCutShort, ReasonSide::kSource, options.input, {}};
        Note(options.input, ReasonText(early) + "; what is there was saved, up to " +
                                TimeText(source.header.EndMs()));
    }
    return {{},
            document_of(options, source.header, frames, std::chrono::steady_clock::now() - start)};
}

}  // namespace tarn

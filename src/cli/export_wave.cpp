// export_wave.cpp - `tarn export IN.wav OUT.wav`.
#include <chrono>
#include <string>

#include "base/reason.h"
#include "base/xp_output_file.h"
#include "cli/commands.h"
#include "cli/export_job.h"
#include "cli/progress.h"
#include "cli/report.h"
#include "effects/wave_file.h"
#include "effects/wave_peak.h"

namespace tarn {
namespace {

std::string write_error_text(int error) {
    if (error == EEXIST) return "already exists; choose another name";
    if (XpIsDiskFull(error)) return "no room for the output (" + XpErrorText(error) + ")";
    return "can't be written: " + XpErrorText(error);
}

std::string fault_text(const AMPWaveFailure& failure) {
    switch (failure.fault) {
        case AMPWaveFault::kNone:
            break;
        case AMPWaveFault::kSystem:
            return "can't be read: " + XpErrorText(failure.system_error);
        case AMPWaveFault::kFormat:
            return "not a WAV file of 16-bit stereo with a plain header";
        case AMPWaveFault::kNoData:
            return "the WAV file has no sound";
        case AMPWaveFault::kRate:
            return "its sample rate is not between 1,000 and 1,000,000 Hz";
        case AMPWaveFault::kTooLarge:
            return "WAV files of 4 GiB or more can't be treated";
        case AMPWaveFault::kRange:
            return "the in and out points lie outside the sound";
        case AMPWaveFault::kCutShort:
            return "the file ends before its sound does";
        case AMPWaveFault::kLongName:
            return "the path is longer than 256 characters";
        case AMPWaveFault::kSameFile:
            return "the output is the input itself";
    }
    return "failed";
}

int report(const ExportOptions& options, int result, const AMPWaveFailure& failure) {
    switch (result) {
        case kWaveDone:
            return kExitDone;
        case kWaveSourceFailed:
            return Fail(options.input, "can't be opened: " + XpErrorText(failure.system_error));
        case kWaveWriteFailed:
            return Fail(options.output, failure.fault == AMPWaveFault::kSystem
                                            ? write_error_text(failure.system_error)
                                            : fault_text(failure));
        case kWaveNoMemory:
            return Fail(options.input, "not enough memory");
        case kWaveCancelled:
            return Fail(options.output, "cancelled, nothing was written");
        default:
            return Fail(options.input, fault_text(failure));
    }
}

// The out point as the rewriting takes it, 0 for the end; an out point behind the end is the end.
// False, with a message, for an in point that is not before the end.
bool choose_end(const ExportOptions& options, const WaveHeader& header, uint32_t* end_ms) {
    const uint64_t rate = header.sample_rate, frames = header.data_size / kWaveFrameSize;
    const uint64_t skip = options.in_ms.value_or(0) * rate / 1000;
    if (skip > 0 && skip >= frames) {
        Fail(options.input, "the in point " + TimeText(*options.in_ms) +
                                " is not before the end, which is at " +
                                TimeText(frames * 1000 / rate));
        return false;
    }
    *end_ms = options.out_ms.value_or(0);
    if (*end_ms * rate / 1000 >= frames) *end_ms = 0;
    return true;
}

// What was saved, read from the new file itself.
nlohmann::ordered_json document_of(const ExportOptions& options,
                                   std::chrono::duration<double> seconds) {
    XpFile file;
    WaveHeader header{};
    AMPWaveFailure ignored;
    static_cast<void>(AMPOpenWaveFile(options.output, &file, &header, &ignored));
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
    AMPWaveFailure failure;
    uint32_t end_ms = 0;
    {
        XpFile file;
        WaveHeader header;
        const int result = AMPOpenWaveFile(options.input, &file, &header, &failure);
        if (result != kWaveDone) return {report(options, result, failure), {}};
        if (!choose_end(options, header, &end_ms)) return {kExitFailed, {}};
    }
    float peak = 1.0f;
    if (options.effects.NeedsPeak()) {
        const int result = AMPMeasureWavePeak(options.input, &peak, &failure);
        if (result != kWaveDone) return {report(options, result, failure), {}};
    }

    ProgressBar bar;
    const auto progress = [&](uint32_t block, uint32_t blocks) {
        if (!options.quiet) bar.Show(block - 1, blocks);
        return !cancel.Requested();
    };
    const int result = AMPEffectProcessWaveFile(
        options.output, options.input, options.effects.Settings(peak), options.in_ms.value_or(0),
        end_ms, progress, {.replace_target = false, .failure = &failure});
    if (result != kWaveDone) return {report(options, result, failure), {}};
    return {kExitDone, document_of(options, std::chrono::steady_clock::now() - start)};
}

}  // namespace tarn

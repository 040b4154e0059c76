// peaks_command.cpp - `tarn peaks FILE`: the waveform as numbers or as a picture.
#include <CLI/CLI.hpp>
#include <iostream>

#include "cli/cancel.h"
#include "cli/commands.h"
#include "cli/effect_options.h"
#include "cli/png_file.h"
#include "cli/progress.h"
#include "cli/report.h"
#include "movie/waveform/peaks.h"

namespace tarn {
namespace {

using Json = nlohmann::ordered_json;

constexpr int32_t kMostColumns = 1000000;

struct PeaksOptions {
    std::string path, picture;
    int32_t columns = 1000;
    bool json = false, raw = false;
    AMPEffectSettings effects;
};

Json pairs_json(const PeakSource& peaks, int channel) {
    Json list = Json::array();
    for (int32_t k = 0; k < peaks.GetColumnCount(); ++k) {
        const PeakPair& pair = peaks.GetColumns(channel)[k];
        list.push_back({pair.largest, pair.smallest});
    }
    return list;
}

void print_json(const PeakSource& peaks, const WFFileReader& reader, bool raw) {
    Json json = {{"points_per_second", PeakSource::PointsPerSecond()},
                 {"points", peaks.GetCount()},
                 {"max_absolute", peaks.GetMaxAbsolute()},
                 {"peak", peaks.GetPeak()},
                 {"columns_left", pairs_json(peaks, 0)},
                 {"columns_right", pairs_json(peaks, 1)}};
    if (raw) {
        json["raw_left"] = peaks.GetRaw(0);
        json["raw_right"] = peaks.GetRaw(1);
    }
    if (reader.GetReason()) json["error"] = ReasonJson(reader.GetReason());
    if (reader.Fault() == WaveformFault::kCutShort) json["end_ms"] = reader.GetEndMs();
    PrintJson(json);
}

void print_columns(const PeakSource& peaks) {
    std::cout << "# " << peaks.GetCount() << " points, " << PeakSource::PointsPerSecond()
              << " a second; largest magnitude " << int{peaks.GetMaxAbsolute()} << " (peak "
              << peaks.GetPeak() << ")\n# column left-largest left-smallest right-largest "
              << "right-smallest\n";
    for (int32_t k = 0; k < peaks.GetColumnCount(); ++k) {
        const PeakPair& left = peaks.GetColumns(0)[k];
        const PeakPair& right = peaks.GetColumns(1)[k];
        std::cout << k << ' ' << int{left.largest} << ' ' << int{left.smallest} << ' '
                  << int{right.largest} << ' ' << int{right.smallest} << '\n';
    }
}

void print_raw(const PeakSource& peaks) {
    std::cout << "# point left right\n";
    for (uint32_t i = 0; i < peaks.GetCount(); ++i)
        std::cout << i << ' ' << int{peaks.GetRaw(0)[i]} << ' ' << int{peaks.GetRaw(1)[i]} << '\n';
}

int write_picture(const PeakSource& peaks, const PeaksOptions& options) {
    const int error =
        WritePng(options.picture, DrawWaveform(peaks, static_cast<uint32_t>(options.columns)));
    if (error == 0) return kExitDone;
    return Fail(SystemReason(ReasonCode::kCantWrite, ReasonSide::kTarget, options.picture, error),
                options.json);
}

// False where there is nothing to show.
bool read_sound(WFFileReader* reader, const std::string& path, const CancelOnSignals& cancel) {
    ProgressBar bar;
    reader->SetProgress([&](uint32_t done, uint32_t count) {
        bar.Show(done, count);
        return !cancel.Requested();
    });
    const bool opened = reader->Open(path, PeakSource::PointsPerSecond());
    const WaveformFault fault = reader->Fault();
    return opened && fault != WaveformFault::kFile && fault != WaveformFault::kCancelled;
}

std::string fault_text(const WFFileReader& reader) {
    std::string text = ReasonText(reader.GetReason());
    if (reader.Fault() == WaveformFault::kCutShort)
        text += "; the waveform ends at " + std::to_string(reader.GetEndMs()) + " ms";
    return text;
}

int run_peaks(const PeaksOptions& options) {
    const std::unique_ptr<WFFileReader> reader = WFFileReader::ForFile(options.path);
    reader->SetReadOptions(kRescueDamaged);
    std::unique_ptr<PeakSource> peaks;
    {
        const CancelOnSignals cancel;
        if (!read_sound(reader.get(), options.path, cancel))
            return Fail(OfEitherKind(reader->GetReason()), options.json);
        // What could be read is shown all the same.
        if (reader->GetReason()) Note(options.path, fault_text(*reader));
        peaks = PeakSource::Create(reader.get(), options.columns);
        if (options.effects.compressor != 0 || options.effects.normalize != 0) {
            AMPEffectSettings settings = options.effects;
            settings.peak = peaks->GetPeak();
            peaks->ApplyEffects(settings);
        }
        if (!options.picture.empty()) {
            const int status = write_picture(*peaks, options);
            if (status != kExitDone) return status;
        }
    }
    if (options.json) {
        print_json(*peaks, *reader, options.raw);
    } else if (options.picture.empty()) {
        print_columns(*peaks);
        if (options.raw) print_raw(*peaks);
    }
    return reader->GetReason() ? kExitFailed : kExitDone;
}

}  // namespace

void AddPeaksCommand(CLI::App& app, int* status) {
    auto options = std::make_shared<PeaksOptions>();
    CLI::App* command = app.add_subcommand(
        "peaks", "Show the waveform of a clip or a WAV file, as columns or as a picture");
    command->add_option("FILE", options->path, "The movie or WAV file")->required();
    command
        ->add_option("--columns", options->columns,
                     "Columns of the whole sound, each its largest and smallest point; also the "
                     "width of the picture, 320 to 8000 pixels")
        ->check(CLI::Range(1, kMostColumns))
        ->capture_default_str();
    command->add_option("--png", options->picture, "Draw the waveform into this new PNG file");
    AddLevelOptions(command, &options->effects);
    command->add_flag("--raw", options->raw, "Show every point too, as read");
    command->add_flag("--json", options->json, "Print one JSON document");
    command->callback([options, status] { *status = run_peaks(*options); });
}

}  // namespace tarn

// export_command.cpp - `tarn export IN OUT`: a clip with its sound treated.
#include <CLI/CLI.hpp>

#include "base/xp_file.h"
#include "cli/commands.h"
#include "cli/export_job.h"
#include "cli/report.h"
#include "cli/times.h"

namespace tarn {
namespace {

enum class InputKind { kWave, kUnknown };

// By content: names are the user's business.
int find_kind(const std::string& path, InputKind* kind) {
    XpFile file;
    char head[12] = {};
    uint64_t done = 0;
    int error = file.Open(path, XpFile::Mode::kRead);
    if (error == 0) error = file.ReadAt(0, head, sizeof head, &done);
    const std::string_view text(head, sizeof head);
    *kind =
        text.starts_with("RIFF") && text.ends_with("WAVE") ? InputKind::kWave : InputKind::kUnknown;
    return error;
}

bool has_extension(std::string path, const std::string& extension) {
    for (char& c : path)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return path.ends_with(extension);
}

int run_export(const ExportOptions& options) {
    const CancelOnSignals cancel;
    InputKind kind;
    if (const int error = find_kind(options.input, &kind))
        return Fail(options.input, "can't be opened: " + XpErrorText(error));
    switch (kind) {
        case InputKind::kWave:
            if (!has_extension(options.output, ".wav"))
                return Fail(options.output, "a WAV file can only be exported as .wav");
            return ExportWave(options, cancel);
        case InputKind::kUnknown:
            break;
    }
    return Fail(options.input, "not a WAV file");
}

void add_time(CLI::App* command, const std::string& name, std::optional<uint32_t>* ms,
              const std::string& help) {
    const auto keep = [ms](const std::string& text) {
        uint32_t value = 0;
        if (ParseTime(text, &value)) *ms = value;
    };
    command->add_option_function<std::string>(name, keep, help)->check(kIsTime);
}

}  // namespace

void AddExportCommand(CLI::App& app, int* status) {
    auto options = std::make_shared<ExportOptions>();
    CLI::App* command = app.add_subcommand("export", "Save a clip with its sound treated");
    command->add_option("IN", options->input, "A WAV file of 16-bit stereo")->required();
    command->add_option("OUT", options->output, "The new file; must not exist")->required();
    add_time(command, "--in", &options->in_ms, "In point: milliseconds or [H:]MM:SS[.mmm]");
    add_time(command, "--out", &options->out_ms, "Out point; one behind the end is the end");
    AddEffectOptions(command, &options->effects);
    command->callback([options, status] {
        if (options->out_ms && options->in_ms.value_or(0) >= *options->out_ms)
            throw CLI::ValidationError("--in", "must lie before --out");
        *status = run_export(*options);
    });
}

}  // namespace tarn

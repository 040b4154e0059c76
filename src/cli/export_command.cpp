// export_command.cpp - `tarn export IN OUT` and `tarn export IN… --to DIR`: clips with their sound
// treated.
#include <CLI/CLI.hpp>
#include <atomic>
#include <cerrno>
#include <iostream>
#include <mutex>
#include <thread>

#include "base/xp_dir.h"
#include "base/xp_file.h"
#include "base/xp_path.h"
#include "cli/commands.h"
#include "cli/export_job.h"
#include "cli/report.h"
#include "cli/times.h"
#include "movie/facts/clip_session.h"

namespace tarn {
namespace {

using Json = nlohmann::ordered_json;

struct Options {
    ExportOptions one;
    std::vector<std::string> files;
    std::string to;
    bool wav = false;
    unsigned jobs = 0;
};

enum class InputKind { kWave, kMovie };

// By content: names are the user's business.
int find_kind(const std::string& path, InputKind* kind) {
    XpFile file;
    char head[12] = {};
    uint64_t done = 0;
    int error = file.Open(path, XpFile::Mode::kRead);
    if (error == 0) error = file.ReadAt(0, head, sizeof head, &done);
    const std::string_view text(head, sizeof head);
    *kind =
        text.starts_with("RIFF") && text.ends_with("WAVE") ? InputKind::kWave : InputKind::kMovie;
    return error;
}

ExportReport export_one(const ExportOptions& options, const CancelOnSignals& cancel) {
    InputKind kind;
    if (const int error = find_kind(options.input, &kind))
        return {Fail(options.input, error == ESPIPE ? "not an ordinary file"
                                                    : "can't be opened: " + XpErrorText(error)),
                {}};
    const bool wav = XpPath::HasExtension(options.output, ".wav");
    if (!wav && !XpPath::HasExtension(options.output, ".mp4"))
        return {Fail(options.output, "an output is an .mp4 or a .wav file"), {}};
    if (kind == InputKind::kMovie) {
        // Looked at first: what is no movie at all gets a better word than the save has for it.
        ClipSession look;
        if (const Reason reason = look.Open(options.input)) return {Fail(reason), {}};
        return ExportMovie(options, cancel);
    }
    if (!wav) return {Fail(options.output, "a WAV file can only be exported as .wav"), {}};
    return ExportWave(options, cancel);
}

int run_single(const Options& options) {
    const CancelOnSignals cancel;
    ExportOptions one = options.one;
    one.input = options.files[0];
    one.output = options.files[1];
    if (options.wav && !XpPath::HasExtension(one.output, ".wav")) one.output += ".wav";
    const ExportReport report = export_one(one, cancel);
    if (one.json && report.status == kExitDone) PrintJson(report.document);
    return report.status;
}

// The name of an input's output in the folder of a batch.
std::string output_in(const Options& options, const std::string& input) {
    const bool wav = options.wav || XpPath::HasExtension(input, ".wav");
    return XpPath::Join(options.to, XpPath::Stem(input) + (wav ? ".wav" : ".mp4"));
}

// Takes inputs off the list, as many at once as there are workers.
class Batch {
public:
    explicit Batch(const Options& options) : m_options(options) {}

    void Run() {
        const size_t cores = std::max(1u, std::thread::hardware_concurrency());
        const size_t wanted = m_options.jobs > 0 ? m_options.jobs : cores;
        std::vector<std::jthread> workers;
        for (size_t n = 1; n < std::min(wanted, m_options.files.size()); ++n)
            workers.emplace_back([this] { Work(); });
        Work();
    }
    int Summarise() const {
        const size_t done = m_documents.size(), all = m_options.files.size();
        if (m_options.one.json) {
            PrintJson(
                {{"files", all}, {"done", done}, {"failed", all - done}, {"results", m_documents}});
        } else {
            std::cout << done << " of " << all << " clips saved\n";
        }
        return done == all ? kExitDone : kExitFailed;
    }

private:
    void Work() {
        for (size_t n = m_next++; n < m_options.files.size(); n = m_next++) {
            if (m_cancel.Requested()) return;
            ExportOptions one = m_options.one;
            one.input = m_options.files[n];
            one.output = output_in(m_options, one.input);
            one.quiet = true;
            const ExportReport report = export_one(one, m_cancel);
            const std::lock_guard lock(m_mutex);
            if (report.status != kExitDone) continue;
            m_documents.push_back(report.document);
            if (!one.json) std::cout << XpPath::Printable(one.output) << " saved" << std::endl;
        }
    }

    const Options& m_options;
    const CancelOnSignals m_cancel;
    std::atomic<size_t> m_next{0};
    std::mutex m_mutex;
    Json m_documents = Json::array();
};

int run_batch(const Options& options) {
    if (!XpDir(options.to).Exists()) return Fail(options.to, "is not a folder");
    Batch batch(options);
    batch.Run();
    return batch.Summarise();
}

void add_time(CLI::App* command, const std::string& name, std::optional<uint32_t>* ms,
              const std::string& help) {
    const auto keep = [ms](const std::string& text) {
        uint32_t value = 0;
        if (ParseTime(text, &value)) *ms = value;
    };
    command->add_option_function<std::string>(name, keep, help)->check(kIsTime);
}

void check_usage(const Options& options) {
    const ExportOptions& one = options.one;
    if (options.to.empty() && options.files.size() != 2)
        throw CLI::ValidationError("FILE", "give an input and an output, or inputs and --to");
    if (one.out_ms && one.in_ms.value_or(0) >= *one.out_ms)
        throw CLI::ValidationError("--in", "must lie before --out");
}

}  // namespace

void AddExportCommand(CLI::App& app, int* status) {
    auto options = std::make_shared<Options>();
    ExportOptions& one = options->one;
    CLI::App* command = app.add_subcommand("export", "Save a clip with its sound treated");
    command
        ->add_option("FILE", options->files,
                     "IN OUT: an .mp4 or .wav file and the new one, which must not exist; with "
                     "--to as many inputs as you like")
        ->required();
    add_time(command, "--in", &one.in_ms, "In point: milliseconds or [H:]MM:SS[.mmm]");
    add_time(command, "--out", &one.out_ms, "Out point; one behind the end is the end");
    AddEffectOptions(command, &one.effects);
    command->add_flag("--wav", options->wav, "Save the sound alone, as WAV");
    command->add_flag("--exact", one.exact,
                      "Start with the picture at the in point; players hide what comes before");
    command->add_flag("--raw-delay", one.raw_delay, "Leave the codec's delay in the sound");
    command->add_flag("--verify", one.verify, "Read back and compare every kept picture");
    command->add_option("--to", options->to, "Folder for the outputs of a batch");
    command->add_option("--jobs", options->jobs, "Clips of a batch at once; the number of cores")
        ->check(CLI::PositiveNumber);
    command->add_flag("--json", one.json, "Print one JSON document about what was saved");
    command->callback([options, status] {
        check_usage(*options);
        *status = options->to.empty() ? run_single(*options) : run_batch(*options);
    });
}

}  // namespace tarn

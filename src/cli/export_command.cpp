// export_command.cpp - `tarn export IN OUT` and `tarn export IN… --to DIR`: clips with their sound
// treated.
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <atomic>
#include <cerrno>
#include <iostream>
#include <mutex>
#include <new>
#include <thread>
#include <utility>

#include "base/xp_file.h"
#include "base/xp_path.h"
#include "cli/commands.h"
#include "cli/export_job.h"
#include "cli/report.h"
#include "cli/times.h"
#include "effects/wave_header.h"

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

// The name of an input's output in the folder of a batch.
std::string output_in(const Options& options, const std::string& input, bool is_wave) {
    const bool wav = options.wav || is_wave;
    return XpPath::Join(options.to, XpPath::Stem(input) + (wav ? ".wav" : ".mp4"));
}

// What is in the input decides, and the output's name; that of a batch is chosen here.
ExportReport export_one(const Options& options, ExportOptions* one, const CancelOnSignals& cancel) {
    const bool batch = !options.to.empty();
    const auto refuse = [&](ReasonCode code) {
        return ExportReport{{code, ReasonSide::kTarget, one->output, {}}, {}};
    };
    XpFile file;
    bool is_wave = false;
    const Reason unreadable = OpenAndLookForWave(one->input, &file, &is_wave);
    if (batch) one->output = output_in(options, one->input, is_wave);
    const bool wav = XpPath::HasExtension(one->output, ".wav");
    if (!wav && !XpPath::HasExtension(one->output, ".mp4"))
        return refuse(ReasonCode::kNotMovieOrWave);
    if (unreadable) return {unreadable, {}};
    if (is_wave && one->exact && !batch)
        throw CLI::ValidationError("--exact", "means nothing for a WAV file");
    if (is_wave && !wav) return refuse(ReasonCode::kWaveAsMovie);
    if (is_wave) return ExportWave(*one, std::move(file), cancel);
    file.Close();
    ExportReport report = ExportMovie(*one, cancel);
    report.reason = OfEitherKind(std::move(report.reason));
    return report;
}

int run_single(const Options& options) {
    const CancelOnSignals cancel;
    ExportOptions one = options.one;
    one.input = options.files[0];
    one.output = options.files[1];
    if (options.wav && !XpPath::HasExtension(one.output, ".wav")) one.output += ".wav";
    const ExportReport report = export_one(options, &one, cancel);
    if (report.reason) return Fail(report.reason, one.json);
    if (one.json) PrintJson(report.document);
    return kExitDone;
}

// Takes inputs off the list, as many at once as there are workers.
class Batch {
public:
    explicit Batch(const Options& options) : m_options(options), m_results(options.files.size()) {}

    void Run() {
        const size_t cores = std::max(1u, std::thread::hardware_concurrency());
        const size_t wanted = m_options.jobs > 0 ? m_options.jobs : cores;
        std::vector<std::jthread> workers;
        for (size_t n = 1; n < std::min(wanted, m_options.files.size()); ++n)
            workers.emplace_back([this] { Work(); });
        Work();
    }
    int Summarise() const {
        const size_t all = m_results.size();
        if (m_options.one.json) {
            PrintJson({{"files", all},
                       {"done", m_done},
                       {"failed", all - m_done},
                       {"results", m_results}});
        } else {
            std::cout << m_done << " of " << all << " clips saved\n";
        }
        return m_done == all ? kExitDone : kExitFailed;
    }

private:
    void Work() {
        for (size_t n = m_next++; n < m_results.size(); n = m_next++) {
            ExportOptions one = m_options.one;
            one.input = m_options.files[n];
            one.quiet = true;
            const bool cancelled = m_cancel.Requested();
            const ExportReport report =
                cancelled ? ExportReport{CancelledReason(one), {}} : Export(&one);
            const std::lock_guard lock(m_mutex);
            m_results[n] = report.document;
            if (report.reason) {
                m_results[n] = {{"input", one.input},
                                {"output", one.output},
                                {"error", ReasonJson(report.reason)}};
                if (!cancelled) static_cast<void>(Fail(report.reason));
                continue;
            }
            ++m_done;
            if (!one.json) std::cout << XpPath::Printable(one.output) << " saved" << std::endl;
        }
    }
    // One clip that takes more memory than there is fails alone.
    ExportReport Export(ExportOptions* one) const {
        try {
            return export_one(m_options, one, m_cancel);
        } catch (const std::bad_alloc&) {
            return {{ReasonCode::kOutOfMemory, ReasonSide::kNone, one->input, {}}, {}};
        }
    }
    // Of an input whose turn did not come.
    static Reason CancelledReason(const ExportOptions& one) {
        return {ReasonCode::kCancelled, ReasonSide::kNone, one.input, {}};
    }

    const Options& m_options;
    const CancelOnSignals m_cancel;
    std::atomic<size_t> m_next{0};
    std::mutex m_mutex;
    std::vector<Json> m_results;  // one for each input
    size_t m_done = 0;
};

Reason look_at_folder(const std::string& path) {
    struct stat info {};
    if (stat(path.c_str(), &info) != 0 && errno != ENOENT && errno != ENOTDIR)
        return SystemReason(ReasonCode::kCantWrite, ReasonSide::kTarget, path, errno);
    if (!S_ISDIR(info.st_mode)) return {ReasonCode::kNotAFolder, ReasonSide::kTarget, path, {}};
    if (access(path.c_str(), X_OK) != 0)
        return SystemReason(ReasonCode::kCantWrite, ReasonSide::kTarget, path, errno);
    return {};
}

int run_batch(const Options& options) {
    if (const Reason reason = look_at_folder(options.to)) return Fail(reason, options.one.json);
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
    const bool wav =
        options.wav || (options.to.empty() && XpPath::HasExtension(options.files[1], ".wav"));
    if (one.verify && wav)
        throw CLI::ValidationError("--verify",
                                   "means nothing for sound alone: it compares pictures");
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
    add_time(command, "--out", &one.out_ms, "Out point; one after the end is the end");
    AddEffectOptions(command, &one.effects);
    command->add_flag("--wav", options->wav, "Save the sound alone, as WAV");
    command->add_flag("--exact", one.exact,
                      "Start with the picture at the in point; players hide what comes before");
    command->add_flag("--raw-delay", one.raw_delay, "Leave the codec's delay in the sound");
    command->add_flag("--verify", one.verify, "Read back and compare every kept picture");
    command->add_flag("--strict", one.strict,
                      "Refuse a recording that ends early or has damaged sound; else it is saved "
                      "as far as it goes, with silence for what is damaged");
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

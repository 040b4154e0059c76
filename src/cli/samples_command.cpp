// samples_command.cpp - `tarn samples FILE`: where a track's samples lie and when they play.
#include <CLI/CLI.hpp>
#include <charconv>
#include <cstdio>
#include <memory>
#include <optional>

#include "cli/commands.h"
#include "cli/report.h"
#include "cli/times.h"
#include "movie/facts/sample_list.h"

namespace tarn {
namespace {

struct Options {
    std::string path, track;
    uint32_t from = 1;
    std::optional<uint32_t> count, next_sync;
    std::string at;
    bool json = false;
};

// Rows by hand: a clip has millions of them.
class RowPrinter {
public:
    explicit RowPrinter(bool json) : m_json(json) {
        std::fputs(json ? "[" : "# number offset size time duration composition sync description\n",
                   stdout);
    }
    // As the last of the list.
    void PrintError(const Reason& reason) {
        if (!m_json) return;
        Add(m_first ? "\n  " : ",\n  ");
        Add(nlohmann::ordered_json{{"error", ReasonJson(reason)}}.dump().c_str());
        m_first = false;
    }
    ~RowPrinter() {
        if (m_json) Add(m_first ? "]\n" : "\n]\n");
        Flush();
    }
    RowPrinter(const RowPrinter&) = delete;
    RowPrinter& operator=(const RowPrinter&) = delete;

    void Print(const SampleRow& row) {
        static constexpr const char* kNames[] = {"number",   "offset",      "size", "time",
                                                 "duration", "composition", "sync", "description"};
        const int64_t values[] = {row.number,        static_cast<int64_t>(row.info.offset),
                                  row.info.size,     static_cast<int64_t>(row.time),
                                  row.info.duration, row.info.compositionOffset,
                                  row.info.isSync,   row.info.descriptionIndex};
        if (m_json) Add(m_first ? "\n  {" : ",\n  {");
        for (int i = 0; i < 8; ++i) {
            if (i > 0) Add(m_json ? ", " : " ");
            if (m_json) {
                Add("\"");
                Add(kNames[i]);
                Add("\": ");
            }
            AddNumber(values[i]);
        }
        Add(m_json ? "}" : "\n");
        m_first = false;
    }

private:
    void Add(const char* text) {
        while (*text) {
            if (m_used == sizeof m_buffer) Flush();
            m_buffer[m_used++] = *text++;
        }
    }
    void AddNumber(int64_t value) {
        char text[24] = {};
        *std::to_chars(text, text + sizeof text, value).ptr = '\0';
        Add(text);
    }
    void Flush() {
        std::fwrite(m_buffer, 1, m_used, stdout);
        m_used = 0;
    }

    char m_buffer[1 << 16];
    size_t m_used = 0;
    bool m_json, m_first = true;
};

// The one row that was asked for: of the sample that holds a time, or of the next sync sample.
Reason find_row(SampleList& list, const Options& options, SampleRow* row) {
    if (options.next_sync) return list.NextSync(*options.next_sync, row);
    uint32_t ms = 0;
    static_cast<void>(ParseTime(options.at, &ms));  // has been checked
    return list.AtMs(ms, row);
}

// A failure among the rows ends the list.
int print_range(SampleList& list, const Options& options) {
    SampleRow row;
    RowPrinter printer(options.json);
    uint64_t left = options.count.value_or(UINT32_MAX);
    for (uint64_t n = options.from; n <= list.Count() && left > 0; ++n, --left) {
        if (const Reason reason = list.Row(static_cast<uint32_t>(n), &row)) {
            printer.PrintError(reason);
            return Fail(reason);
        }
        printer.Print(row);
    }
    return kExitDone;
}

int run_samples(const Options& options) {
    SampleList list;
    if (const Reason reason = list.Open(options.path, options.track))
        return Fail(reason, options.json);
    if (options.at.empty() && !options.next_sync) return print_range(list, options);
    SampleRow row;
    if (const Reason reason = find_row(list, options, &row)) return Fail(reason, options.json);
    RowPrinter(options.json).Print(row);
    return kExitDone;
}

// "video", "audio" or a number from 1.
const CLI::Validator kIsTrack(
    [](std::string& text) {
        if (text == "video" || text == "audio") return std::string();
        uint32_t number = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
        const bool good = error == std::errc() && end == text.data() + text.size() && number > 0;
        return good ? std::string() : "'" + text + "' is neither video, audio nor a track number";
    },
    "TRACK");

}  // namespace

void AddSamplesCommand(CLI::App& app, int* status) {
    auto o = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand("samples", "List the samples of a track");
    command->add_option("FILE", o->path, "The movie file")->required();
    command
        ->add_option("--track", o->track,
                     "video, audio, or the number of a track; the picture if not given, else the "
                     "sound")
        ->check(kIsTrack);
    command->add_option("--from", o->from, "First sample to list")->check(CLI::PositiveNumber);
    command->add_option("--count", o->count, "At most so many");
    auto* at =
        command->add_option("--at", o->at, "The sample that holds this time alone")->check(kIsTime);
    command->add_option("--next-sync", o->next_sync, "The first sync sample after this one alone")
        ->excludes(at);
    command->add_flag("--json", o->json, "Print one JSON document");
    command->footer(
        "Columns: number offset size time duration composition sync description; "
        "times in media units.");
    command->callback([o, status] { *status = run_samples(*o); });
}

}  // namespace tarn

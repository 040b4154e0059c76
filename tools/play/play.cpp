// play - plays a clip with given settings and tells what happens, for eyes and ears.
#include <gst/gst.h>
#include <poll.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <random>

#include "app/format_text.h"
#include "app/reference_data.h"
#include "app/xml_io.h"
#include "base/xp_path.h"
#include "cli/effect_options.h"
#include "cli/times.h"
#include "movie/waveform/peaks.h"
#include "play_files.h"
#include "play_window.h"
#include "playback/audio_renderer.h"
#include "playback/gst_handles.h"
#include "playback/tarn_player_controller.h"

namespace tarn {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int64_t kUnitsPerMs = 10'000;
constexpr int kTickMs = 5;
constexpr int kPatienceMs = 30'000;

struct Options {
    std::string path, audio_sink, renderer, dump, shot;
    std::string from, in, out;
    double seconds = 0;  // 0: to the end
    int seeks = 0, stress = 0, report_ms = 1000;
    uint32_t seed = 1;
    bool window = false, check = false;
    EffectOptions effects;
    std::vector<std::string> changes;  // "MS:name" or "MS:name=value"
};

struct Change {
    int ms = 0;
    std::string name;
    int value = 0;
};

const std::map<std::string, VideoRendererForm> kForms = {{"evr", VideoRendererForm::CEVR},
                                                         {"vmr9", VideoRendererForm::CVMR9},
                                                         {"vmr7", VideoRendererForm::CVMR7}};

double ms_since(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

size_t count_files(const char* folder) {
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

void print_resources(const char* when) {
    std::printf("%s: %zu threads, %zu descriptors\n", when, count_files("/proc/self/task"),
                count_files("/proc/self/fd"));
}

int64_t units(const std::string& text) {
    uint32_t ms = 0;
    return ParseTime(text, &ms) ? ms * kUnitsPerMs : 0;
}

bool parse_change(const std::string& text, Change* change) {
    char name[16] = {};
    if (std::sscanf(text.c_str(), "%d:%15[a-z]=%d", &change->ms, name, &change->value) < 2)
        return false;
    change->name = name;
    return true;
}

bool apply(const Change& change, AMPEffectSettings* settings) {
    const std::map<std::string, int32_t*> numbers = {{"bass", &settings->bass},
                                                     {"treble", &settings->treble},
                                                     {"reverb", &settings->reverb},
                                                     {"compressor", &settings->compressor},
                                                     {"normalize", &settings->normalize}};
    const std::map<std::string, uint8_t*> flags = {{"bypass", &settings->bypass},
                                                   {"fade", &settings->fade}};
    if (numbers.contains(change.name))
        *numbers.at(change.name) = change.value;
    else if (flags.contains(change.name))
        *flags.at(change.name) = change.value != 0;
    else
        return false;
    return true;
}

int check(const std::string& path) {
    Reason reason;
    const MovieFileStatus status = TarnPlayerController::CheckMovieFile(path, true, &reason);
    const std::string key = MovieFileMessageKey(status);
    std::printf("status %d: %s\n", status, ReasonText(reason).c_str());
    if (!key.empty())
        std::printf(
            "%s: %s\n", key.c_str(),
            FormatText(XMLIO::GetInstance()->GetString(key), {XpPath::FileName(path)}).c_str());
    return status == kFileUsable ? 0 : 1;
}

// A clip that is being played, with all that was asked for.
class Session {
public:
    explicit Session(const Options& options)
        : m_options(options),
          m_player(PlayerDevices{options.audio_sink, Forms(options), Decoders()}) {}

    int Run();

private:
    static std::span<const VideoRendererForm> Forms(const Options& options) {
        return options.renderer.empty() ? std::span(kAllRendererForms)
                                        : std::span(&kForms.at(options.renderer), 1);
    }
    static DecoderMode Decoders() {
        return DecoderModeFor(ReferenceData::GetInstance()->m_useHardwareAcceleration != 0);
    }
    bool Open();
    bool Pump(int ms);
    void Play();
    void PlayWithChanges();
    HRESULT Make(const Change& change);
    void SeekAround();
    void Stress();
    void Report();
    int64_t Position();

    const Options& m_options;
    PlayWindow m_window;
    SoundDump m_dump;
    AMPEffectSettings m_settings;
    TarnPlayerController m_player;  // goes before what it was given
    Clock::time_point m_start;
};

bool Session::Open() {
    if (m_options.window && !m_window.Open(m_options.path, 640, 360)) {
        std::fprintf(stderr, "play: there is no display\n");
        return false;
    }
    m_player.SetEventCallback([](const GraphEvent& event) {
        if (event.code == EC_SEEK_COMPLETE) return;
        std::printf("event %d %s\n", event.code, ReasonText(event.reason).c_str());
    });
    const Clock::time_point start = Clock::now();
    const HRESULT result = m_player.Open(m_options.path, true, nullptr, 0, 0,
                                         m_options.window ? &m_window : nullptr, nullptr, false);
    if (Failed(result)) {
        std::fprintf(stderr, "play: %s: %s (%08x)\n", m_options.path.c_str(),
                     ReasonText(m_player.GetReason()).c_str(), static_cast<unsigned>(result));
        return false;
    }
    int64_t duration = 0;
    static_cast<void>(m_player.GetDuration(&duration));
    std::printf("opened in %.1f ms, %s renderer, %" PRId64 " ms long\n", ms_since(start),
                m_player.Renderer() ? m_player.Renderer()->Name() : "no", duration / kUnitsPerMs);
    float peak = 1;
    if (m_options.effects.NeedsPeak())
        if (const auto source = PeakSource::Create(m_options.path, 1)) peak = source->GetPeak();
    m_settings = m_options.effects.Settings(peak);
    static_cast<void>(m_player.SetEffects(m_settings));
    static_cast<void>(m_player.SetInPoint(static_cast<int>(units(m_options.in) / kUnitsPerMs)));
    static_cast<void>(m_player.SetOutPoint(static_cast<int>(units(m_options.out) / kUnitsPerMs)));
    const GstElementPtr filter(gst_bin_get_by_name(GST_BIN(m_player.Graph()), "Sound Effect"));
    if (m_dump.Attach(filter.get(), m_options.dump) || m_options.dump.empty()) return true;
    std::fprintf(stderr, "play: %s: can't be written, or there is no sound\n",
                 m_options.dump.c_str());
    return false;
}

// Waits and takes what comes up meanwhile. False at the end of the clip.
bool Session::Pump(int ms) {
    const bool open =
        !m_options.window ? poll(nullptr, 0, ms) == 0 : m_window.Pump(m_player.Renderer(), ms);
    return m_player.ProcessEvents() == S_FALSE && open;
}

int64_t Session::Position() {
    int64_t position = 0;
    static_cast<void>(m_player.GetPosition(&position));
    return position;
}

// What waits after the sound effect is how late a change is heard.
void Session::Report() {
    const GstElementPtr device(gst_bin_get_by_name(GST_BIN(m_player.Graph()), kAudioRendererName));
    gint64 heard = 0;
    std::printf("%8.0f ms: at %9.1f ms, state %d", ms_since(m_start),
                static_cast<double>(Position()) / kUnitsPerMs, m_player.State());
    if (device && gst_element_query_position(device.get(), GST_FORMAT_TIME, &heard))
        std::printf(", %5.1f ms of sound wait",
                    static_cast<double>(m_dump.EndTime() - heard / 100) / kUnitsPerMs);
    SoundLevels levels;
    if (m_player.GetLevels(&levels) == S_OK)
        std::printf(", peaks %.3f %.3f, treated %.3f %.3f with %u clipped", levels.before[0].peak,
                    levels.before[1].peak, levels.after[0].peak, levels.after[1].peak,
                    levels.after[0].clipped + levels.after[1].clipped);
    std::printf("\n");
}

HRESULT Session::Make(const Change& change) {
    if (change.name == "pause") return m_player.Pause();
    if (change.name == "run") return m_player.Run();
    if (change.name == "seek")
        return m_player.Seek(change.value * kUnitsPerMs, kAbsolutePositioning, 0, kNoPositioning);
    return apply(change, &m_settings) ? m_player.SetEffects(m_settings) : E_INVALIDARG;
}

void Session::PlayWithChanges() {
    std::vector<Change> changes;
    for (const std::string& text : m_options.changes)
        if (Change change; parse_change(text, &change)) changes.push_back(change);
    const int64_t out = units(m_options.out);
    double reported = 0;
    size_t changed = 0;
    bool more = true;
    while (more && (m_options.seconds == 0 || ms_since(m_start) < m_options.seconds * 1000) &&
           (out == 0 || Position() < out)) {
        more = Pump(kTickMs);
        if (ms_since(m_start) >= reported + m_options.report_ms) {
            reported = ms_since(m_start);
            Report();
        }
        while (changed < changes.size() && ms_since(m_start) >= changes[changed].ms) {
            const Change& change = changes[changed++];
            Report();
            const HRESULT result = Make(change);
            std::printf("%s=%d: %08x at %.6f s of the steady clock\n", change.name.c_str(),
                        change.value, static_cast<unsigned>(result),
                        std::chrono::duration<double>(Clock::now().time_since_epoch()).count());
        }
    }
}

void Session::Play() {
    if (!m_options.from.empty())
        static_cast<void>(
            m_player.Seek(units(m_options.from), kAbsolutePositioning, 0, kNoPositioning));
    m_start = Clock::now();
    const HRESULT result = m_player.Run();
    std::printf("running after %.1f ms: %08x\n", ms_since(m_start), static_cast<unsigned>(result));
    m_start = Clock::now();
    PlayWithChanges();
    static_cast<void>(m_player.Pause());
    Report();
}

void Session::SeekAround() {
    std::mt19937 random(m_options.seed);
    int64_t duration = 0;
    static_cast<void>(m_player.GetDuration(&duration));
    static_cast<void>(m_player.Pause());
    for (int n = 0; n < m_options.seeks; ++n) {
        const int64_t target = std::uniform_int_distribution<int64_t>(0, duration)(random);
        const Clock::time_point start = Clock::now();
        const HRESULT result = m_player.Seek(target, kAbsolutePositioning, 0, kNoPositioning);
        const double asked = ms_since(start);
        int32_t state = 0;
        static_cast<void>(m_player.GetState(kPatienceMs, &state));
        const double took = ms_since(start);
        int64_t shown = -1;
        if (m_player.Renderer())
            static_cast<void>(m_player.Renderer()->ReadPicture(
                [&shown](const VideoPicture& picture) { shown = picture.time; }));
        std::printf(
            "seek to %9.1f ms took %6.1f ms (the request %.1f): %08x, picture of %9.1f ms\n",
            static_cast<double>(target) / kUnitsPerMs, took, asked, static_cast<unsigned>(result),
            static_cast<double>(shown) / kUnitsPerMs);
        static_cast<void>(Pump(0));
    }
}

void Session::Stress() {
    std::mt19937 random(m_options.seed);
    int64_t duration = 0;
    static_cast<void>(m_player.GetDuration(&duration));
    int failures = 0;
    double longest = 0;
    for (int n = 0; n < m_options.stress; ++n) {
        const Clock::time_point start = Clock::now();
        const unsigned which = random() % 4;
        const int64_t target = std::uniform_int_distribution<int64_t>(0, duration)(random);
        const HRESULT result = which == 0 ? m_player.Run()
                               : which == 1
                                   ? m_player.Pause()
                                   : m_player.Seek(target, kAbsolutePositioning, 0, kNoPositioning);
        longest = std::max(longest, ms_since(start));
        if (Failed(result)) ++failures;
        static_cast<void>(Pump(static_cast<int>(random() % 30)));
    }
    std::printf("%d operations, %d failed, longest %.1f ms\n", m_options.stress, failures, longest);
}

int Session::Run() {
    if (!Open()) return 1;
    m_start = Clock::now();
    if (m_options.seeks > 0)
        SeekAround();
    else if (m_options.stress > 0)
        Stress();
    else
        Play();
    bool good = true;
    if (!m_options.shot.empty()) {
        int32_t state = 0;
        static_cast<void>(m_player.GetState(kPatienceMs, &state));
        good = m_player.Renderer() && WriteShot(*m_player.Renderer(), m_options.shot);
    }
    if (m_options.window) static_cast<void>(Pump(0));
    static_cast<void>(m_player.ReleaseGraph());
    if (const int left = DShowHelper::GraphsLeftBehind())
        std::printf("%d graphs left behind\n", left);
    return m_dump.Finish() && good ? 0 : 1;
}

void add_options(CLI::App* app, Options* options) {
    app->add_option("FILE", options->path, "An .mp4 or .wav file")->required();
    app->add_option("--audio-sink", options->audio_sink, "A GStreamer sink; fakesink for none");
    app->add_option("--renderer", options->renderer, "Else the first that works")
        ->check(CLI::IsMember(kForms));
    app->add_flag("--window", options->window, "Show the picture in a window");
    app->add_option("--from", options->from, "Where to start")->check(kIsTime);
    app->add_option("--seconds", options->seconds, "How long; to the end if not given");
    app->add_option("--in", options->in, "In point")->check(kIsTime);
    app->add_option("--out", options->out, "Out point, where it stops")->check(kIsTime);
    AddEffectOptions(app, &options->effects);
    app->add_option(
        "--at", options->changes,
        "While it plays, in order: MS:bass=40 and the like, MS:pause, MS:run, MS:seek=MS");
    app->add_option("--report", options->report_ms, "Milliseconds between two reports");
    app->add_option("--seek", options->seeks, "So many random seeks, paused");
    app->add_option("--stress", options->stress, "So many random operations");
    app->add_option("--seed", options->seed, "Of the random numbers");
    app->add_option("--dump", options->dump, "A new WAV file with what left the sound effect");
    app->add_option("--shot", options->shot, "A new PPM file with the picture at the end");
    app->add_flag("--check", options->check, "Only say whether the clip can be opened");
}

}  // namespace
}  // namespace tarn

int main(int argc, char** argv) {
    CLI::App app("Plays a clip and tells what happens.");
    tarn::Options options;
    tarn::add_options(&app, &options);
    CLI11_PARSE(app, argc, argv);
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    if (options.check) return tarn::check(options.path);
    if (options.stress > 0) tarn::print_resources("before");
    const int status = tarn::Session(options).Run();
    if (options.stress > 0) tarn::print_resources("after");
    return status;
}

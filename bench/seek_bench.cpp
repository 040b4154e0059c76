// seek_bench - paused seeks and stills of a clip like the camera's, beside GStreamer's own player
// and ffmpeg going to the same places in the same run.
//
// The clip is made once, beside the program. Needs ffmpeg.
#include <gst/gst.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "playback/frame_extractor.h"
#include "playback/tarn_player_controller.h"

namespace {

constexpr int kSeeks = 200;
constexpr int kProcesses = 40;  // of the places, for a peer that is started for each
constexpr int64_t kUnitsPerSecond = 10'000'000;
constexpr int kClipSeconds = 30;

using Clock = std::chrono::steady_clock;

[[noreturn]] void fail(const std::string& what) {
    std::fprintf(stderr, "seek_bench: failed: %s\n", what.c_str());
    std::exit(1);
}

void run(const std::string& command) {
    if (std::system(command.c_str()) != 0) fail(command);
}

// 1280x720 at 29.97 with a sync sample a second and B pictures that no other refers to, 12 Mbit/s;
// AAC.
std::string make_clip() {
    const std::string clip = SEEK_BENCH_CLIP;
    if (access(clip.c_str(), R_OK) == 0) return clip;
    run("ffmpeg -v error -y -f lavfi -i testsrc2=s=1280x720:r=30000/1001 -f lavfi -i "
        "'sine=440:r=48000' -vf noise=alls=6:allf=t -t " +
        std::to_string(kClipSeconds) +
        " -c:v libx264 -preset superfast -b:v 12M -g 30 -keyint_min 30 -sc_threshold 0 -bf 2 "
        "-x264-params b-pyramid=none "
        "-pix_fmt yuv420p -c:a aac -b:a 128k -ac 2 " +
        clip + ".part.mp4");
    run("mv " + clip + ".part.mp4 " + clip);
    return clip;
}

// 100-nanosecond units.
std::vector<int64_t> make_places() {
    std::mt19937 random(1);
    std::uniform_int_distribution<int64_t> any(0, (kClipSeconds - 1) * kUnitsPerSecond);
    std::vector<int64_t> places(kSeeks);
    std::generate(places.begin(), places.end(), [&] { return any(random); });
    return places;
}

// Milliseconds of each.
struct Times {
    std::vector<double> each;

    void Take(const std::function<void()>& work) {
        const Clock::time_point start = Clock::now();
        work();
        each.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
    }
    double At(double part) {
        std::sort(each.begin(), each.end());
        return each[static_cast<size_t>(part * static_cast<double>(each.size() - 1) + 0.5)];
    }
};

void print(const char* who, Times* times, double ours) {
    const double median = times->At(0.5);
    std::printf("  %-28s median %6.1f ms, 95 %% %6.1f, largest %6.1f", who, median, times->At(0.95),
                times->At(1));
    if (ours > 0) std::printf("   ours/peer %.2f", ours / median);
    std::printf("\n");
}

// GStreamer's player with what a window like ours needs: pictures in the same form.
class PeerPlayer {
public:
    explicit PeerPlayer(const std::string& clip) {
        m_player = gst_parse_launch(
            ("playbin uri=file://" + clip +
             " audio-sink=\"fakesink sync=true\" video-sink=\"videoconvert n-threads=2 ! "
             "video/x-raw,format=BGRx ! fakesink sync=true\"")
                .c_str(),
            nullptr);
        if (!m_player) fail("playbin");
        gst_element_set_state(m_player, GST_STATE_PAUSED);
        Wait();
    }
    ~PeerPlayer() {
        gst_element_set_state(m_player, GST_STATE_NULL);
        gst_object_unref(m_player);
    }
    void Seek(int64_t place) {
        const auto flags = static_cast<GstSeekFlags>(GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_ACCURATE);
        if (!gst_element_seek_simple(m_player, GST_FORMAT_TIME, flags, place * 100)) fail("a seek");
        Wait();
    }

private:
    void Wait() {
        if (gst_element_get_state(m_player, nullptr, nullptr, 30 * GST_SECOND) !=
            GST_STATE_CHANGE_SUCCESS)
            fail("the peer did not come to rest");
    }

    GstElement* m_player;
};

void run_ffmpeg(const std::string& clip, int64_t place, const std::string& filter) {
    std::array<char, 32> seconds{};
    std::snprintf(seconds.data(), seconds.size(), "%.3f",
                  static_cast<double>(place) / kUnitsPerSecond);
    run("exec ffmpeg -v error -nostdin -ss " + std::string(seconds.data()) + " -i " + clip +
        filter + " -an -frames:v 1 -f rawvideo - >/dev/null");
}

void compare_seeks(const std::string& clip, const std::vector<int64_t>& places) {
    const std::array forms = {tarn::VideoRendererForm::CVMR7};
    tarn::TarnPlayerController ours(tarn::PlayerDevices{"fakesink", forms});
    if (tarn::Failed(ours.Open(clip, true, nullptr, 0, 0, nullptr, nullptr, true)) ||
        tarn::Failed(ours.Pause()))
        fail(tarn::ReasonText(ours.GetReason()));
    PeerPlayer peer(clip);
    Times our_times, peer_times, process_times;
    for (size_t n = 0; n < places.size(); ++n) {
        our_times.Take([&] {
            int32_t state = 0;
            if (tarn::Failed(
                    ours.Seek(places[n], tarn::kAbsolutePositioning, 0, tarn::kNoPositioning)) ||
                ours.GetState(30'000, &state) != tarn::S_OK)
                fail("a seek");
        });
        peer_times.Take([&] { peer.Seek(places[n]); });
        if (n % (kSeeks / kProcesses) == 0)
            process_times.Take([&] { run_ffmpeg(clip, places[n], " -pix_fmt bgr0"); });
    }
    std::printf("paused seeks to any picture\n");
    print("player", &our_times, 0);
    print("GStreamer's playbin", &peer_times, our_times.At(0.5));
    print("ffmpeg, a process for each", &process_times, our_times.At(0.5));
}

void compare_stills(const std::string& clip, const std::vector<int64_t>& places) {
    tarn::CFrameExtractor extractor;
    if (tarn::Failed(extractor.Open(clip, 160, 90))) fail(tarn::ReasonText(extractor.GetReason()));
    Times our_times, first_times, process_times;
    for (int n = 0; n < kProcesses; ++n) {
        const int64_t place = places[static_cast<size_t>(n)];
        tarn::StillPicture still;
        our_times.Take([&] {
            if (tarn::Failed(extractor.GetFrame(place, &still)))
                fail(tarn::ReasonText(extractor.GetReason()));
        });
        first_times.Take([&] {
            tarn::CFrameExtractor fresh;
            if (tarn::Failed(fresh.Open(clip, 160, 90)) ||
                tarn::Failed(fresh.GetFrame(place, &still)))
                fail(tarn::ReasonText(fresh.GetReason()));
        });
        process_times.Take([&] { run_ffmpeg(clip, place, " -vf scale=160:90 -pix_fmt rgb24"); });
    }
    std::printf("stills of 160x90\n");
    print("extractor", &our_times, 0);
    print("extractor, opened for each", &first_times, 0);
    print("ffmpeg, a process for each", &process_times, first_times.At(0.5));
}

}  // namespace

int main() {
    gst_init(nullptr, nullptr);
    const std::string clip = make_clip();
    const std::vector<int64_t> places = make_places();
    compare_seeks(clip, places);
    compare_stills(clip, places);
    return 0;
}

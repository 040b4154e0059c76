// drag_bench - how many pictures a second appear while the playhead is dragged, and how long a
// request keeps the main thread.
//
// 1920x1080 at 60 pictures a second with a sync sample every 250: a picture at the end of a group
// costs 250. The clip is made once, beside the program. Needs ffmpeg.
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <set>
#include <string>

#include "playback/tarn_player_controller.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int64_t kUnitsPerMs = 10'000;
constexpr int kClipMs = 20'000, kDragMs = 6'000;
constexpr int kRequestMs = 16;  // as a pointer moves

[[noreturn]] void fail(const std::string& what) {
    std::fprintf(stderr, "drag_bench: failed: %s\n", what.c_str());
    std::exit(1);
}

double ms_since(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

std::string make_clip() {
    const std::string clip = DRAG_BENCH_CLIP;
    if (access(clip.c_str(), R_OK) == 0) return clip;
    const std::string made =
        "ffmpeg -v error -nostdin -y -f lavfi -i testsrc2=s=1920x1080:r=60 -f lavfi -i "
        "sine=440:r=48000 -vf noise=alls=6:allf=t -t " +
        std::to_string(kClipMs / 1000) +
        " -c:v libx264 -preset superfast -b:v 16M -g 250 -keyint_min 250 -sc_threshold 0 -bf 2 "
        "-x264-params b-pyramid=none -pix_fmt yuv420p -c:a aac -b:a 128k -ac 2 " +
        clip + ".part.mp4 && mv " + clip + ".part.mp4 " + clip;
    if (std::system(made.c_str()) != 0) fail(made);
    return clip;
}

// Counts the pictures that would be painted.
class Counter final : public tarn::IVideoWindow {
public:
    uintptr_t NativeHandle() const override { return 0; }
    tarn::VideoRect ClientRect() const override { return {0, 0, 960, 540}; }
    void PictureChanged() override {
        const std::lock_guard lock(m_lock);
        if (!m_renderer) return;
        static_cast<void>(
            m_renderer->ReadPicture([this](const tarn::VideoPicture& picture) { Take(picture); }));
    }
    void Watch(const tarn::CVideoRenderer* renderer) {
        const std::lock_guard lock(m_lock);
        m_renderer = renderer;
    }
    size_t Shown() const { return m_shown; }
    size_t Different() const { return m_different.size(); }
    double LongestGapMs() const { return m_longestGap; }

private:
    // By what it shows: a picture on the way bears the time of the request.
    void Take(const tarn::VideoPicture& picture) {
        uint64_t sum = 1469598103934665603u;
        for (int32_t y = 0; y < picture.height; y += 8)
            for (int32_t x = 0; x < picture.width * 4; x += 64)
                sum = (sum ^ picture.pixels[ptrdiff_t{y} * picture.stride + x]) * 1099511628211u;
        ++m_shown;
        m_different.insert(sum);
        m_longestGap = std::max(m_longestGap, ms_since(m_last));
        m_last = Clock::now();
    }

    std::mutex m_lock;
    const tarn::CVideoRenderer* m_renderer = nullptr;
    size_t m_shown = 0;
    std::set<uint64_t> m_different;
    Clock::time_point m_last = Clock::now();
    double m_longestGap = 0;
};

struct Drag {
    const char* name;
    int from, to;  // ms of the clip; there and back
};

void measure(const std::string& clip, const Drag& drag) {
    constexpr std::array kForms = {tarn::VideoRendererForm::CVMR7};
    Counter counter;
    tarn::TarnPlayerController player(tarn::PlayerDevices{"fakesink", kForms});
    int32_t state = 0;
    if (tarn::Failed(player.Open(clip, true, nullptr, 0, 0, &counter, nullptr, true)) ||
        tarn::Failed(player.Pause()) || player.GetState(30'000, &state) != tarn::S_OK)
        fail(tarn::ReasonText(player.GetReason()));
    counter.Watch(player.Renderer());
    double longest = 0;
    int requests = 0;
    const Clock::time_point start = Clock::now();
    while (ms_since(start) < kDragMs) {
        const double part = ms_since(start) / kDragMs * 2;
        const double way = part < 1 ? part : 2 - part;
        const double at = drag.from + way * (drag.to - drag.from);
        const Clock::time_point before = Clock::now();
        const tarn::HRESULT result =
            player.Seek(static_cast<int64_t>(at) * kUnitsPerMs, tarn::kAbsolutePositioning, 0, 0);
        if (tarn::Failed(result)) fail("a seek");
        longest = std::max(longest, ms_since(before));
        ++requests;
        static_cast<void>(player.ProcessEvents());
        poll(nullptr, 0, kRequestMs);
    }
    const double seconds = ms_since(start) / 1000;
    const Clock::time_point released = Clock::now();
    if (player.GetState(30'000, &state) != tarn::S_OK) fail("the last picture");
    std::printf(
        "%-30s %5.1f pictures/s, %5.1f different/s, longest gap %4.0f ms; %4d requests, "
        "longest %5.1f ms; the last picture after %4.0f ms\n",
        drag.name, static_cast<double>(counter.Shown()) / seconds,
        static_cast<double>(counter.Different()) / seconds, counter.LongestGapMs(), requests,
        longest, ms_since(released));
    counter.Watch(nullptr);
}

}  // namespace

int main() {
    const std::string clip = make_clip();
    for (const Drag& drag :
         {Drag{"over the whole clip", 0, kClipMs - 100}, Drag{"over one second", 6'000, 7'000},
          Drag{"in the end of a group", 7'800, 8'300}})
        measure(clip, drag);
    return 0;
}

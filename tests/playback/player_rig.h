// player_rig.h - a player on sinks that need no device, what it lets out and what it should show;
// a window that remembers; and what a machine has of plug-ins.
#pragma once

#include <gst/gst.h>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "playback/gst_handles.h"
#include "playback/tarn_player_controller.h"

namespace tarn {

// Every wait of these tests ends here at the latest.
constexpr int kDeadlineSeconds = 60;

// Asks again and again, a few milliseconds apart. False when the deadline passes first.
[[nodiscard]] bool WaitFor(const std::function<bool()>& condition);

// No sink of the graph waits for its time any more: a clip is through at once.
void Unpace(GstElement* graph);

// For a callback that must be over before another thread's call returns: makes that call in the
// middle of the first callback, and sees whether it waits.
class Meanwhile {
public:
    void Run(std::function<void()> call);
    bool CameBackEarly();

private:
    std::atomic<bool> m_begun = false, m_back = false;
    bool m_early = true;
    std::jthread m_thread;
};

struct TestWindow : IVideoWindow {
    uintptr_t NativeHandle() const override { return native; }
    VideoRect ClientRect() const override { return client; }
    void PictureChanged() override { ++changes; }
    // Waits for that many calls, counted from the start.
    [[nodiscard]] bool WaitForChanges(int count) {
        return WaitFor([&] { return changes >= count; });
    }

    uintptr_t native = 0;
    VideoRect client;
    std::atomic<int> changes = 0;
};

// Takes a factory out of the registry, so that its plug-in seems to be missing.
class HiddenFactory {
public:
    explicit HiddenFactory(const char* name);
    ~HiddenFactory();
    HiddenFactory(const HiddenFactory&) = delete;
    HiddenFactory& operator=(const HiddenFactory&) = delete;

private:
    GstPluginFeature* m_feature;
};

// A factory that comes before all others, as long as this lives.
class FakeFactory {
public:
    // `takes`: caps of the pad "sink". One that does not start fails as a device does that is not
    // there. Kinds with "Sink" have no pad "src".
    FakeFactory(const char* name, const char* kind, const char* takes, bool starts = true);
    ~FakeFactory();
    FakeFactory(const FakeFactory&) = delete;
    FakeFactory& operator=(const FakeFactory&) = delete;

private:
    GstPluginFeature* m_feature;
};

// The first element of that factory in the bin; null where there is none.
GstElementPtr ElementOf(const GstElementPtr& bin, const char* factory);

inline std::ostream& operator<<(std::ostream& out, const Reason& reason) {
    return out << ReasonName(reason.code) << ": " << reason.file << ": " << ReasonText(reason);
}

const std::string kData = TARN_TEST_DATA;
// "cam_roles" in tests/data/clips
inline std::string ClipPath(const std::string& name) {
    return kData + "/clips/" + name + ".mp4";
}

// Sound goes into nothing, pictures into memory.
class TestPlayer final : public TarnPlayerController {
public:
    TestPlayer();
    // Opens the clip.
    explicit TestPlayer(const std::string& path, bool withSound = true);
    ~TestPlayer() override { ReleaseGraph(); }

    HRESULT OpenClip(const std::string& path, bool withSound = true) {
        return Open(path, withSound, nullptr, 0, 0, nullptr, nullptr, false);
    }
    HRESULT SeekTo(int64_t position) { return Seek(position, kAbsolutePositioning, 0, 0); }
    int64_t Position();
    int64_t Duration();
    // Waits for the event that ends playing.
    HRESULT WaitForEnd();
    // All that is left, at once.
    HRESULT PlayToEnd();
    // Waits out a seek or a change of state, however long it takes on this machine.
    bool WaitForState();
    bool PausesThere() { return Pause() >= 0 && WaitForState(); }
    GstElementPtr Element(const char* name) const;
};

// Holds back what the clip's source reads, until it is let go; a reader that never returns.
class SlowMedium {
public:
    // `pin`: of the source.
    SlowMedium(const TestPlayer& player, const char* pin);
    ~SlowMedium() { LetAllGo(); }
    [[nodiscard]] bool WaitUntilItHolds() {
        return WaitFor([this] { return m_state->held > 0; });
    }
    void LetGo(int count);
    void LetAllGo() { LetGo(1'000'000); }

private:
    struct State {  // outlives this together with the graph
        std::mutex lock;
        std::condition_variable changed;
        int allowed = 0;
        std::atomic<int> held = 0;
    };
    std::shared_ptr<State> m_state = std::make_shared<State>();
};

// What leaves the sound effect, since it was begun or since the last seek. Goes before the player.
class SoundCapture {
public:
    explicit SoundCapture(TestPlayer* player);
    ~SoundCapture() { gst_pad_remove_probe(m_pin.get(), m_probe); }
    std::vector<int16_t> Samples() const;
    int64_t FirstTime() const;  // nanoseconds of the clip

private:
    static GstPadProbeReturn Watch(GstPad* pad, GstPadProbeInfo* info, gpointer capture);

    GstPadPtr m_pin;
    gulong m_probe = 0;
    mutable std::mutex m_lock;
    std::vector<int16_t> m_samples;
    int64_t m_first = -1;
};

// The pictures of a clip as another decoder sees them.
class KnownPictures {
public:
    static constexpr int32_t kWidth = 16, kHeight = 9;

    explicit KnownPictures(const std::string& clip);
    // The one that is on the screen at a time, in 100-nanosecond units.
    size_t At(int64_t time) const;
    // The one that looks most like these grey pixels.
    size_t Nearest(const std::vector<int>& thumbnail) const;

private:
    std::vector<int64_t> m_times;  // nanoseconds
    std::vector<uint8_t> m_pixels;
};

// Reduces a picture to grey means; `blue` and `red` are the places of the colours in a pixel of
// `pixelSize` bytes.
std::vector<int> Thumbnail(const VideoPicture& picture, int32_t pixelSize, int32_t blue,
                           int32_t red);
// Of the picture that the player shows; empty without one.
std::vector<int> ShownThumbnail(const TestPlayer& player);

}  // namespace tarn

// picture_rig.h - a graph that feeds a renderer from a test source, and a window and a painter that
// remember what they were told.
#pragma once

#include <gst/gst.h>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "playback/video_renderer.h"

namespace tarn {

// Every wait of these tests ends here at the latest.
constexpr int kDeadlineSeconds = 60;

// Asks again and again, a few milliseconds apart. False when the deadline passes first.
[[nodiscard]] bool WaitFor(const std::function<bool()>& condition);

// No sink of the graph waits for its time any more.
void Unpace(GstElement* graph);

// For a callback that must be over before another thread's call returns: makes that call in the
// middle of the callback, and sees whether it waits.
class Meanwhile {
public:
    Meanwhile() = default;
    ~Meanwhile() { Join(); }
    Meanwhile(const Meanwhile&) = delete;
    Meanwhile& operator=(const Meanwhile&) = delete;

    // Of the first callback; others do nothing.
    void Run(std::function<void()> call);
    bool CameBackEarly() { return Join(), !m_ran || m_early; }

private:
    void Join() {
        if (m_thread.joinable()) m_thread.join();
    }

    std::thread m_thread;
    std::atomic<bool> m_back{false};
    bool m_ran = false, m_early = false;
};

class TestGraph {
public:
    TestGraph();
    ~TestGraph();
    TestGraph(const TestGraph&) = delete;
    TestGraph& operator=(const TestGraph&) = delete;

    GstElement* Pipeline() const { return m_pipeline; }
    // Links `source`, elements in the launch syntax, to the renderer.
    [[nodiscard]] bool Feed(const CVideoRenderer& renderer, const std::string& source);
    // Waits until the pipeline is there.
    [[nodiscard]] bool Reach(GstState state);
    void PlayUnpaced();
    [[nodiscard]] bool Seek(int64_t milliseconds);
    // An error was reported since the last question.
    [[nodiscard]] bool HasError() const;
    // Milliseconds; 0 where the graph has none.
    int64_t Position() const;

private:
    GstElement* m_pipeline;
};

class TestWindow final : public IVideoWindow {
public:
    uintptr_t NativeHandle() const override { return native; }
    VideoRect ClientRect() const override { return client; }
    void PictureChanged() override;
    // Waits for that many calls, counted from the start.
    [[nodiscard]] bool WaitForChanges(int count);

    uintptr_t native = 0;
    VideoRect client;

private:
    std::mutex m_lock;
    std::condition_variable m_changed;
    int m_changes = 0;
};

struct TestPainter final : IVideoPainter {
    void DrawPicture(const VideoPicture& picture, const VideoRect& target) override {
        times.push_back(picture.time);
        targets.push_back(target);
    }
    void FillBlack(const VideoRect& area) override { black.push_back(area); }

    std::vector<int64_t> times;
    std::vector<VideoRect> targets, black;
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

}  // namespace tarn

// play_window.h - a plain X window for a picture, and the painting that a renderer asks for.
#pragma once

#include <X11/Xlib.h>

#include <string>
#include <vector>

#include "playback/video_renderer.h"

namespace tarn {

// Main thread only, but for PictureChanged.
class PlayWindow final : public IVideoWindow, public IVideoPainter {
public:
    // False where there is no display.
    [[nodiscard]] bool Open(const std::string& title, int width, int height);
    ~PlayWindow() override;

    // Takes what has come in and paints what is due; waits for it, so long at most. False once
    // the window was closed.
    bool Pump(CVideoRenderer* renderer, int timeout_ms);

    uintptr_t NativeHandle() const override { return m_window; }
    VideoRect ClientRect() const override { return {0, 0, m_width, m_height}; }
    void PictureChanged() override;

    void DrawPicture(const VideoPicture& picture, const VideoRect& target) override;
    void FillBlack(const VideoRect& area) override;

private:
    void TakeEvents(CVideoRenderer* renderer, bool* paint, bool* open);

    Display* m_display = nullptr;
    Window m_window = 0;
    GC m_gc = nullptr;
    Atom m_close = 0;
    int m_width = 0, m_height = 0;
    int m_wake = -1;  // an eventfd: pictures that wait to be painted
    std::vector<uint32_t> m_scaled;
};

}  // namespace tarn

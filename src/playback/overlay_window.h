// overlay_window.h - the X window that an overlay sink draws into.
//
// It is the renderer's own from start to end: parked below the root, never mapped, until the
// picture has a place, then a child of the window that shows it. So a sink has a window before its
// first frame, never opens one of its own and needn't change windows while it runs. Mouse and keys
// go on to the parent. One thread, but for what Open is given.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "playback/video_renderer.h"

namespace tarn {

class OverlayWindow {
public:
    // Null where no X server answers. `lost` is called, from any thread and with the X library
    // locked, when a request fails because the window is gone: destroyed along with its parent.
    // Once.
    static std::unique_ptr<OverlayWindow> Open(std::function<void()> lost);
    ~OverlayWindow();
    OverlayWindow(const OverlayWindow&) = delete;
    OverlayWindow& operator=(const OverlayWindow&) = delete;

    uintptr_t Id() const;
    // Moves into that area of that window; an empty one only hides. False where the window or
    // the parent doesn't exist.
    [[nodiscard]] bool MoveInto(uintptr_t parent, const VideoRect& area);
    // Back below the root: what happens to the parent from now on is of no concern.
    void Hide();
    [[nodiscard]] bool Exists();
    // Tells the windows that a sink has in this one to draw again.
    void ExposeChildren();
    // Shows a picture of the window's own size, where the screen has 24 bits of colour.
    [[nodiscard]] bool Draw(const VideoPicture& picture);

private:
    struct Connection;

    explicit OverlayWindow(std::unique_ptr<Connection> connection);

    std::unique_ptr<Connection> m_connection;
    uintptr_t m_parent = 0;  // 0 while parked
};

}  // namespace tarn

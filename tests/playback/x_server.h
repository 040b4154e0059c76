// x_server.h - an X server without a screen for a test program, and windows on it whose pixels the
// test reads.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "playback/video_renderer.h"

namespace tarn {

// Is DISPLAY from now on, and ends with the test program: not before, since a graphics driver's
// thread may still have a connection, and one that breaks ends the program.
class XServer {
public:
    XServer();
    XServer(const XServer&) = delete;
    XServer& operator=(const XServer&) = delete;

    // False where the server isn't installed.
    bool IsInstalled() const { return m_installed; }
    bool Runs() const { return !m_display.empty(); }
    const std::string& Name() const { return m_display; }

private:
    bool m_installed = true;
    std::string m_display;
};

struct Colour {
    int red, green, blue;
};

// A mapped toplevel window, blue all over.
class XWindow {
public:
    XWindow(int32_t width, int32_t height);
    ~XWindow();
    XWindow(const XWindow&) = delete;
    XWindow& operator=(const XWindow&) = delete;

    uintptr_t Id() const;
    void Resize(int32_t width, int32_t height);
    // What the screen shows there.
    Colour At(int32_t x, int32_t y) const;
    // Waits until that place shows that colour, nearly.
    bool Shows(int32_t x, int32_t y, const Colour& colour) const;
    // Visible windows below the root, this one included.
    int VisibleToplevels() const;

private:
    struct Connection;
    std::unique_ptr<Connection> m_connection;
};

}  // namespace tarn

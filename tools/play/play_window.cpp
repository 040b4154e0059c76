#include "play_window.h"

#include <X11/Xutil.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cstring>

namespace tarn {

bool PlayWindow::Open(const std::string& title, int width, int height) {
    m_display = XOpenDisplay(nullptr);
    if (!m_display) return false;
    m_width = width;
    m_height = height;
    m_wake = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    m_window = XCreateSimpleWindow(m_display, DefaultRootWindow(m_display), 0, 0,
                                   static_cast<unsigned>(width), static_cast<unsigned>(height), 0,
                                   0, BlackPixel(m_display, DefaultScreen(m_display)));
    m_gc = XCreateGC(m_display, m_window, 0, nullptr);
    m_close = XInternAtom(m_display, "WM_DELETE_WINDOW", False);
    XSetWMProtocols(m_display, m_window, &m_close, 1);
    XStoreName(m_display, m_window, title.c_str());
    XSelectInput(m_display, m_window, ExposureMask | StructureNotifyMask);
    XMapWindow(m_display, m_window);
    XSync(m_display, False);
    return m_wake >= 0;
}

PlayWindow::~PlayWindow() {
    if (m_display) XCloseDisplay(m_display);
    if (m_wake >= 0) close(m_wake);
}

void PlayWindow::PictureChanged() {
    const uint64_t one = 1;
    // A full counter is as good a sign as one more.
    [[maybe_unused]] const ssize_t done = write(m_wake, &one, sizeof one);
}

void PlayWindow::TakeEvents(CVideoRenderer* renderer, bool* paint, bool* open) {
    while (XPending(m_display) > 0) {
        XEvent event;
        XNextEvent(m_display, &event);
        if (event.type == Expose) *paint = true;
        if (event.type == ClientMessage && static_cast<Atom>(event.xclient.data.l[0]) == m_close)
            *open = false;
        if (event.type != ConfigureNotify) continue;
        m_width = event.xconfigure.width;
        m_height = event.xconfigure.height;
        if (renderer) static_cast<void>(renderer->SetPosition(this, nullptr));
        *paint = true;
    }
}

bool PlayWindow::Pump(CVideoRenderer* renderer, int timeout_ms) {
    XFlush(m_display);
    if (XPending(m_display) > 0) timeout_ms = 0;
    pollfd waiting[] = {{ConnectionNumber(m_display), POLLIN, 0}, {m_wake, POLLIN, 0}};
    static_cast<void>(poll(waiting, 2, timeout_ms));
    uint64_t pictures = 0;
    bool paint = read(m_wake, &pictures, sizeof pictures) == sizeof pictures, open = true;
    TakeEvents(renderer, &paint, &open);
    if (paint && renderer) static_cast<void>(renderer->RepaintVideo(this, this));
    XFlush(m_display);
    return open;
}

void PlayWindow::DrawPicture(const VideoPicture& picture, const VideoRect& target) {
    const int width = target.right - target.left, height = target.bottom - target.top;
    m_scaled.resize(static_cast<size_t>(width) * static_cast<size_t>(height));
    uint32_t* out = m_scaled.data();
    for (int y = 0; y < height; ++y) {
        const uint8_t* row =
            picture.pixels + ptrdiff_t{y} * picture.height / height * picture.stride;
        for (int x = 0; x < width; ++x)
            std::memcpy(out++, row + ptrdiff_t{x} * picture.width / width * 4, 4);
    }
    const int screen = DefaultScreen(m_display);
    XImage* image =
        XCreateImage(m_display, DefaultVisual(m_display, screen),
                     static_cast<unsigned>(DefaultDepth(m_display, screen)), ZPixmap, 0,
                     reinterpret_cast<char*>(m_scaled.data()), static_cast<unsigned>(width),
                     static_cast<unsigned>(height), 32, 0);
    if (!image) return;
    XPutImage(m_display, m_window, m_gc, image, 0, 0, target.left, target.top,
              static_cast<unsigned>(width), static_cast<unsigned>(height));
    image->data = nullptr;  // ours
    XDestroyImage(image);
}

void PlayWindow::FillBlack(const VideoRect& area) {
    XFillRectangle(m_display, m_window, m_gc, area.left, area.top,
                   static_cast<unsigned>(area.right - area.left),
                   static_cast<unsigned>(area.bottom - area.top));
}

}  // namespace tarn

#include "playback/overlay_window.h"

#include <X11/Xlib.h>
#include <X11/Xutil.h>

#include <map>
#include <mutex>
#include <utility>

#include "playback/letterbox.h"

namespace tarn {
namespace {

// An X library has one error handler for the whole process, whose default ends the process, and
// sinks make requests on connections of their own. These globals are what that handler needs.
struct ErrorWatch {
    std::once_flag installed;
    int (*previous)(Display*, XErrorEvent*) = nullptr;
    std::mutex lock;
    std::map<XID, std::function<void()>> windows;
};

ErrorWatch& Watch() {
    static ErrorWatch watch;
    return watch;
}

// Set while this thread makes requests that may fail; the handler runs in the same thread.
thread_local bool* t_failed = nullptr;

// While there are overlay windows, a window that is gone is no reason to end the process: sinks
// have children of ours that nobody else knows. All other errors go where they went before.
int OnError(Display* display, XErrorEvent* error) {
    if (t_failed) {
        *t_failed = true;
        return 0;
    }
    ErrorWatch& watch = Watch();
    if (error->error_code == BadWindow || error->error_code == BadDrawable) {
        const std::lock_guard lock(watch.lock);
        const auto lost = watch.windows.find(error->resourceid);
        if (lost != watch.windows.end()) {
            if (const auto tell = std::exchange(lost->second, nullptr)) tell();
        }
        if (!watch.windows.empty()) return 0;
    }
    return watch.previous(display, error);
}

constexpr unsigned kParkedWidth = 320, kParkedHeight = 180;

Window MakeWindow(Display* display) {
    XSetWindowAttributes attributes{};
    attributes.background_pixel = BlackPixel(display, DefaultScreen(display));
    attributes.override_redirect = True;  // never a matter for the window manager
    return XCreateWindow(display, DefaultRootWindow(display), 0, 0, kParkedWidth, kParkedHeight, 0,
                         CopyFromParent, InputOutput, nullptr, CWBackPixel | CWOverrideRedirect,
                         &attributes);
}

}  // namespace

struct OverlayWindow::Connection {
    ~Connection() {
        if (display) XCloseDisplay(display);
    }
    // True when the requests of `call` all succeeded.
    bool Try(const std::function<void(Display*, Window)>& call) const {
        bool failed = false;
        XSync(display, False);
        t_failed = &failed;
        call(display, window);
        XSync(display, False);
        t_failed = nullptr;
        return !failed;
    }

    Display* display = nullptr;
    Window window = 0;
};

std::unique_ptr<OverlayWindow> OverlayWindow::Open(std::function<void()> lost) {
    ErrorWatch& watch = Watch();
    std::call_once(watch.installed, [&] {
        XInitThreads();
        watch.previous = XSetErrorHandler(OnError);
    });
    auto connection = std::make_unique<Connection>();
    connection->display = XOpenDisplay(nullptr);
    if (!connection->display) return nullptr;
    connection->window = MakeWindow(connection->display);
    XSync(connection->display, False);

    const std::lock_guard lock(watch.lock);
    watch.windows[connection->window] = std::move(lost);
    return std::unique_ptr<OverlayWindow>(new OverlayWindow(std::move(connection)));
}

OverlayWindow::OverlayWindow(std::unique_ptr<Connection> connection)
    : m_connection(std::move(connection)) {}

OverlayWindow::~OverlayWindow() {
    static_cast<void>(m_connection->Try(XDestroyWindow));
    ErrorWatch& watch = Watch();
    const std::lock_guard lock(watch.lock);
    watch.windows.erase(m_connection->window);
}

uintptr_t OverlayWindow::Id() const {
    return m_connection->window;
}

bool OverlayWindow::MoveInto(uintptr_t parent, const VideoRect& area) {
    const bool placed = m_connection->Try([&](Display* display, Window window) {
        if (parent != m_parent) XReparentWindow(display, window, parent, area.left, area.top);
        if (IsEmpty(area)) {
            XUnmapWindow(display, window);
        } else {
            XMoveResizeWindow(display, window, area.left, area.top,
                              static_cast<unsigned>(area.right - area.left),
                              static_cast<unsigned>(area.bottom - area.top));
            XMapWindow(display, window);
        }
    });
    if (placed) m_parent = parent;
    return placed;
}

void OverlayWindow::Hide() {
    if (m_parent == 0) return;
    static_cast<void>(m_connection->Try([](Display* display, Window window) {
        XUnmapWindow(display, window);
        XReparentWindow(display, window, DefaultRootWindow(display), 0, 0);
    }));
    m_parent = 0;
}

bool OverlayWindow::Exists() {
    return m_connection->Try([](Display* display, Window window) {
        XWindowAttributes attributes;
        XGetWindowAttributes(display, window, &attributes);
    });
}

void OverlayWindow::ExposeChildren() {
    static_cast<void>(m_connection->Try([](Display* display, Window window) {
        Window root, parent, *children = nullptr;
        unsigned count = 0;
        XQueryTree(display, window, &root, &parent, &children, &count);
        for (unsigned i = 0; i < count; ++i) {
            XEvent event{};
            event.xexpose.type = Expose;
            event.xexpose.window = children[i];
            XSendEvent(display, children[i], False, ExposureMask, &event);
        }
        if (children) XFree(children);
    }));
}

bool OverlayWindow::Draw(const VideoPicture& picture) {
    Display* display = m_connection->display;
    const int screen = DefaultScreen(display);
    Visual* visual = DefaultVisual(display, screen);
    if (DefaultDepth(display, screen) != 24 || visual->red_mask != 0xff0000) return false;
    // The library only reads the pixels but has no type to say so.
    char* pixels = const_cast<char*>(reinterpret_cast<const char*>(picture.pixels));
    XImage* image =
        XCreateImage(display, visual, 24, ZPixmap, 0, pixels, static_cast<unsigned>(picture.width),
                     static_cast<unsigned>(picture.height), 32, picture.stride);
    if (!image) return false;
    image->byte_order = LSBFirst;
    const bool drawn = m_connection->Try([&](Display* to, Window window) {
        XPutImage(to, window, DefaultGC(to, screen), image, 0, 0, 0, 0,
                  static_cast<unsigned>(picture.width), static_cast<unsigned>(picture.height));
    });
    image->data = nullptr;  // the caller's
    XDestroyImage(image);
    return drawn;
}

}  // namespace tarn

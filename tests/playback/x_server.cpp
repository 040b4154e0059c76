#include "x_server.h"

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "picture_rig.h"

namespace tarn {
namespace {

constexpr int kNotInstalled = 127;

[[noreturn]] void BecomeServer(int ready) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nowhere, STDERR_FILENO);
    dup2(ready, 3);  // without close-on-exec
    execlp("Xvfb", "Xvfb", "-displayfd", "3", "-screen", "0", "800x600x24", "-noreset", "-nolisten",
           "tcp", static_cast<char*>(nullptr));
    _exit(kNotInstalled);
}

// The server writes the number of the display it has taken, and a line end.
std::string ReadLine(int fd) {
    std::string line;
    char c = 0;
    while (read(fd, &c, 1) == 1 && c != '\n')
        line += c;
    return c == '\n' ? line : "";
}

}  // namespace

XServer::XServer() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return;
    const pid_t child = fork();
    if (child == 0) BecomeServer(ends[1]);
    close(ends[1]);
    const std::string number = ReadLine(ends[0]);
    close(ends[0]);
    if (!number.empty()) {
        m_display = ":" + number;
        setenv("DISPLAY", m_display.c_str(), 1);
        return;
    }
    int status = 0;
    waitpid(child, &status, 0);
    m_installed = !WIFEXITED(status) || WEXITSTATUS(status) != kNotInstalled;
}

struct XWindow::Connection {
    Display* display;
    Window window;
};

XWindow::XWindow(int32_t width, int32_t height) : m_connection(std::make_unique<Connection>()) {
    Display* display = XOpenDisplay(nullptr);
    XSetWindowAttributes attributes{};
    attributes.override_redirect = True;
    attributes.background_pixel = 0x0000ff;
    const Window window =
        XCreateWindow(display, DefaultRootWindow(display), 0, 0, static_cast<unsigned>(width),
                      static_cast<unsigned>(height), 0, CopyFromParent, InputOutput, nullptr,
                      CWOverrideRedirect | CWBackPixel, &attributes);
    XMapWindow(display, window);
    XSync(display, False);
    *m_connection = {display, window};
}

XWindow::~XWindow() {
    XDestroyWindow(m_connection->display, m_connection->window);
    XCloseDisplay(m_connection->display);
}

uintptr_t XWindow::Id() const {
    return m_connection->window;
}

void XWindow::Resize(int32_t width, int32_t height) {
    XResizeWindow(m_connection->display, m_connection->window, static_cast<unsigned>(width),
                  static_cast<unsigned>(height));
    XSync(m_connection->display, False);
}

Colour XWindow::At(int32_t x, int32_t y) const {
    XImage* image =
        XGetImage(m_connection->display, m_connection->window, x, y, 1, 1, AllPlanes, ZPixmap);
    if (!image) return {-1, -1, -1};
    const unsigned long pixel = XGetPixel(image, 0, 0);
    XDestroyImage(image);
    return {static_cast<int>(pixel >> 16 & 0xff), static_cast<int>(pixel >> 8 & 0xff),
            static_cast<int>(pixel & 0xff)};
}

bool XWindow::Shows(int32_t x, int32_t y, const Colour& colour) const {
    constexpr int kNear = 10;
    return WaitFor([&] {
        const Colour at = At(x, y);
        return std::abs(at.red - colour.red) <= kNear &&
               std::abs(at.green - colour.green) <= kNear &&
               std::abs(at.blue - colour.blue) <= kNear;
    });
}

int XWindow::VisibleToplevels() const {
    Window root, parent, *children = nullptr;
    unsigned count = 0;
    XQueryTree(m_connection->display, DefaultRootWindow(m_connection->display), &root, &parent,
               &children, &count);
    int visible = 0;
    for (unsigned i = 0; i < count; ++i) {
        XWindowAttributes attributes;
        // Another client's window may go meanwhile: its error is the renderer's to swallow.
        if (XGetWindowAttributes(m_connection->display, children[i], &attributes) &&
            attributes.map_state == IsViewable)
            ++visible;
    }
    if (children) XFree(children);
    return visible;
}

}  // namespace tarn

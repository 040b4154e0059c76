#include "playback/cevr.h"

#include <gst/gl/gl.h>
#include <gst/gl/x11/gstgldisplay_x11.h>

#include <future>
#include <memory>

namespace tarn {
namespace {

using GlDisplayPtr = GstPtr<GstGLDisplay>;

// Waits until the display's own thread has handled the events that there are. It waits in turn for
// a sink's drawing thread, for ever if that has been stopped meanwhile, and would be lost with the
// display.
void HandleEvents(GstGLDisplay* display) {
    std::promise<void> handled;
    g_main_context_invoke_full(
        display->main_context, G_PRIORITY_DEFAULT_IDLE,
        [](gpointer promise) {
            static_cast<std::promise<void>*>(promise)->set_value();
            return gboolean{G_SOURCE_REMOVE};
        },
        &handled, nullptr);
    handled.get_future().wait();
}

bool CanDraw(GstGLDisplay* display) {
    GstGLContext* context = nullptr;
    GError* error = nullptr;
    GST_OBJECT_LOCK(display);
    const bool made = gst_gl_display_create_context(display, nullptr, &context, &error);
    GST_OBJECT_UNLOCK(display);
    HandleEvents(display);
    if (context) gst_object_unref(context);
    g_clear_error(&error);
    return made;
}

}  // namespace

std::span<const char* const> CEVR::SinkFactories() const {
    static constexpr const char* kFactories[] = {"glimagesink"};
    return kFactories;
}

void CEVR::Refresh(const VideoRect& area) {
    OverlayRenderer::Refresh(area);
    // The sink learns the new size of its own window, inside ours, from an event that may lie
    // unread until another one comes; nor does a window that shrinks ask to be drawn again.
    Overlay().ExposeChildren();
}

// Left to itself the sink might choose another window system, on which our window is nothing.
bool CEVR::Prepare(GstElement* bin) {
    const GlDisplayPtr display(GST_GL_DISPLAY(gst_gl_display_x11_new(nullptr)));
    if (!display || !CanDraw(display.get())) return false;
    GstContext* context = gst_context_new(GST_GL_DISPLAY_CONTEXT_TYPE, TRUE);
    gst_context_set_gl_display(context, display.get());
    // Not given to the elements before they ask: one that never starts would never let it go.
    g_object_set_data_full(G_OBJECT(bin), kOverlayContextKey, context, [](gpointer data) {
        gst_context_unref(static_cast<GstContext*>(data));
    });
    // The display lives as long as the bin, which holds it in that context.
    auto closer =
        std::make_unique<OverlayCloser>([events = display.get()] { HandleEvents(events); });
    g_object_set_data_full(G_OBJECT(bin), kOverlayCloserKey, closer.release(), [](gpointer data) {
        const std::unique_ptr<OverlayCloser> owner(static_cast<OverlayCloser*>(data));
    });
    return true;
}

}  // namespace tarn

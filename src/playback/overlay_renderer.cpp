#include "playback/overlay_renderer.h"

#include <gst/video/videooverlay.h>

#include <utility>

namespace tarn {
namespace {

const char kWindowKey[] = "tarn-window";

// Each time a sink starts it asks for a window before it would open one of its own.
void AnswerOrForward(GstBin* bin, GstMessage* message) {
    if (gst_is_video_overlay_prepare_window_handle_message(message)) {
        gst_video_overlay_set_window_handle(
            GST_VIDEO_OVERLAY(GST_MESSAGE_SRC(message)),
            GPOINTER_TO_SIZE(g_object_get_data(G_OBJECT(bin), kWindowKey)));
        gst_message_unref(message);
        return;
    }
    auto* context = static_cast<GstContext*>(g_object_get_data(G_OBJECT(bin), kOverlayContextKey));
    const gchar* wanted = nullptr;
    if (context && GST_MESSAGE_TYPE(message) == GST_MESSAGE_NEED_CONTEXT &&
        gst_message_parse_context_type(message, &wanted) &&
        gst_context_has_context_type(context, wanted)) {
        gst_element_set_context(GST_ELEMENT(GST_MESSAGE_SRC(message)), context);
        gst_message_unref(message);
        return;
    }
    auto* base = static_cast<GstBinClass*>(g_type_class_peek(GST_TYPE_BIN));
    base->handle_message(bin, message);
}

GstStateChangeReturn CallCloser(GstElement* bin, GstStateChange change) {
    auto* closer = static_cast<OverlayCloser*>(g_object_get_data(G_OBJECT(bin), kOverlayCloserKey));
    if (change == GST_STATE_CHANGE_READY_TO_NULL && closer) (*closer)();
    auto* base = static_cast<GstElementClass*>(g_type_class_peek(GST_TYPE_BIN));
    return base->change_state(bin, change);
}

// A bin that gives its sink the window under kWindowKey, and calls what is under kOverlayCloserKey
// before it stops.
GType OverlayBinType() {
    static const GType type = g_type_register_static_simple(
        GST_TYPE_BIN, "TarnOverlayBin", sizeof(GstBinClass),
        [](gpointer type_class, gpointer) {
            static_cast<GstBinClass*>(type_class)->handle_message = AnswerOrForward;
            static_cast<GstElementClass*>(type_class)->change_state = CallCloser;
        },
        sizeof(GstBin), nullptr, static_cast<GTypeFlags>(0));
    return type;
}

GstElementPtr MakeOverlayBin(const char* name) {
    return OwnElement(g_object_new(OverlayBinType(), "name", name, nullptr));
}

// Not at once: the caller may hold locks of the sink.
void PostWindowLost(GstElement* bin) {
    gst_element_call_async(
        bin,
        [](GstElement* element, gpointer) {
            GST_ELEMENT_ERROR(element, RESOURCE, NOT_FOUND,
                              ("The window that shows the picture is gone."), (nullptr));
        },
        nullptr, nullptr);
}

}  // namespace

OverlayRenderer::~OverlayRenderer() {
    RemoveFromGraph();
}

GstElementPtr OverlayRenderer::Build(HRESULT* result) {
    *result = E_FAIL;
    GstElementPtr bin = MakeOverlayBin(Name());
    if (!OpenOverlay(bin.get()) || !Prepare(bin.get())) return nullptr;
    m_sink = nullptr;
    for (const char* factory : SinkFactories()) {
        m_sink = AddSink(bin.get(), factory);
        if (m_sink) return bin;
    }
    return nullptr;
}

GstElement* OverlayRenderer::AddSink(GstElement* bin, const char* factory) {
    GstElement* convert = AddConverter(bin, "videoconvert");
    GstElement* scale = AddConverter(bin, "videoscale");
    GstElement* sink = AddElement(bin, factory);
    if (convert && scale && sink) {
        gst_video_overlay_handle_events(GST_VIDEO_OVERLAY(sink), FALSE);
        g_object_set(sink, "force-aspect-ratio", TRUE, nullptr);
        if (gst_element_link_many(convert, scale, sink, nullptr) && CanStart(bin) &&
            AddGhostPad(bin, convert, "sink", "sink"))
            return sink;
    }
    for (GstElement* element : {convert, scale, sink})
        if (element) RemoveElement(bin, element);
    return nullptr;
}

bool OverlayRenderer::CanStart(GstElement* bin) {
    const bool started = gst_element_set_state(bin, GST_STATE_READY) != GST_STATE_CHANGE_FAILURE;
    gst_element_set_state(bin, GST_STATE_NULL);
    return started;
}

bool OverlayRenderer::OpenOverlay(GstElement* bin) {
    auto overlay = OverlayWindow::Open([bin] { PostWindowLost(bin); });
    if (!overlay) return false;
    g_object_set_data(G_OBJECT(bin), kWindowKey, GSIZE_TO_POINTER(overlay->Id()));
    m_overlay = std::move(overlay);
    return true;
}

HRESULT OverlayRenderer::SetVideoWindow(IVideoWindow* window, const VideoRect* rectangle) {
    if (!Filter()) return E_HANDLE;
    m_window = window;
    SetArea(rectangle);
    if (window) return MoveOverlay();
    m_overlay->Hide();
    return S_OK;
}

HRESULT OverlayRenderer::SetPosition(IVideoWindow* window, const VideoRect* rectangle) {
    if (!Filter()) return E_HANDLE;
    if (!window) return E_POINTER;
    if (window != m_window) return E_INVALIDARG;
    SetArea(rectangle);
    return MoveOverlay();
}

HRESULT OverlayRenderer::RepaintVideo(IVideoWindow* window, IVideoPainter*) {
    if (!Filter()) return E_HANDLE;
    if (!window) return E_POINTER;
    return window == m_window ? MoveOverlay() : E_INVALIDARG;
}

HRESULT OverlayRenderer::MoveOverlay() {
    if (!m_window) return S_OK;
    const uintptr_t parent = m_window->NativeHandle();
    if (parent == 0) return E_INVALIDARG;
    const VideoRect area = Area(*m_window);
    if (!m_overlay->MoveInto(parent, area) &&
        (!ReplaceLostOverlay() || !m_overlay->MoveInto(parent, area)))
        return E_FAIL;
    Refresh(area);
    return S_OK;
}

// Ours went down with an earlier parent. A sink that still runs can't be helped: it has windows of
// its own in the lost one.
bool OverlayRenderer::ReplaceLostOverlay() {
    if (m_overlay->Exists() || GST_STATE(Filter()) > GST_STATE_READY) return false;
    gst_element_set_state(Filter(), GST_STATE_NULL);
    if (!OpenOverlay(Filter())) return false;
    gst_video_overlay_set_window_handle(GST_VIDEO_OVERLAY(m_sink), m_overlay->Id());
    return gst_element_sync_state_with_parent(Filter());
}

void OverlayRenderer::Refresh(const VideoRect&) {
    // Before its first picture a sink has nothing to show again, and may just be making what it
    // draws with.
    if (GST_STATE(m_sink) >= GST_STATE_PAUSED) gst_video_overlay_expose(GST_VIDEO_OVERLAY(m_sink));
}

HRESULT OverlayRenderer::ReadPicture(const PictureReader& reader) const {
    if (!Filter()) return E_HANDLE;
    return reader ? S_FALSE : E_POINTER;
}

}  // namespace tarn

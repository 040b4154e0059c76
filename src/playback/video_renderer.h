// video_renderer.h - puts the picture of a graph into a window.
//
// Three forms, tried in the order CEVR, CVMR9, CVMR7: OpenGL, the X overlay, and frames that the
// window's owner paints by itself, which works everywhere. Main thread only, but for
// IVideoWindow::PictureChanged and ReadPicture; a renderer that its graph leaves with may end in
// another thread.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>

#include "playback/gst_forward.h"
#include "playback/result_codes.h"

namespace tarn {

// Device pixels; right and bottom are the first ones outside.
struct VideoRect {
    int32_t left = 0, top = 0, right = 0, bottom = 0;
    bool operator==(const VideoRect&) const = default;
};

// A picture in memory, rows from the top, 4 bytes a pixel: blue, green, red, unused. Good during
// the call that hands it over.
struct VideoPicture {
    const uint8_t* pixels = nullptr;
    int32_t width = 0, height = 0;
    int32_t stride = 0;                         // bytes from row to row
    int32_t aspectWidth = 1, aspectHeight = 1;  // of one pixel
    int64_t time = 0;                           // in the stream, 100-nanosecond units
};
using PictureReader = std::function<void(const VideoPicture&)>;

// Paints into a window; the window system's own drawing.
class IVideoPainter {
public:
    virtual ~IVideoPainter() = default;
    // The whole picture, scaled to the target, which has its shape already.
    virtual void DrawPicture(const VideoPicture& picture, const VideoRect& target) = 0;
    // The bars beside or above and below a picture, and the whole area where there is none yet.
    virtual void FillBlack(const VideoRect& area) = 0;
};

// The window that shows the picture. It outlives the renderer that it was given to, or is taken
// away from it first.
class IVideoWindow {
public:
    virtual ~IVideoWindow() = default;
    // The X window, 0 where there is none: then nothing but painted frames can be shown in it.
    virtual uintptr_t NativeHandle() const = 0;
    virtual VideoRect ClientRect() const = 0;
    // A new picture waits to be painted. From a streaming thread: post and return, and call
    // nothing of the renderer but ReadPicture. Painting is the main thread's.
    virtual void PictureChanged() = 0;
};

// Calls answer E_HANDLE while the renderer is in no graph, E_POINTER where an argument is missing.
class CVideoRenderer {
public:
    // Takes the renderer out of its graph, which has to be stopped by then.
    virtual ~CVideoRenderer() = default;
    CVideoRenderer(const CVideoRenderer&) = delete;
    CVideoRenderer& operator=(const CVideoRenderer&) = delete;

    // Makes the sink and puts it into the graph, a stopped pipeline, under the renderer's name. A
    // failure (no display, no plug-in, no OpenGL) leaves the graph as it was.
    virtual HRESULT AddToGraph(GstElement* graph) = 0;
    // Shows the picture there: in the whole client rectangle, also after it changed, where
    // `rectangle` is null. Until then nothing is shown, and no window of its own ever opens. A null
    // window ends it: none of its calls is running or will come once this has returned.
    virtual HRESULT SetVideoWindow(IVideoWindow* window, const VideoRect* rectangle) = 0;
    // Takes the renderer out of the graph again when nothing was connected to it.
    virtual HRESULT FinishGraph(GstElement* graph) = 0;
    // To be called as well when the window has got another size.
    virtual HRESULT SetPosition(IVideoWindow* window, const VideoRect* rectangle) = 0;
    // Paints the present picture, its shape kept, between black bars. `context` may be null where
    // the form paints by itself: in CEVR and CVMR9.
    virtual HRESULT RepaintVideo(IVideoWindow* window, IVideoPainter* context) = 0;
    virtual HRESULT DisplayModeChanged() = 0;

    // "EVR", "VMR-9", "VMR-7".
    virtual const char* Name() const = 0;
    // A bin with the pad "sink", which takes any raw video; null before AddToGraph and after a
    // FinishGraph that removed it.
    virtual GstElement* Filter() const = 0;
    // Hands over the present picture, with or without a window. S_FALSE where there is none yet,
    // and in the forms that don't hold it in memory: all but CVMR7.
    virtual HRESULT ReadPicture(const PictureReader& reader) const = 0;

protected:
    CVideoRenderer() = default;
};

enum class VideoRendererForm { CEVR, CVMR9, CVMR7 };
inline constexpr VideoRendererForm kAllRendererForms[] = {
    VideoRendererForm::CEVR, VideoRendererForm::CVMR9, VideoRendererForm::CVMR7};

// The first of the forms, in the order given, that could be added to the graph. Null with the last
// failure in `result` when none could. Where windows are no X windows (a Wayland session) the only
// form that can show a picture is CVMR7.
std::unique_ptr<CVideoRenderer> CreateVideoRenderer(
    GstElement* graph, HRESULT* result,
    std::span<const VideoRendererForm> forms = kAllRendererForms);

}  // namespace tarn

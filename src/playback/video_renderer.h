// video_renderer.h - puts the picture of a graph into a window.
//
// Three forms, tried in the order CEVR, CVMR9, CVMR7: OpenGL, the X overlay, and frames that the
// window's owner paints by itself, which works everywhere. Main thread only, but for
// IVideoWindow::PictureChanged.
#pragma once

#include <cstdint>
#include <memory>

#include "playback/result_codes.h"

typedef struct _GstElement GstElement;

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
    int64_t time = 0;                           // 100-nanosecond units
};

// Paints a picture into a rectangle of a window; the window system's own drawing.
class IVideoPainter {
public:
    virtual ~IVideoPainter() = default;
    virtual void DrawPicture(const VideoPicture& picture, const VideoRect& target) = 0;
};

// The window that shows the picture. It outlives the renderer that it was given to.
class IVideoWindow {
public:
    virtual ~IVideoWindow() = default;
    // The X window, 0 where there is none: then nothing but painted frames can be shown in it.
    virtual uintptr_t NativeHandle() const = 0;
    virtual VideoRect ClientRect() const = 0;
    // A new picture waits to be painted. From a streaming thread: post, don't paint.
    virtual void PictureChanged() = 0;
};

class CVideoRenderer {
public:
    virtual ~CVideoRenderer() = default;
    CVideoRenderer(const CVideoRenderer&) = delete;
    CVideoRenderer& operator=(const CVideoRenderer&) = delete;

    // Makes the sink and puts it into the graph, a pipeline, under the renderer's name. A failure
    // leaves the graph as it was.
    virtual HRESULT AddToGraph(GstElement* graph) = 0;
    // The whole client rectangle where `rectangle` is null. Until then nothing is shown, and no
    // window of its own ever opens.
    virtual HRESULT SetVideoWindow(IVideoWindow* window, const VideoRect* rectangle) = 0;
    // Takes the renderer out of the graph again when nothing was connected to it.
    virtual HRESULT FinishGraph(GstElement* graph) = 0;
    virtual HRESULT SetPosition(IVideoWindow* window, const VideoRect* rectangle) = 0;
    // Paints the present picture. `context` may be null where the form paints by itself.
    virtual HRESULT RepaintVideo(IVideoWindow* window, IVideoPainter* context) = 0;
    virtual HRESULT DisplayModeChanged() = 0;

    // "EVR", "VMR-9", "VMR-7".
    virtual const char* Name() const = 0;
    // A bin with the pad "sink"; null before AddToGraph and after a FinishGraph that removed it.
    virtual GstElement* Filter() const = 0;

protected:
    CVideoRenderer() = default;
};

}  // namespace tarn

// overlay_still.h - the last frame that came into a sink's bin, to be drawn at another size.
//
// For a sink that can't scale: while the graph is paused it has only a frame of the old size.
#pragma once

#include <memory>

#include "playback/gst_handles.h"
#include "playback/overlay_window.h"

namespace tarn {

class OverlayStill {
public:
    // Follows the frames that pass the pad, until the pad is gone.
    explicit OverlayStill(GstPad* pad);
    // Letterboxed into a window of that size. Nothing where no frame has come yet.
    void Draw(OverlayWindow& window, int32_t width, int32_t height) const;

private:
    struct Frame;
    std::shared_ptr<Frame> m_frame;  // shared with the pad's streaming thread
};

}  // namespace tarn

// bin_renderer.h - what the renderers share: a bin under the renderer's name, in a graph and out
// of it again.
#pragma once

#include <optional>

#include "playback/gst_handles.h"
#include "playback/video_renderer.h"

namespace tarn {

// A "videoconvert" or "videoscale" that works on several cores; null where there is none.
[[nodiscard]] GstElement* AddConverter(GstElement* bin, const char* factory);

class BinRenderer : public CVideoRenderer {
public:
    ~BinRenderer() override;

    HRESULT AddToGraph(GstElement* graph) override;
    HRESULT FinishGraph(GstElement* graph) override;
    GstElement* Filter() const override { return m_bin.get(); }

protected:
    // A bin with elements in it and the ghost pad "sink", stopped; null with a failure code.
    virtual GstElementPtr Build(HRESULT* result) = 0;
    // Stops the bin and takes it out of its graph. A form calls it in its own destructor, so that
    // the sink is gone before what it draws into.
    void RemoveFromGraph();

    // Where the picture goes: the rectangle that was given last, else the window's present one.
    VideoRect Area(const IVideoWindow& window) const {
        return m_rectangle ? *m_rectangle : window.ClientRect();
    }
    void SetArea(const VideoRect* rectangle) {
        m_rectangle = rectangle ? std::optional(*rectangle) : std::nullopt;
    }

private:
    GstElementPtr m_bin;
    std::optional<VideoRect> m_rectangle;
};

}  // namespace tarn

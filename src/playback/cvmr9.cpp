#include "playback/cvmr9.h"

#include <cstring>

namespace tarn {
namespace {

const char kVideoOverlay[] = "xvimagesink";
const char kPlainImages[] = "ximagesink";

}  // namespace

std::span<const char* const> CVMR9::SinkFactories() const {
    static constexpr const char* kFactories[] = {kVideoOverlay, kPlainImages};
    return kFactories;
}

HRESULT CVMR9::AddToGraph(GstElement* graph) {
    const HRESULT result = OverlayRenderer::AddToGraph(graph);
    if (Failed(result)) return result;
    m_still.reset();
    if (std::strcmp(GST_OBJECT_NAME(gst_element_get_factory(Sink())), kPlainImages) == 0) {
        const GstPadPtr input(gst_element_get_static_pad(Filter(), "sink"));
        m_still.emplace(input.get());
    }
    return result;
}

// Plain images come in the size of the window, the next one at the latest.
void CVMR9::Refresh(const VideoRect& area) {
    OverlayRenderer::Refresh(area);
    if (m_still) m_still->Draw(Overlay(), area.right - area.left, area.bottom - area.top);
}

HRESULT CVMR9::DisplayModeChanged() {
    return Filter() ? MoveOverlay() : E_HANDLE;
}

}  // namespace tarn

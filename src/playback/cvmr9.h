// cvmr9.h - the picture by the X server: its video overlay, or else plain images.
#pragma once

#include <optional>

#include "playback/overlay_renderer.h"
#include "playback/overlay_still.h"

namespace tarn {

class CVMR9 final : public OverlayRenderer {
public:
    HRESULT AddToGraph(GstElement* graph) override;
    HRESULT DisplayModeChanged() override;
    const char* Name() const override { return "VMR-9"; }

private:
    std::span<const char* const> SinkFactories() const override;
    bool Prepare(GstElement*) override { return true; }
    void Refresh(const VideoRect& area) override;

    std::optional<OverlayStill> m_still;  // where the sink can't scale
};

}  // namespace tarn

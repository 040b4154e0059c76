// cevr.h - the picture by OpenGL, on the X server.
#pragma once

#include "playback/overlay_renderer.h"

namespace tarn {

class CEVR final : public OverlayRenderer {
public:
    // OpenGL follows the window by itself.
    HRESULT DisplayModeChanged() override { return Filter() ? S_OK : E_HANDLE; }
    const char* Name() const override { return "EVR"; }

private:
    void Refresh(const VideoRect& area) override;
    std::span<const char* const> SinkFactories() const override;
    bool Prepare(GstElement* bin) override;
    // Prepare has seen to it. A sink that is only opened and closed again leaks its display.
    bool CanStart(GstElement*) override { return true; }
};

}  // namespace tarn

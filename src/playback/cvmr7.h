// cvmr7.h - the renderer that works everywhere: it keeps the frame that is due in memory, and the
// window's owner paints it.
#pragma once

#include <memory>

#include "playback/bin_renderer.h"

namespace tarn {

class CVMR7 final : public BinRenderer {
public:
    ~CVMR7() override;

    HRESULT SetVideoWindow(IVideoWindow* window, const VideoRect* rectangle) override;
    HRESULT SetPosition(IVideoWindow* window, const VideoRect* rectangle) override;
    HRESULT RepaintVideo(IVideoWindow* window, IVideoPainter* context) override;
    HRESULT DisplayModeChanged() override;
    const char* Name() const override { return "VMR-7"; }
    HRESULT ReadPicture(const PictureReader& reader) const override;

private:
    class LatestFrame;

    GstElementPtr Build(HRESULT* result) override;

    std::shared_ptr<LatestFrame> m_latest;  // shared with the sink
};

}  // namespace tarn

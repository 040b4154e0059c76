// overlay_renderer.h - what CEVR and CVMR9 share: a sink that draws into an X window by itself.
#pragma once

#include <functional>
#include <memory>
#include <span>

#include "playback/bin_renderer.h"
#include "playback/overlay_window.h"

namespace tarn {

// What a form's Prepare may put on the bin under that key, to be called each time before the sink
// closes what it draws into.
using OverlayCloser = std::function<void()>;
inline constexpr char kOverlayCloserKey[] = "tarn-overlay-closer";
// And the GstContext that elements of the bin get when they ask for its kind.
inline constexpr char kOverlayContextKey[] = "tarn-overlay-context";

class OverlayRenderer : public BinRenderer {
public:
    ~OverlayRenderer() override;

    HRESULT SetVideoWindow(IVideoWindow* window, const VideoRect* rectangle) override;
    HRESULT SetPosition(IVideoWindow* window, const VideoRect* rectangle) override;
    HRESULT RepaintVideo(IVideoWindow* window, IVideoPainter* context) override;
    HRESULT ReadPicture(const PictureReader& reader) const override;

protected:
    // The sinks to try, in this order.
    virtual std::span<const char* const> SinkFactories() const = 0;
    // Gives the still empty bin what the sinks need of the platform. False where it isn't there.
    [[nodiscard]] virtual bool Prepare(GstElement* bin) = 0;
    // Whether the sink in the bin, which is whole now, can draw here. It is stopped afterwards.
    [[nodiscard]] virtual bool CanStart(GstElement* bin);
    // Puts the present picture into the overlay again, which has that area now.
    virtual void Refresh(const VideoRect& area);

    // Into its area of the present window; nothing where there is none.
    HRESULT MoveOverlay();
    GstElement* Sink() const { return m_sink; }
    OverlayWindow& Overlay() const { return *m_overlay; }

private:
    GstElementPtr Build(HRESULT* result) override;
    // Converters and the sink; null, and the bin is empty again, where it isn't there or can't
    // start.
    GstElement* AddSink(GstElement* bin, const char* factory);
    [[nodiscard]] bool OpenOverlay(GstElement* bin);
    [[nodiscard]] bool ReplaceLostOverlay();

    std::unique_ptr<OverlayWindow> m_overlay;
    GstElement* m_sink = nullptr;  // in the bin
    IVideoWindow* m_window = nullptr;
};

}  // namespace tarn

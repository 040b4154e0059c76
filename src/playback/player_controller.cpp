#include "playback/player_controller.h"

#include <algorithm>
#include <utility>

#include "base/xp_file.h"
#include "effects/wave_header.h"
#include "playback/audio_renderer.h"
#include "playback/graph_worker.h"
#include "playback/movie_graph.h"

namespace tarn {
namespace {

// A button may keep its hand that long.
constexpr int kStateWaitMs = 100;

const Reason kScreenless = {ReasonCode::kNoScreen, ReasonSide::kDevice, {}, {}};

}  // namespace

PlayerController::~PlayerController() {
    PlayerController::ReleaseGraph();
}

HRESULT PlayerController::Open(const std::string& path, INotifyWindow* notifyWindow,
                               uint32_t notifyMessage, intptr_t notifyParam,
                               IVideoWindow* videoWindow, const VideoRect* videoRect) {
    ReleaseGraph();
    bool wave = false;
    XpFile file;
    if (const Reason reason = OpenAndLookForWave(path, &file, &wave)) return Fail(E_FAIL, reason);
    HRESULT result = CreateGraph();
    if (!Failed(result)) result = RenderFile(path, !wave);
    if (!Failed(result) && videoWindow && m_pRenderer)
        result = SetVideoWindow(videoWindow, videoRect);
    if (Failed(result)) {
        ReleaseGraph();
        return result;
    }
    m_hNotifyWindow = notifyWindow;
    if (notifyWindow) SetNotifyWindow(notifyWindow, notifyMessage, notifyParam);
    return S_OK;
}

HRESULT PlayerController::ReleaseGraph() {
    m_state = kStopped;
    m_hNotifyWindow = nullptr;
    m_hVideoWindow = nullptr;
    m_soundDevice = nullptr;
    m_soundRate = 0;
    if (m_pRenderer) {
        static_cast<void>(m_pRenderer->SetVideoWindow(nullptr, nullptr));
        m_companion = std::shared_ptr<CVideoRenderer>(std::move(m_pRenderer));
    }
    return DShowHelper::ReleaseGraph();
}

HRESULT PlayerController::CreateRenderer() {
    if (!m_pGraph) return Fail(E_HANDLE);
    m_untried = m_devices.renderers;
    return NextRenderer();
}

// The next form that can be had here.
HRESULT PlayerController::NextRenderer() {
    HRESULT result = E_FAIL;
    m_pRenderer.reset();
    while (!m_pRenderer && !m_untried.empty() && result != E_OUTOFMEMORY) {
        m_pRenderer = CreateVideoRenderer(m_pGraph, &result, m_untried.first(1));
        m_untried = m_untried.subspan(1);
    }
    return m_pRenderer ? result : Fail(result, kScreenless);
}

// Puts the next form into the place of the present one, in a graph that was not started yet.
bool PlayerController::ReplaceRenderer() {
    const GstPadPtr screen(gst_element_get_static_pad(m_pRenderer->Filter(), "sink"));
    const GstPadPtr picture(gst_pad_get_peer(screen.get()));
    if (!picture || m_untried.empty()) return false;
    gst_pad_unlink(picture.get(), screen.get());
    if (Failed(NextRenderer())) return false;
    const GstPadPtr next(gst_element_get_static_pad(m_pRenderer->Filter(), "sink"));
    return gst_pad_link(picture.get(), next.get()) == GST_PAD_LINK_OK;
}

HRESULT PlayerController::RenderFile(const std::string& path, bool isMovie) {
    if (!m_pGraph) return Fail(E_HANDLE);
    m_path = path;
    if (isMovie && Failed(CreateRenderer())) return E_FAIL;
    DecodedPins pins;
    const Reason reason =
        isMovie ? AddMovieSource(m_pGraph, path, SourceTracks::kAll, m_devices.decoders, &pins)
                : AddWaveSource(m_pGraph, path, &pins);
    if (reason) return Fail(E_FAIL, reason);
    m_duration = pins.duration;
    m_soundRate = pins.soundRate;
    if (pins.audio && Failed(RenderSound(pins.audio.get()))) return E_FAIL;
    return isMovie ? RenderPicture(pins.video.get()) : S_OK;
}

HRESULT PlayerController::RenderPicture(GstPad* pin) {
    if (pin) {
        const GstPadPtr screen(gst_element_get_static_pad(m_pRenderer->Filter(), "sink"));
        if (gst_pad_link(pin, screen.get()) != GST_PAD_LINK_OK) return Fail(E_FAIL, kScreenless);
        const GstElementPtr decoder(gst_bin_get_by_name(GST_BIN(m_pGraph), kVideoDecoderName));
        Worker().SetGate(PictureGate::Attach(decoder.get()));
    }
    const HRESULT result = m_pRenderer->FinishGraph(m_pGraph);
    if (!m_pRenderer->Filter()) m_pRenderer.reset();  // a clip without a picture
    return Failed(result) ? Fail(result) : result;
}

HRESULT PlayerController::RenderSound(GstPad* pin) {
    const GstElementPtr device = MakeAudioRenderer(m_devices.audioSink);
    if (!device || !gst_bin_add(GST_BIN(m_pGraph), device.get()))
        return Fail(E_FAIL, MissingPart(kAudioRendererParts));
    const GstPadPtr input(gst_element_get_static_pad(device.get(), kAudioRendererPin));
    if (gst_pad_link(pin, input.get()) != GST_PAD_LINK_OK)
        return Fail(E_FAIL, {ReasonCode::kSoundNoDecoder, ReasonSide::kDevice, {}, {}});
    m_soundDevice = device.get();
    return S_OK;
}

HRESULT PlayerController::ReadState(HRESULT result, int waitMs) {
    return Failed(result) ? result : GetState(waitMs, &m_state);
}

HRESULT PlayerController::Run() {
    // All has been played: once more from the start.
    if (m_pGraph && HasEnded()) SetPositions(0, -1);
    return ReadState(SetState(kRunning), kStateWaitMs);
}

HRESULT PlayerController::Pause() {
    return ReadState(SetState(kPaused), kStateWaitMs);
}

HRESULT PlayerController::Seek(int64_t position, uint32_t flags, int64_t stop, uint32_t stopFlags) {
    if (!m_pGraph) return Fail(E_HANDLE);
    if (flags > kRelativePositioning || stopFlags > kAbsolutePositioning) return Fail(E_INVALIDARG);
    int64_t now = 0;
    if (flags != kAbsolutePositioning) GetPosition(&now);
    const int64_t target = flags == kAbsolutePositioning ? position
                           : flags == kRelativePositioning
                               ? now + std::clamp(position, -now, m_duration)
                               : now;
    return ReadState(SetPositions(target, stopFlags == kAbsolutePositioning ? stop : -1), 0);
}

HRESULT PlayerController::SetVideoWindow(IVideoWindow* window, const VideoRect* rectangle) {
    if (!m_pGraph) return Fail(E_HANDLE);
    m_hVideoWindow = window;
    if (!m_pRenderer) return S_FALSE;
    HRESULT result = m_pRenderer->SetVideoWindow(window, rectangle);
    while (Failed(result) && window && !IsStarted() && ReplaceRenderer())
        result = m_pRenderer->SetVideoWindow(window, rectangle);
    return Failed(result) ? Fail(result, kScreenless) : result;
}

HRESULT PlayerController::ProcessEvents() {
    if (!m_pGraph) return Fail(E_HANDLE);
    for (GraphEvent event{}; NextEvent(&event);) {
        if (m_pNotify) m_pNotify(event);
        if (!m_pGraph) return E_ABORT;  // let go in the callback
        if (event.code == EC_SEEK_COMPLETE) continue;
        // What has come to its end shows its last picture and waits for a seek.
        SetState(kPaused);
        m_state = kStopped;
        return event.code == EC_COMPLETE ? S_OK : E_ABORT;
    }
    return S_FALSE;
}

}  // namespace tarn

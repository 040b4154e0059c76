// player_controller.h - a graph that plays a clip: picture into a window, sound to the device.
//
// Main thread only. Opening builds the graph and leaves it stopped; what is shown first comes with
// Pause or Run.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>

#include "playback/decoder_mode.h"
#include "playback/dshow_helper.h"
#include "playback/video_renderer.h"

namespace tarn {

enum PlayerState : int32_t { kStopped = 0, kPaused = 1, kRunning = 2 };

// How a seek takes its times.
enum SeekingFlags : uint32_t {
    kNoPositioning = 0,
    kAbsolutePositioning = 1,
    kRelativePositioning = 2
};

// What the platform offers is taken unless this says otherwise.
struct PlayerDevices {
    std::string
        audioSink;  // factory of the sound sink; empty: the default device; "fakesink": none
    std::span<const VideoRendererForm> renderers = kAllRendererForms;
    DecoderMode decoders = DecoderMode::kSoftware;
};

class PlayerController : public DShowHelper {
public:
    explicit PlayerController(PlayerDevices devices = {}) : m_devices(std::move(devices)) {}
    ~PlayerController() override;

    // Takes another clip; one that is open is let go first, and with it its place, its volume and
    // what the sound effect was told: the caller gives them to the new one. Windows may be null and
    // come later. After a failure there is no graph, and GetReason says why. What is in the file
    // decides how it is played, not its name. The one call that reads in the caller's thread: a
    // medium that never answers holds it. Who can't wait has TarnPlayerController::CheckMovieFile
    // look first, in a thread that can be left behind.
    virtual HRESULT Open(const std::string& path, INotifyWindow* notifyWindow,
                         uint32_t notifyMessage, intptr_t notifyParam, IVideoWindow* videoWindow,
                         const VideoRect* videoRect);
    // 100-nanosecond units, held within the clip. A request: it returns at once, and an event
    // EC_SEEK_COMPLETE tells when the picture of that time stands, accurate to the picture and the
    // sample. A request that comes before replaces it; while many come, pictures on the way to
    // theirs are shown. GetState waits instead. E_INVALIDARG for flags that it does not know and a
    // stop before the position.
    virtual HRESULT Seek(int64_t position, uint32_t flags, int64_t stop, uint32_t stopFlags);

    HRESULT ReleaseGraph() override;
    HRESULT CreateRenderer();
    HRESULT RenderFile(const std::string& path, bool isMovie);

    // They wait a tenth of a second at most, so that mostly the graph has obeyed.
    HRESULT Run();
    HRESULT Pause();
    // Waits for all that was asked for, so long at most: a change of state, the picture of a seek.
    // VFW_S_STATE_INTERMEDIATE when it is still under way.
    using DShowHelper::GetState;
    int32_t State() const { return m_state; }

    // A renderer that can't show pictures in that window (one of another window system than X has
    // no handle) makes room for the next form, as long as the graph was not started yet.
    HRESULT SetVideoWindow(IVideoWindow* window, const VideoRect* rectangle);
    CVideoRenderer* Renderer() const { return m_pRenderer.get(); }  // null without a picture
    // What SoundVolumeController opens, as long as the clip is open; null for one without sound.
    GstElement* SoundDevice() const { return m_soundDevice; }

    // Hears of each event in ProcessEvents.
    using EventCallback = std::function<void(const GraphEvent&)>;
    void SetEventCallback(EventCallback callback) { m_pNotify = std::move(callback); }
    // S_OK at the end of the clip, E_ABORT after an error or when the user closed the window,
    // S_FALSE when no event is left.
    HRESULT ProcessEvents();

protected:
    int32_t m_soundRate = 0;  // Hz, as the clip says; 0: it doesn't
    int32_t m_state = kStopped;
    std::unique_ptr<CVideoRenderer> m_pRenderer;
    EventCallback m_pNotify;
    INotifyWindow* m_hNotifyWindow = nullptr;
    IVideoWindow* m_hVideoWindow = nullptr;

private:
    HRESULT NextRenderer();
    bool ReplaceRenderer();
    HRESULT RenderPicture(GstPad* pin);
    HRESULT RenderSound(GstPad* pin);
    HRESULT ReadState(HRESULT result, int waitMs);

    PlayerDevices m_devices;
    std::span<const VideoRendererForm> m_untried;  // after the present one
    GstElement* m_soundDevice = nullptr;           // of the graph
};

}  // namespace tarn

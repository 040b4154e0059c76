#include "playback/tarn_player_controller.h"

#include <algorithm>
#include <climits>

#include "base/xp_path.h"
#include "playback/audio_renderer.h"
#include "playback/gst_handles.h"
#include "playback/movie_graph.h"

namespace tarn {
namespace {

constexpr int64_t kUnitsPerMs = 10'000;

// Builds what a player needs in any case: no device is opened and nothing is decoded.
class GraphProbe : public DShowHelper {
public:
    bool Builds(const std::string& path, std::string* reason) {
        if (Failed(CreateGraph())) {
            *reason = m_reason;
            return false;
        }
        DecodedPins pins;
        const bool source = XpPath::HasExtension(path, ".mp4")
                                ? AddMovieSource(m_pGraph, path, SourceTracks::kAll,
                                                 DecoderMode::kSoftware, &pins, reason)
                                : AddWaveSource(m_pGraph, path, &pins, reason);
        return source && HasSinks(pins, reason);
    }

private:
    // The sinks that need neither a device nor a display.
    bool HasSinks(const DecodedPins& pins, std::string* reason) {
        *reason = "no plug-in of GStreamer is there for this: playing sound";
        if (pins.audio && !MakeAudioRenderer("fakesink")) return false;
        *reason = "there is nothing to show pictures with";
        HRESULT result = S_OK;
        if (pins.video && !CreateVideoRenderer(m_pGraph, &result, kPainted)) return false;
        reason->clear();
        return true;
    }

    static constexpr VideoRendererForm kPainted[] = {VideoRendererForm::CVMR7};
};

}  // namespace

TarnPlayerController::~TarnPlayerController() {
    TarnPlayerController::ReleaseGraph();
}

MovieFileStatus TarnPlayerController::CheckMovieFile(const std::string& path, bool strict,
                                                     std::string* reason) {
    const auto builds = [](const std::string& clip, std::string* why) {
        return GraphProbe().Builds(clip, why);
    };
    return tarn::CheckMovieFile(path, strict, builds, reason);
}

HRESULT TarnPlayerController::Open(const std::string& path, INotifyWindow* notifyWindow,
                                   uint32_t notifyMessage, intptr_t notifyParam,
                                   IVideoWindow* videoWindow, const VideoRect* videoRect) {
    return Open(path, false, notifyWindow, notifyMessage, notifyParam, videoWindow, videoRect,
                false);
}

HRESULT TarnPlayerController::Open(const std::string& path, bool withSound,
                                   INotifyWindow* notifyWindow, uint32_t notifyMessage,
                                   intptr_t notifyParam, IVideoWindow* videoWindow,
                                   const VideoRect* videoRect, bool strict) {
    ReleaseGraph();
    m_reason = "neither an .mp4 nor a .wav file";
    const bool movie = XpPath::HasExtension(path, ".mp4");
    if (!movie && !XpPath::HasExtension(path, ".wav")) return E_INVALIDARG;
    if (strict && tarn::CheckMovieFile(path, true, nullptr, &m_reason) != kFileUsable)
        return E_FAIL;
    const HRESULT result = PlayerController::Open(path, notifyWindow, notifyMessage, notifyParam,
                                                  movie ? videoWindow : nullptr, videoRect);
    // A clip that has no sound, or one that can't be treated, plays as it is.
    if (Failed(result) || !withSound || Failed(InsertSoundFilter())) return result;
    if (FindEffect() == S_OK && m_soundRate > 0) m_pEffect->SetSampleRate(m_soundRate);
    return result;
}

HRESULT TarnPlayerController::ReleaseGraph() {
    m_pEffect = nullptr;
    return PlayerController::ReleaseGraph();
}

HRESULT TarnPlayerController::Seek(int64_t position, uint32_t flags, int64_t stop,
                                   uint32_t stopFlags) {
    const HRESULT result = PlayerController::Seek(position, flags, stop, stopFlags);
    int64_t now = 0;
    if (!Failed(result) && FindEffect() == S_OK && GetPosition(&now) == S_OK)
        m_pEffect->SetPosition(
            static_cast<int32_t>(std::min<int64_t>(now / kUnitsPerMs, INT32_MAX)));
    return result;
}

HRESULT TarnPlayerController::FindEffect() {
    if (!m_pGraph) return E_HANDLE;
    if (!m_pEffect) m_pEffect = QuerySoundEffect(m_pSoundFilter);
    return m_pEffect ? S_OK : S_FALSE;
}

HRESULT TarnPlayerController::SetInPoint(int32_t ms) {
    const HRESULT found = FindEffect();
    return found == S_OK ? m_pEffect->SetInPoint(ms) : found;
}

HRESULT TarnPlayerController::SetOutPoint(int32_t ms) {
    const HRESULT found = FindEffect();
    return found == S_OK ? m_pEffect->SetOutPoint(ms) : found;
}

HRESULT TarnPlayerController::SetEffects(const AMPEffectSettings& settings) {
    const HRESULT found = FindEffect();
    return found == S_OK ? m_pEffect->SetEffects(&settings) : found;
}

}  // namespace tarn

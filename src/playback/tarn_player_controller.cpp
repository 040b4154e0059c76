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
    Reason Build(const std::string& path) {
        if (Failed(CreateGraph())) return GetReason();
        DecodedPins pins;
        const Reason reason =
            XpPath::HasExtension(path, ".mp4")
                ? AddMovieSource(m_pGraph, path, SourceTracks::kAll, DecoderMode::kSoftware, &pins)
                : AddWaveSource(m_pGraph, path, &pins);
        if (reason) return reason;
        // Of the sinks, those that need neither a device nor a display.
        static constexpr VideoRendererForm kPainted[] = {VideoRendererForm::CVMR7};
        if (pins.audio && !MakeAudioRenderer("fakesink")) return MissingPart(kAudioRendererParts);
        HRESULT result = S_OK;
        if (pins.video && !CreateVideoRenderer(m_pGraph, &result, kPainted))
            return {ReasonCode::kNoScreen, ReasonSide::kDevice, {}, {}};
        return {};
    }
};

}  // namespace

TarnPlayerController::~TarnPlayerController() {
    TarnPlayerController::ReleaseGraph();
}

MovieFileStatus TarnPlayerController::CheckMovieFile(const std::string& path, bool strict,
                                                     Reason* reason) {
    const auto builds = [](const std::string& clip) { return GraphProbe().Build(clip); };
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
    const bool movie = XpPath::HasExtension(path, ".mp4");
    if (!movie && !XpPath::HasExtension(path, ".wav"))
        return Fail(E_INVALIDARG, {ReasonCode::kNotMovieOrWave, ReasonSide::kSource, path, {}});
    Reason reason;
    if (strict && tarn::CheckMovieFile(path, true, nullptr, &reason) != kFileUsable)
        return Fail(E_FAIL, reason);
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
    if (!m_pGraph) return Fail(E_HANDLE);
    if (!m_pEffect) m_pEffect = QuerySoundEffect(m_pSoundFilter);
    return m_pEffect ? S_OK : S_FALSE;
}

template <typename Call>
HRESULT TarnPlayerController::Tell(Call call) {
    HRESULT result = FindEffect();
    if (result == S_OK) result = call();
    return Failed(result) ? Fail(result) : result;
}

HRESULT TarnPlayerController::SetInPoint(int32_t ms) {
    return Tell([&] { return m_pEffect->SetInPoint(ms); });
}

HRESULT TarnPlayerController::SetOutPoint(int32_t ms) {
    return Tell([&] { return m_pEffect->SetOutPoint(ms); });
}

HRESULT TarnPlayerController::SetEffects(const AMPEffectSettings& settings) {
    return Tell([&] { return m_pEffect->SetEffects(&settings); });
}

}  // namespace tarn

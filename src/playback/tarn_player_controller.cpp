#include "playback/tarn_player_controller.h"

#include <algorithm>
#include <climits>

#include "base/xp_file.h"
#include "base/xp_path.h"
#include "effects/wave_header.h"
#include "playback/audio_renderer.h"
#include "playback/graph_worker.h"
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
        bool wave = false;
        XpFile file;
        Reason reason = OpenAndLookForWave(path, &file, &wave);
        if (!reason && wave) reason = AddWaveSource(m_pGraph, path, &pins);
        if (!reason && !wave)
            reason =
                AddMovieSource(m_pGraph, path, SourceTracks::kAll, DecoderMode::kSoftware, &pins);
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
    if (!XpPath::HasExtension(path, ".mp4") && !XpPath::HasExtension(path, ".wav"))
        return Fail(E_INVALIDARG, {ReasonCode::kNotMovieOrWave, ReasonSide::kSource, path, {}});
    Reason reason;
    if (strict && tarn::CheckMovieFile(path, true, nullptr, &reason) != kFileUsable)
        return Fail(E_FAIL, reason);
    const HRESULT result = PlayerController::Open(path, notifyWindow, notifyMessage, notifyParam,
                                                  videoWindow, videoRect);
    if (Failed(result) || !withSound) return result;
    // A clip that has no sound, or one that can't be treated, plays as it is.
    if (Failed(InsertSoundFilter())) return Fail(S_OK, {});
    if (FindEffect() == S_OK && m_soundRate > 0) m_pEffect->SetSampleRate(m_soundRate);
    return result;
}

HRESULT TarnPlayerController::ReleaseGraph() {
    m_pEffect = nullptr;
    m_points = {};
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
    ClipPoints points = m_points;
    points.in = ms;
    return SetPoints(points);
}

HRESULT TarnPlayerController::SetOutPoint(int32_t ms) {
    ClipPoints points = m_points;
    points.out = ms;
    return SetPoints(points);
}

HRESULT TarnPlayerController::SetExactPoints(bool exact) {
    ClipPoints points = m_points;
    points.exact = exact;
    return SetPoints(points);
}

// What was asked for holds until the medium has answered.
HRESULT TarnPlayerController::SetPoints(const ClipPoints& points) {
    const auto tell = [](GstElement* filter, const ClipPoints& to) {
        ISoundEffect* effect = QuerySoundEffect(filter);
        const HRESULT result = effect->SetInPoint(to.in);
        return Failed(result) ? result : effect->SetOutPoint(to.out);
    };
    const HRESULT result = Tell([&] { return tell(m_pSoundFilter, points); });
    if (result != S_OK) return result;
    m_points = points;
    const std::shared_ptr<GstElement> filter(GST_ELEMENT(gst_object_ref(m_pSoundFilter)),
                                             GstDeleter());
    Worker().Run([tell, filter, points, path = m_path] {
        static_cast<void>(tell(filter.get(), FindSavePoints(path, points)));
    });
    return S_OK;
}

HRESULT TarnPlayerController::SetEffects(const AMPEffectSettings& settings) {
    return Tell([&] { return m_pEffect->SetEffects(&settings); });
}

HRESULT TarnPlayerController::GetLevels(SoundLevels* levels) {
    if (!levels) return Fail(E_POINTER);
    const HRESULT result = FindEffect();
    if (result == S_OK) *levels = m_pEffect->GetLevels();
    return result;
}

}  // namespace tarn

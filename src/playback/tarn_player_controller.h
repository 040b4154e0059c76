// tarn_player_controller.h - what the rest of the program sees of playback: a clip with its in and
// out point and its effects, as they will be saved.
#pragma once

#include <cstdint>
#include <string>

#include "effects/effect_settings.h"
#include "movie/facts/check_movie_file.h"
#include "playback/player_controller.h"
#include "playback/save_points.h"
#include "playback/sound_effect.h"

namespace tarn {

class TarnPlayerController : public PlayerController {
public:
    using PlayerController::PlayerController;
    ~TarnPlayerController() override;

    // Whether the clip can be opened and a graph can be built for it; `reason`, where given, gets
    // why not.
    static MovieFileStatus CheckMovieFile(const std::string& path, bool strict,
                                          Reason* reason = nullptr);

    // `withSound` puts the effects into the sound's way. `strict` refuses what can't be edited:
    // sound that is not stereo and WAV files of another form than 16 bits. A WAV file gets no
    // video window. E_INVALIDARG for a name that is neither .mp4 nor .wav.
    HRESULT Open(const std::string& path, bool withSound, INotifyWindow* notifyWindow,
                 uint32_t notifyMessage, intptr_t notifyParam, IVideoWindow* videoWindow,
                 const VideoRect* videoRect, bool strict);
    HRESULT Open(const std::string& path, INotifyWindow* notifyWindow, uint32_t notifyMessage,
                 intptr_t notifyParam, IVideoWindow* videoWindow,
                 const VideoRect* videoRect) override;
    HRESULT Seek(int64_t position, uint32_t flags, int64_t stop, uint32_t stopFlags) override;
    HRESULT ReleaseGraph() override;

    // Milliseconds of the clip. S_FALSE without the sound filter, E_HANDLE without a graph. The
    // fades lie where a save with these points has them: at those of the cut that can be made, or
    // with exact points at these themselves. That is looked up in the movie, so it may come a
    // moment later.
    HRESULT SetInPoint(int32_t ms);
    HRESULT SetOutPoint(int32_t ms);
    HRESULT SetExactPoints(bool exact);
    HRESULT SetEffects(const AMPEffectSettings& settings);
    // For a level meter, as often as it likes; nothing here waits.
    HRESULT GetLevels(SoundLevels* levels);

private:
    HRESULT FindEffect();
    HRESULT SetPoints(const ClipPoints& points);
    template <typename Call>
    HRESULT Tell(Call call);

    ISoundEffect* m_pEffect = nullptr;  // of m_pSoundFilter
    ClipPoints m_points;                // as asked for
};

}  // namespace tarn

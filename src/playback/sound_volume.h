// sound_volume.h - the loudness and the mute switch of the player's sound.
//
// They are those of the sound's stream in the system's mixer where its sink has one, else of the
// element "volume" before it. Main thread, but for the callback.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "playback/gst_forward.h"
#include "playback/result_codes.h"

namespace tarn {

constexpr int32_t kMixerLineChange = 0x3D0;     // another device; nothing to be done
constexpr int32_t kMixerControlChange = 0x3D1;  // volume or mute are to be read again

constexpr int32_t kMaxVolume = 65535;

// Calls answer E_HANDLE while nothing is open; playing goes on all the same.
class SoundVolumeController {
public:
    // Gets one of the codes above, after own changes too, from any thread: post and return.
    using Changed = std::function<void(int32_t code)>;

    SoundVolumeController();
    ~SoundVolumeController();
    SoundVolumeController(const SoundVolumeController&) = delete;
    SoundVolumeController& operator=(const SoundVolumeController&) = delete;

    // `audioRenderer` is a sink or a bin around one, and is kept. What was open before is closed.
    // E_FAIL where it has no volume.
    HRESULT OpenVolume(GstElement* audioRenderer, Changed changed = {});
    // No call is running or comes once this has returned.
    void CloseVolume();

    // 0 to kMaxVolume, as loud as a slider's way is long (the cube of it is the factor). More than
    // that, which a mixer may allow, reads as kMaxVolume.
    HRESULT GetVolume(int32_t* volume) const;
    HRESULT SetVolume(int32_t volume);
    HRESULT GetMute(bool* mute) const;
    HRESULT SetMute(bool mute);

private:
    class Control;
    std::unique_ptr<Control> m_control;
};

}  // namespace tarn

// sound_effect.h - how the player tells the sound-effect filter of its graph what to do.
//
// The filter treats the sound as a save does. Its element owns the interface, which is good as
// long as that element. One control thread (the main thread) makes the calls, at any time; none
// waits for the streaming thread. Values are copied at the call and heard from the next buffer on.
#pragma once

#include <cstdint>

#include "effects/effect_settings.h"
#include "playback/gst_forward.h"
#include "playback/result_codes.h"

namespace tarn {

// Of the last second that was played.
struct ChannelLevel {
    float peak = 0;        // a part of full scale
    uint32_t clipped = 0;  // samples at the limit: of 16 bits before the effects, of theirs after
};
struct SoundLevels {
    ChannelLevel before[2], after[2];  // left and right, as they come and as they are heard
};

// Each answers S_OK, or a failure that leaves everything as it was: E_INVALIDARG for a number out
// of range, E_POINTER without a record, E_OUTOFMEMORY.
class ISoundEffect {
public:
    // Hertz; what changed effects are prepared for until the stream says its own rate, which
    // always wins.
    virtual HRESULT SetSampleRate(int32_t rate) = 0;
    // While they are bypassed they go on hearing the music, so that afterwards they sound as in a
    // save; a switch takes 5 ms.
    virtual HRESULT SetEffects(const AMPEffectSettings* settings) = 0;
    // The range of the fade, in milliseconds of the clip. Out point 0: no end. From any thread.
    virtual HRESULT SetInPoint(int32_t ms) = 0;
    virtual HRESULT SetOutPoint(int32_t ms) = 0;
    // Where the playhead is after a seek; counts until the sound's own time stamps say more.
    virtual HRESULT SetPosition(int32_t ms) = 0;
    // From any thread; never waits.
    virtual SoundLevels GetLevels() const = 0;

protected:
    ~ISoundEffect() = default;
};

// The interface of a sound-effect filter; null for null and for any other element.
[[nodiscard]] ISoundEffect* QuerySoundEffect(GstElement* element);

}  // namespace tarn

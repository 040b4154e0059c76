// clock_guard.h - keeps one wild answer of a sound device from stopping a graph's clock.
#pragma once

#include <gst/audio/audio.h>

namespace tarn {

// PulseAudio's client, asked for the time in the instant in which a stream goes on after a pause,
// may answer with a time some centuries ahead. A clock never goes back, so it would stand still
// from there on, and the picture with it. This leaves out what lies further ahead than the time
// that has passed can explain. To be called before the clock is in use.
void GuardClock(GstAudioClock* clock);

}  // namespace tarn

// audio_renderer.h - the end of the sound's way: the default sound device, or none.
#pragma once

#include <string>

#include "playback/gst_handles.h"

namespace tarn {

constexpr char kAudioRendererName[] = "Default DirectSound Device";
constexpr char kAudioRendererPin[] = "Audio Input pin (rendered)";
// The elements that it needs besides the device's own.
constexpr char kAudioRendererParts[] = "audioconvert, audioresample, volume";

// PulseAudio's null device, once nothing plays, is up to two seconds ahead in silence that it does
// not take back: a clip that starts or is sought on it stands still for so long, picture and sound
// together, in whatever player. Devices that are heard take it back. Where there is nothing to
// hear, "fakesink" keeps the time.

// How much treated sound waits in the device's buffer, milliseconds: a change of an effect is
// heard that much later.
constexpr int kAudioBufferMs = 60;

// A bin with that pad and an element "volume". `sink` names the factory of the sink; empty takes
// the platform's first one that can be opened. Without a device the sound is swallowed in its own
// time, so the picture plays all the same. Null where elements are missing.
[[nodiscard]] GstElementPtr MakeAudioRenderer(const std::string& sink);

}  // namespace tarn

// sound_effect_element.h - the sound-effect filter as an element of the graph.
//
// Takes and gives 16-bit stereo at any rate that an effect chain takes, treats it in place and
// holds nothing back. It is on from the start, with all effects off; QuerySoundEffect reaches its
// controls. For the folder's own sources.
#pragma once

#include "playback/gst_handles.h"

namespace tarn {

// A new element with the pads "sink" and "src". StartGst comes first.
[[nodiscard]] GstElementPtr MakeSoundEffect();

}  // namespace tarn

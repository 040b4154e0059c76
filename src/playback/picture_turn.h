// picture_turn.h - shows a picture upright that was filmed with the camera on its side.
#pragma once

#include <cstdint>

#include "playback/gst_handles.h"

namespace tarn {

// What a track's matrix does to its picture, as GStreamer counts: 0 nothing, 1 to 3 quarter turns
// clockwise, 4 and 5 mirrored sideways and upside down, 6 and 7 both a turn and a mirror. Scale and
// place are no matter of this; neither is a matrix that does anything else.
int TurnOfMatrix(const uint32_t (&matrix)[9]);

// An element with the pads "sink" and "src"; null where there is none.
[[nodiscard]] GstElementPtr MakePictureTurner(int turn);
constexpr char kPictureTurnerParts[] = "videoflip";

}  // namespace tarn

// letterbox.h - where a picture of one shape goes in an area of another.
#pragma once

#include "playback/video_renderer.h"

namespace tarn {

bool IsEmpty(const VideoRect& rect);

// The largest rectangle in the middle of the area that has the picture's display shape, pixel
// aspect included. Empty where the area or the picture is.
VideoRect LetterboxRect(const VideoPicture& picture, const VideoRect& area);

// The picture in its letterbox rectangle, and black for what that leaves of the area.
void PaintLetterboxed(IVideoPainter& painter, const VideoPicture& picture, const VideoRect& area);

}  // namespace tarn

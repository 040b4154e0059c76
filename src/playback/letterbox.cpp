#include "playback/letterbox.h"

#include <algorithm>
#include <cmath>

namespace tarn {

bool IsEmpty(const VideoRect& rect) {
    return rect.left >= rect.right || rect.top >= rect.bottom;
}

VideoRect LetterboxRect(const VideoPicture& picture, const VideoRect& area) {
    if (IsEmpty(area) || picture.width <= 0 || picture.height <= 0) return {};
    const bool known = picture.aspectWidth > 0 && picture.aspectHeight > 0;
    const double shape = (known ? 1.0 * picture.aspectWidth / picture.aspectHeight : 1.0) *
                         picture.width / picture.height;
    const int32_t areaWidth = area.right - area.left, areaHeight = area.bottom - area.top;
    int32_t width = areaWidth, height = areaHeight;
    if (shape * areaHeight > areaWidth) {
        height = std::clamp(static_cast<int32_t>(std::lround(areaWidth / shape)), 1, areaHeight);
    } else {
        width = std::clamp(static_cast<int32_t>(std::lround(areaHeight * shape)), 1, areaWidth);
    }
    const int32_t left = area.left + (areaWidth - width) / 2;
    const int32_t top = area.top + (areaHeight - height) / 2;
    return {left, top, left + width, top + height};
}

void PaintLetterboxed(IVideoPainter& painter, const VideoPicture& picture, const VideoRect& area) {
    const VideoRect target = LetterboxRect(picture, area);
    if (IsEmpty(target)) return;
    painter.DrawPicture(picture, target);
    const VideoRect bars[] = {{area.left, area.top, target.left, area.bottom},
                              {target.right, area.top, area.right, area.bottom},
                              {target.left, area.top, target.right, target.top},
                              {target.left, target.bottom, target.right, area.bottom}};
    for (const VideoRect& bar : bars)
        if (!IsEmpty(bar)) painter.FillBlack(bar);
}

}  // namespace tarn

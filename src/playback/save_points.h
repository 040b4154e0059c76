// save_points.h - where the fades of a save lie: at the cut that can be made, not at the points
// that were asked for.
#pragma once

#include <cstdint>
#include <string>

namespace tarn {

// Milliseconds of the clip.
struct ClipPoints {
    int32_t in = 0, out = 0;  // out 0: none
    // The fades lie where they were asked for, as they do in a save with exact points.
    bool exact = false;
    bool operator==(const ClipPoints&) const = default;
};

// Reads the movie. The points themselves for a clip that can't be cut, a WAV file above all.
ClipPoints FindSavePoints(const std::string& path, const ClipPoints& asked);

}  // namespace tarn

// png_file.h - a picture into a PNG file that is complete or not there.
#pragma once

#include <string>

#include "cli/waveform_picture.h"

namespace tarn {

// 0 or errno; EEXIST for a name that is taken.
[[nodiscard]] int WritePng(const std::string& path, const Picture& picture);

}  // namespace tarn

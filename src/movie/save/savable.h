// savable.h - whether a clip can be saved as a movie, found out without saving it.
#pragma once

#include <string>

#include "base/reason.h"

namespace tarn {

// Why the whole of a movie can't be saved, damaged as it may be; none where it can. Looks up every
// picture, and decodes the first sounds.
Reason WhyNotSaved(const std::string& path);

}  // namespace tarn

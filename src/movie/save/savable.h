// savable.h - whether a clip can be opened and saved, found out without saving it.
#pragma once

#include <string>

#include "movie/facts/check_movie_file.h"

namespace tarn {

struct SaveCheck {
    MovieFileStatus status = kFileUsable;
    bool canBeSaved = true;  // of a usable one: the whole of it, damaged as it may be
    Reason reason;           // why not, or what a usable file lacks
};

// As CheckAnyFile does strictly and without a graph step. Of a usable movie it looks up every
// picture and decodes the first sounds.
SaveCheck CheckForSaving(const std::string& path);

}  // namespace tarn

// movie_verify.h - proves that a saved clip has the source's pictures, byte for byte.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "movie/movie_codes.h"

namespace tarn {

// Reads both files anew and compares each picture `first` up to `end` of the source with the
// output's: bytes, duration, composition offset and sync flag. kMovieMismatch names the first
// difference in `reason`, kMovieCancelled when `step`, called for each picture, says no.
MovieCode VerifyPictures(const std::string& source, uint32_t first, uint32_t end,
                         const std::string& output, const std::function<bool()>& step,
                         uint64_t* verified, int32_t* systemError, std::string* reason);

}  // namespace tarn

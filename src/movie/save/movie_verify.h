// movie_verify.h - proves that a saved clip has the source's pictures, byte for byte.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "base/reason.h"
#include "movie/objects/movie_reader.h"

namespace tarn {

// Reads the pictures of the source's selection again and compares each with the output's: bytes,
// duration, composition offset and sync flag. kMovieMismatch for a difference, kMovieCancelled when
// `step`, called before each picture with the number of those that were the same, says no. `reason`
// tells of the output; the source has its own.
MovieCode VerifyPictures(CMP4MovieRead* source, const std::string& output,
                         const std::function<bool(uint64_t)>& step, uint64_t* verified,
                         Reason* reason);

}  // namespace tarn

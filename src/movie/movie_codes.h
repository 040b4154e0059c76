// movie_codes.h - what the movie objects answer: the engine's codes and a few of their own.
#pragma once

#include <cstdint>
#include <string>

#include "base/reason.h"
#include "mp4format/host.h"

namespace tarn {

// 0 for success, an Mp4Result, or one of the codes below.
enum [[nodiscard]] MovieCode : uint32_t;
enum MovieCode : uint32_t {
    kMovieOk = 0,
    kMovieDone = 100,                 // the selection is exhausted
    kMovieSystem = 0x50000001,        // a system call failed; the object keeps the system's error
    kMovieRange = 0x50000003,         // in or out point outside the movie, or out before in
    kMovieNoTrack = 0x50000004,       // no usable track
    kMovieBuffer = 0x50000005,        // a write object is not ready or its buffer could not grow
    kMovieNoObject = 0x50000006,      // no movie object at that place in the job
    kMovieEndOfSamples = 0x50000007,  // no further sample in the selection
    // Beyond the engine: what a save can end with.
    kMovieCodec = 0x10000000,     // decoder or encoder failed
    kMovieChanged = 0x50000008,   // the source changed or went away underneath
    kMovieMismatch = 0x50000009,  // reading back found another picture than the source's
    kMovieTooLarge = 0x5000000A,  // a WAV file can't hold so much
    kMovieCancelled = 0x5000000B,
};

constexpr MovieCode movie_code(Mp4Result result) {
    return static_cast<MovieCode>(result);
}

// What a code alone says of a file; whoever knows more makes a better reason. `systemError` (errno)
// belongs to kMovieSystem.
Reason MovieReason(MovieCode code, ReasonSide side, const std::string& file, int systemError = 0);

// Leaves the function with the callee's code unless it is success; takes engine results too.
#define MOVIE_TRY(call)                                                               \
    do {                                                                              \
        if (const auto c_ = static_cast<::tarn::MovieCode>(call); c_ != 0) return c_; \
    } while (0)

}  // namespace tarn

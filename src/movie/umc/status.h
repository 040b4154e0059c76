// status.h - what every call of the codec classes answers.
//
// 0 is success, negative values are failures, and the one positive value says that there is nothing
// to report yet. No value is shown to the user: the caller says what failed in its own words.
#pragma once

#include <cstdint>

namespace tarn::UMC {

enum [[nodiscard]] Status : int32_t;  // declared first: every call that returns one is checked
enum Status : int32_t {
    kStatusOk = 0,
    kStatusNoStreamYet = 3,  // nothing of the stream is known before its first frame
    kStatusTargetTooSmall = -876,
    kStatusNotImplemented = -878,  // well formed, but not among what the codec can do
    kStatusNoMemory = -883,
    kStatusBadParameter = -899,  // also a configuration or a frame that can't be decoded
    kStatusNullPointer = -995,
    kStatusNoData = -998,  // also: not initialised, and a frame without sound in it
    kStatusOutOfRange = -999,
};

}  // namespace tarn::UMC

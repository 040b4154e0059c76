// result_codes.h - what the calls of the player answer, as numbers: below 0 is a failure.
#pragma once

#include <cstdint>

namespace tarn {

using HRESULT = int32_t;

constexpr HRESULT S_OK = 0;
constexpr HRESULT S_FALSE = 1;                            // nothing failed, and nothing was done
constexpr HRESULT VFW_S_STATE_INTERMEDIATE = 0x00040237;  // still on the way to its state

constexpr HRESULT E_ABORT = static_cast<HRESULT>(0x80004004);
constexpr HRESULT E_ACCESSDENIED = static_cast<HRESULT>(0x80070005);  // it is there already
constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005);
constexpr HRESULT E_HANDLE = static_cast<HRESULT>(0x80070006);  // there is no graph
constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80070057);
constexpr HRESULT E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000E);
constexpr HRESULT E_POINTER = static_cast<HRESULT>(0x80004003);  // an argument is missing

constexpr bool Failed(HRESULT result) {
    return result < 0;
}

// Events of a graph.
constexpr int32_t EC_COMPLETE = 1;    // all that there is has been played
constexpr int32_t EC_USERABORT = 2;   // the window of the picture was closed
constexpr int32_t EC_ERRORABORT = 3;  // playing ended with an error
// The newest request's picture stands and its sound is there. Playing goes on.
constexpr int32_t EC_SEEK_COMPLETE = 0x8001;

}  // namespace tarn

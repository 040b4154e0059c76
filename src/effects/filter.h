// filter.h - what every filter of the effects has in common.
//
// Samples are floats on the 16-bit scale (full scale is 32768, not 1), one array a channel. A
// filter sees one channel as one endless stream: its history lives in the object and goes on from
// block to block, wherever the stream was cut. Coefficients and lengths are settled when it is
// built. Process allocates nothing, takes no lock and can't fail. One thread at a time.
#pragma once

#include <cstdint>

namespace tarn {

class IAMPFilter {
public:
    virtual ~IAMPFilter() = default;

    // Filters `count` samples, any number. The arrays must not overlap.
    virtual void Process(float* output, const float* input, uint32_t count) = 0;
    // Back to silence; coefficients and lengths stay.
    virtual void Reset() = 0;

protected:
    IAMPFilter() = default;
    IAMPFilter(const IAMPFilter&) = default;
    IAMPFilter& operator=(const IAMPFilter&) = default;
};

}  // namespace tarn

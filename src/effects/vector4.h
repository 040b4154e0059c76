// vector4.h - four floats in one register.
//
// The compiler's own vector types: SSE, NEON or plain floats, as the machine has them. Each lane
// is rounded like a single float, so a lane's samples don't depend on the machine.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

namespace tarn {

using Float4 = float __attribute__((vector_size(16)));
using Mask4 = int32_t __attribute__((vector_size(16)));  // of a comparison: all bits or none

inline Float4 Load4(const float* from) {
    Float4 v;
    std::memcpy(&v, from, sizeof v);
    return v;
}
inline void Store4(float* to, Float4 v) {
    std::memcpy(to, &v, sizeof v);
}
inline Float4 Splat4(float v) {
    return Float4{v, v, v, v};
}
inline Float4 Abs4(Float4 v) {
    return std::bit_cast<Float4>(std::bit_cast<Mask4>(v) & INT32_MAX);
}
// The size of one with the sign of the other.
inline Float4 CopySign4(Float4 size, Float4 sign) {
    return std::bit_cast<Float4>((std::bit_cast<Mask4>(size) & INT32_MAX) |
                                 (std::bit_cast<Mask4>(sign) & INT32_MIN));
}
inline bool Any4(Mask4 mask) {
    return (mask[0] | mask[1] | mask[2] | mask[3]) != 0;
}
// The first two lanes.
inline void StoreLow(float* to, Float4 v) {
    using Float2 = float __attribute__((vector_size(8)));
    const Float2 half = __builtin_shufflevector(v, v, 0, 1);
    std::memcpy(to, &half, sizeof half);
}
// The first two lanes to one place, the last two to another.
inline void StoreHalves(float* low, float* high, Float4 v) {
    StoreLow(low, v);
    StoreLow(high, __builtin_shufflevector(v, v, 2, 3, 2, 3));
}

// Puts f(four samples, index of the first) in their place, all along the array. The last call may
// get some zeros behind the last samples.
template <typename F>
inline void Transform4(float* samples, uint32_t count, F f) {
    uint32_t i = 0;
    for (; i + 4 <= count; i += 4)
        Store4(samples + i, f(Load4(samples + i), i));
    if (i == count) return;
    float rest[4] = {};
    std::memcpy(rest, samples + i, (count - i) * sizeof(float));
    Store4(rest, f(Load4(rest), i));
    std::memcpy(samples + i, rest, (count - i) * sizeof(float));
}

}  // namespace tarn

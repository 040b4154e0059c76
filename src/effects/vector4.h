// vector4.h - four floats in one register.
//
// The compiler's own vector types: SSE, NEON or plain floats, as the machine has them. Each lane
// is rounded like a single float, so a lane's samples don't depend on the machine.
#pragma once

#include <cstring>

namespace tarn {

using Float4 = float __attribute__((vector_size(16)));

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

}  // namespace tarn

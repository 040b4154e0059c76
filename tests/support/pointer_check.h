// pointer_check.h - calls with each of their pointers null in turn.
#pragma once

#include <gtest/gtest.h>

#include <type_traits>
#include <utility>

#include "mp4format/host.h"

namespace tarn {

// Numbers are 1; pointers and references lead to zero bytes.
template <typename T>
T NullOrZeros(bool null) {
    alignas(16) static char room[1 << 16];
    if constexpr (std::is_pointer_v<T>)
        return null ? nullptr : reinterpret_cast<T>(room);
    else if constexpr (std::is_reference_v<T>)
        return reinterpret_cast<T>(room);
    else
        return T{1};
}

// None may be used before all have been tested. `n` tells which call it is.
template <typename... Args, size_t... I>
void ExpectPointersTested(int n, Mp4Result (*call)(Args...), std::index_sequence<I...>) {
    const bool pointers[] = {std::is_pointer_v<Args>...};
    for (size_t null = 0; null < sizeof...(Args); ++null) {
        if (!pointers[null]) continue;
        EXPECT_EQ(call(NullOrZeros<Args>(I == null)...), FF4_RET_ARGS)
            << "argument " << null << " of call " << n;
    }
}
template <typename... Args>
void ExpectPointersTested(int n, Mp4Result (*call)(Args...)) {
    ExpectPointersTested(n, call, std::index_sequence_for<Args...>());
}

template <typename... Calls>
void ExpectAllPointersTested(Calls... calls) {
    int n = 0;
    (ExpectPointersTested(++n, calls), ...);
}

}  // namespace tarn

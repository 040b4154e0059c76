// waveform_row.h - the memory of a waveform's points.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <new>
#include <utility>
#include <vector>

namespace tarn {

// Fresh memory is all zeros, and the system gives it page by page as something else is written. So
// the silence that a file merely claims takes none.
template <typename T>
struct ZeroMemory {
    using value_type = T;
    ZeroMemory() = default;
    template <typename U>
    ZeroMemory(const ZeroMemory<U>&) {}

    T* allocate(size_t count) {
        if (void* memory = std::calloc(count, sizeof(T))) return static_cast<T*>(memory);
        throw std::bad_alloc();
    }
    void deallocate(T* memory, size_t) { std::free(memory); }
    // Nothing to be done. For rows that grow once only: memory that has been used is not cleared.
    template <typename U>
    void construct(U*) {}
    template <typename U, typename... Values>
    void construct(U* at, Values&&... values) {
        ::new (static_cast<void*>(at)) U(std::forward<Values>(values)...);
    }
    bool operator==(const ZeroMemory&) const = default;
};

using WaveformRow = std::vector<int8_t, ZeroMemory<int8_t>>;

}  // namespace tarn

// A file of its own, so that no caller sees through new and delete.
#include "effects/allocation_count.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {
std::atomic<size_t> g_count{0};
}  // namespace

void* operator new(size_t size) {
    ++g_count;
    if (void* const block = std::malloc(size ? size : 1)) return block;
    throw std::bad_alloc();
}
void operator delete(void* block) noexcept {
    std::free(block);
}
void operator delete(void* block, size_t) noexcept {
    std::free(block);
}

namespace tarn {

size_t AllocationCount() {
    return g_count;
}

}  // namespace tarn

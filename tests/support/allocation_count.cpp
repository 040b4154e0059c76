// A file of its own, so that no caller sees through what it replaces.
#include "support/allocation_count.h"

#include <cstdlib>
#include <new>

namespace {
thread_local size_t g_count = 0;
thread_local bool g_fail = false;
}  // namespace

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)

void* operator new(size_t size) {
    ++g_count;
    if (void* const block = g_fail ? nullptr : std::malloc(size ? size : 1)) return block;
    throw std::bad_alloc();
}
void* operator new(size_t size, const std::nothrow_t&) noexcept {
    ++g_count;
    return g_fail ? nullptr : std::malloc(size ? size : 1);
}
void operator delete(void* block) noexcept {
    ++g_count;
    std::free(block);
}
void operator delete(void* block, size_t) noexcept {
    ++g_count;
    std::free(block);
}

#else

// The C library's own names for its functions.
extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void __libc_free(void*);

void* malloc(size_t size) {
    ++g_count;
    return g_fail ? nullptr : __libc_malloc(size);
}
void* calloc(size_t count, size_t size) {
    ++g_count;
    return g_fail ? nullptr : __libc_calloc(count, size);
}
void* realloc(void* block, size_t size) {
    ++g_count;
    return g_fail ? nullptr : __libc_realloc(block, size);
}
void free(void* block) {
    ++g_count;
    __libc_free(block);
}
}

#endif

namespace tarn {

size_t AllocationCount() {
    return g_count;
}

void FailAllocations(bool fail) {
    g_fail = fail;
}

}  // namespace tarn

#include "movie/umc/memory_allocator.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <new>

namespace tarn::UMC {
namespace {

class Guard {
public:
    explicit Guard(Mutex& mutex) : m_mutex(mutex) { m_mutex.Lock(); }
    ~Guard() { m_mutex.Unlock(); }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

private:
    Mutex& m_mutex;
};

}  // namespace

DefaultMemoryAllocator::~DefaultMemoryAllocator() {
    for (const auto& [handle, block] : m_blocks)
        std::free(block.memory);
}

Status DefaultMemoryAllocator::Close() {
    const Guard guard(m_mutex);
    for (const auto& [handle, block] : m_blocks)
        std::free(block.memory);
    m_blocks.clear();
    return kStatusOk;
}

Status DefaultMemoryAllocator::Alloc(MemId* handle, size_t size, uint32_t /*flags*/,
                                     uint32_t alignment) {
    if (!handle) return kStatusNullPointer;
    if (size == 0 || !std::has_single_bit(alignment)) return kStatusBadParameter;
    const size_t step = std::max<size_t>(alignment, alignof(std::max_align_t));
    if (size > SIZE_MAX - step) return kStatusNoMemory;

    void* memory = std::aligned_alloc(step, (size + step - 1) / step * step);
    if (!memory) return kStatusNoMemory;
    const Guard guard(m_mutex);
    try {
        m_blocks.emplace(m_last + 1, Block{memory, 0});
    } catch (const std::bad_alloc&) {
        std::free(memory);
        return kStatusNoMemory;
    }
    *handle = ++m_last;
    return kStatusOk;
}

void* DefaultMemoryAllocator::Lock(MemId handle) {
    const Guard guard(m_mutex);
    const auto found = m_blocks.find(handle);
    if (found == m_blocks.end()) return nullptr;
    ++found->second.locks;
    return found->second.memory;
}

Status DefaultMemoryAllocator::Unlock(MemId handle) {
    const Guard guard(m_mutex);
    const auto found = m_blocks.find(handle);
    if (found == m_blocks.end() || found->second.locks == 0) return kStatusBadParameter;
    --found->second.locks;
    return kStatusOk;
}

Status DefaultMemoryAllocator::Free(MemId handle) {
    return Release(handle, false);
}

Status DefaultMemoryAllocator::DeallocateMem(MemId handle) {
    return Release(handle, true);
}

Status DefaultMemoryAllocator::Release(MemId handle, bool even_locked) {
    const Guard guard(m_mutex);
    const auto found = m_blocks.find(handle);
    if (found == m_blocks.end()) return kStatusBadParameter;
    if (found->second.locks > 0 && !even_locked) return kStatusBadParameter;
    std::free(found->second.memory);
    m_blocks.erase(found);
    return kStatusOk;
}

}  // namespace tarn::UMC

// memory_allocator.h - where the codecs' state lives.
//
// A block has a handle and may be touched only between Lock and Unlock, so that an allocator of the
// caller's own may count, limit or place blocks. A codec without one makes a
// DefaultMemoryAllocator.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>

#include "movie/umc/status.h"

namespace tarn::UMC {

using MemId = uint64_t;  // 0 is no block

class Mutex {
public:
    void Lock() { m_mutex.lock(); }
    void Unlock() { m_mutex.unlock(); }

private:
    std::mutex m_mutex;
};

class MemoryAllocator {
public:
    virtual ~MemoryAllocator() = default;
    virtual Status Init() = 0;
    // Frees all that is left.
    virtual Status Close() = 0;
    // `alignment` is a power of two; `flags` is kept for allocators that know kinds of memory.
    virtual Status Alloc(MemId* handle, size_t size, uint32_t flags, uint32_t alignment) = 0;
    // Null for an unknown handle. Locks nest.
    virtual void* Lock(MemId handle) = 0;
    virtual Status Unlock(MemId handle) = 0;
    // A locked block is refused with kStatusBadParameter.
    virtual Status Free(MemId handle) = 0;
    // Frees the block however often it is locked.
    virtual Status DeallocateMem(MemId handle) = 0;
};

// The heap, under a mutex: codecs on different threads may share one.
class DefaultMemoryAllocator final : public MemoryAllocator {
public:
    ~DefaultMemoryAllocator() override;

    Status Init() override { return kStatusOk; }
    Status Close() override;
    Status Alloc(MemId* handle, size_t size, uint32_t flags, uint32_t alignment) override;
    void* Lock(MemId handle) override;
    Status Unlock(MemId handle) override;
    Status Free(MemId handle) override;
    Status DeallocateMem(MemId handle) override;

private:
    struct Block {
        void* memory;
        uint32_t locks;
    };
    Status Release(MemId handle, bool even_locked);

    Mutex m_mutex;
    std::map<MemId, Block> m_blocks;
    MemId m_last = 0;
};

}  // namespace tarn::UMC

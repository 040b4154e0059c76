// codec_state.h - a codec's private state in a block of its allocator, touched only while locked.
#pragma once

#include <new>
#include <utility>

#include "movie/umc/memory_allocator.h"

namespace tarn::UMC {

template <typename T>
class CodecState {
public:
    CodecState() = default;
    ~CodecState() { Destroy(); }
    CodecState(const CodecState&) = delete;
    CodecState& operator=(const CodecState&) = delete;

    // A new T in a block of `allocator`, which must outlive it.
    Status Create(MemoryAllocator* allocator) {
        Destroy();
        const Status status = allocator->Alloc(&m_handle, sizeof(T), 0, 16);
        if (status != kStatusOk) return status;
        void* memory = allocator->Lock(m_handle);
        if (!memory) {
            (void)allocator->DeallocateMem(std::exchange(m_handle, 0));
            return kStatusNoMemory;
        }
        static_assert(alignof(T) <= 16);
        new (memory) T;
        m_allocator = allocator;
        return allocator->Unlock(m_handle);
    }

    void Destroy() {
        if (!m_allocator) return;
        if (void* memory = m_allocator->Lock(m_handle)) static_cast<T*>(memory)->~T();
        (void)m_allocator->DeallocateMem(m_handle);
        m_allocator = nullptr;
        m_handle = 0;
    }

    // The state for the length of one call; false where there is none.
    class Locked {
    public:
        explicit Locked(const CodecState& owner)
            : m_owner(owner),
              m_state(owner.m_allocator ? static_cast<T*>(owner.m_allocator->Lock(owner.m_handle))
                                        : nullptr) {}
        ~Locked() {
            if (m_state) (void)m_owner.m_allocator->Unlock(m_owner.m_handle);
        }
        Locked(const Locked&) = delete;
        Locked& operator=(const Locked&) = delete;
        explicit operator bool() const { return m_state != nullptr; }
        T* operator->() const { return m_state; }
        T& operator*() const { return *m_state; }

    private:
        const CodecState& m_owner;
        T* m_state;
    };

private:
    MemoryAllocator* m_allocator = nullptr;
    MemId m_handle = 0;
};

}  // namespace tarn::UMC

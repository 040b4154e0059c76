#include "movie/umc/codec.h"

#include <new>

namespace tarn::UMC {

Status BaseCodec::Init(BaseCodecParams* params) {
    if (!params) return kStatusNullPointer;
    m_ownAllocator.reset();
    m_allocator = params->allocator;
    if (m_allocator) return kStatusOk;
    m_ownAllocator.reset(new (std::nothrow) DefaultMemoryAllocator);
    if (!m_ownAllocator) return kStatusNoMemory;
    m_allocator = m_ownAllocator.get();
    return m_allocator->Init();
}

Status BaseCodec::Close() {
    m_ownAllocator.reset();
    m_allocator = nullptr;
    return kStatusOk;
}

}  // namespace tarn::UMC

#include "movie/umc/codec.h"

#include <new>

#include "movie/umc/av_library.h"

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

bool HasCodecLibrary() {
    return FindAvLibrary() != nullptr;
}

Status BaseCodec::Close() {
    m_ownAllocator.reset();
    m_allocator = nullptr;
    return kStatusOk;
}

}  // namespace tarn::UMC

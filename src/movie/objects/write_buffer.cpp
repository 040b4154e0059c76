#include "movie/objects/write_buffer.h"

#include <cstring>
#include <new>

namespace tarn {

bool CWriteBuffer::Allocate(uint32_t capacity) {
    m_used = 0;
    for (; capacity > 0; capacity /= 2) {
        m_data.reset(new (std::nothrow) uint8_t[capacity]);
        if (m_data) break;
    }
    m_capacity = capacity;
    return capacity > 0;
}

int CWriteBuffer::Append(XpFile* file, const void* data, uint64_t size) {
    if (size > m_capacity - m_used) {
        if (const int error = Flush(file)) return error;
    }
    if (size > m_capacity) {
        uint64_t done = 0;
        return file->Write(data, size, &done);
    }
    if (size > 0) std::memcpy(m_data.get() + m_used, data, static_cast<size_t>(size));
    m_used += static_cast<uint32_t>(size);
    return 0;
}

int CWriteBuffer::Flush(XpFile* file) {
    uint64_t done = 0;
    const int error = m_used > 0 ? file->Write(m_data.get(), m_used, &done) : 0;
    m_used = 0;
    return error;
}

}  // namespace tarn

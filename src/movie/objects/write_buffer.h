// write_buffer.h - gathers media bytes so that the disk sees large sequential writes.
#pragma once

#include <cstdint>
#include <memory>

#include "base/xp_file.h"

namespace tarn {

class CWriteBuffer {
public:
    // Takes `capacity` bytes, or half of it and so on while memory is short. False without any.
    [[nodiscard]] bool Allocate(uint32_t capacity);
    // Answers errno. What does not fit is written out first; what never fits goes straight to the
    // file. Nothing is dropped.
    [[nodiscard]] int Append(XpFile* file, const void* data, uint64_t size);
    [[nodiscard]] int Flush(XpFile* file);
    uint32_t Capacity() const { return m_capacity; }

private:
    std::unique_ptr<uint8_t[]> m_data;
    uint32_t m_capacity = 0, m_used = 0;
};

}  // namespace tarn

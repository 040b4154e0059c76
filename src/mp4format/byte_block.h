// byte_block.h - bytes of an atom that are kept as they stand.
#pragma once

#include <cstdint>

#include "mp4format/host.h"

namespace tarn {

// Owned by the record it is a part of. No bytes: null and 0.
struct Mp4ByteBlock {
    uint8_t* data;
    uint32_t size;
};

// Copies `size` bytes into an empty block. FF4_RET_NOMEM leaves it empty.
Mp4Result mp4_copy_block(Mp4Host* host, const uint8_t* from, uint64_t size, Mp4ByteBlock* block);
void mp4_free_block(Mp4Host* host, Mp4ByteBlock* block);

}  // namespace tarn

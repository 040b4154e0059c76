#include "mp4format/byte_block.h"

namespace tarn {

Mp4Result mp4_copy_block(Mp4Host* host, const uint8_t* from, uint64_t size, Mp4ByteBlock* block) {
    if (!host || !from || !block) return FF4_RET_ARGS;
    if (size == 0) return FF4_RET_OK;
    auto copy = mp4_make<uint8_t>(host, size);
    if (!copy) return FF4_RET_NOMEM;
    host->callbacks.memcpy(host->callbacks.userData, copy.get(), size, from, size);
    *block = {copy.release(), static_cast<uint32_t>(size)};
    return FF4_RET_OK;
}

void mp4_free_block(Mp4Host* host, Mp4ByteBlock* block) {
    mp4_free(host, block->data);
    *block = {};
}

}  // namespace tarn

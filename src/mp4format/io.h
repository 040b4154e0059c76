// io.h - reading and seeking through the host, with the engine's rule that short is failed.
#pragma once

#include <cstdint>

#include "mp4format/host.h"

namespace tarn {

// Moves to an offset from the start. FF4_RET_OVERFLOW for an offset past 63 bits.
Mp4Result mp4_seek(Mp4Host* host, Mp4File* file, uint64_t offset);
// Exactly `size` bytes from where the file stands; a short read is FF4_RET_FILE.
Mp4Result mp4_read(Mp4Host* host, Mp4File* file, void* buffer, uint64_t size);
// mp4_seek and mp4_read.
Mp4Result mp4_read_at(Mp4Host* host, Mp4File* file, uint64_t offset, void* buffer, uint64_t size);
Mp4Result mp4_read_be32(Mp4Host* host, Mp4File* file, uint32_t* value);

// `size` bytes at `offset` in a block of their own. No bytes: a null block and FF4_RET_OK. A size
// that the file does not hold is FF4_RET_FILE before anything is allocated.
Mp4Result mp4_read_block(Mp4Host* host, Mp4File* file, uint64_t offset, uint64_t size,
                         HostPtr<uint8_t>* block);

// A copy of `size` bytes with a closing zero behind them.
Mp4Result mp4_copy_text(Mp4Host* host, const uint8_t* from, uint64_t size, HostPtr<char>* text);
// Characters before the first zero byte, at most `limit`.
uint64_t mp4_text_length(const uint8_t* text, uint64_t limit);

// The bytes in the file, by the host's `size` entry.
Mp4Result mp4_file_size(Mp4Host* host, Mp4File* file, uint64_t* size);

}  // namespace tarn

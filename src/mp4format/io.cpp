#include "mp4format/io.h"

#include "mp4format/bytes.h"

namespace tarn {

Mp4Result mp4_seek(Mp4Host* host, Mp4File* file, uint64_t offset) {
    if (!host || !file) return FF4_RET_ARGS;
    if (offset > static_cast<uint64_t>(INT64_MAX)) return FF4_RET_OVERFLOW;
    return host->callbacks.seek(file, static_cast<int64_t>(offset), kSeekStart) == FF4_RET_OK
               ? FF4_RET_OK
               : FF4_RET_FILE;
}

Mp4Result mp4_read(Mp4Host* host, Mp4File* file, void* buffer, uint64_t size) {
    if (!host || !file || !buffer) return FF4_RET_ARGS;
    uint64_t done = 0;
    if (host->callbacks.read(file, buffer, size, &done) != FF4_RET_OK) return FF4_RET_FILE;
    return done == size ? FF4_RET_OK : FF4_RET_FILE;
}

Mp4Result mp4_read_at(Mp4Host* host, Mp4File* file, uint64_t offset, void* buffer, uint64_t size) {
    FF4_TRY(mp4_seek(host, file, offset));
    return mp4_read(host, file, buffer, size);
}

Mp4Result mp4_read_be32(Mp4Host* host, Mp4File* file, uint32_t* value) {
    if (!value) return FF4_RET_ARGS;
    uint8_t bytes[4];
    FF4_TRY(mp4_read(host, file, bytes, sizeof bytes));
    *value = get_be32(bytes);
    return FF4_RET_OK;
}

Mp4Result mp4_read_block(Mp4Host* host, Mp4File* file, uint64_t offset, uint64_t size,
                         HostPtr<uint8_t>* block) {
    if (!host || !file || !block) return FF4_RET_ARGS;
    *block = HostPtr<uint8_t>(nullptr, {host});
    if (size == 0) return FF4_RET_OK;
    uint64_t length = 0;
    FF4_TRY(mp4_file_size(host, file, &length));
    if (offset > length || size > length - offset) return FF4_RET_FILE;

    auto bytes = mp4_make<uint8_t>(host, size);
    if (!bytes) return FF4_RET_NOMEM;
    FF4_TRY(mp4_read_at(host, file, offset, bytes.get(), size));
    *block = std::move(bytes);
    return FF4_RET_OK;
}

Mp4Result mp4_copy_text(Mp4Host* host, const uint8_t* from, uint64_t size, HostPtr<char>* text) {
    if (!host || !from || !text) return FF4_RET_ARGS;
    // The block comes zeroed, so one byte more is the closing zero.
    auto copy = mp4_make<char>(host, size + 1);
    if (!copy) return FF4_RET_NOMEM;
    host->callbacks.memcpy(host->callbacks.userData, copy.get(), size, from, size);
    *text = std::move(copy);
    return FF4_RET_OK;
}

uint64_t mp4_text_length(const uint8_t* text, uint64_t limit) {
    uint64_t length = 0;
    while (length < limit && text[length] != 0)
        ++length;
    return length;
}

Mp4Result mp4_file_size(Mp4Host* host, Mp4File* file, uint64_t* size) {
    if (!host || !file || !size) return FF4_RET_ARGS;
    return host->callbacks.size(file, size) == FF4_RET_OK ? FF4_RET_OK : FF4_RET_FILE;
}

}  // namespace tarn

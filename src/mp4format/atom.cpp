#include "mp4format/atom.h"

#include "mp4format/io.h"

namespace tarn {
namespace {

constexpr uint64_t kLargeHeader = 16;  // with the 64-bit size

// The rules that the file form and the memory form share. `size` is what the header says.
Mp4Result finish_header(uint64_t offset, uint64_t available, uint64_t size, uint64_t header,
                        uint32_t type, Mp4AtomInfo* info) {
    if (size == 0) size = available;
    if (size < header) return FF4_RET_FORMAT;
    if (size > available) size = available;
    *info = {type, {offset, size}, {offset + header, size - header}};
    return FF4_RET_OK;
}

// `head` holds 8 bytes or, where they announce a 64-bit size that has room, 16.
Mp4Result finish_atom_header(const uint8_t* head, uint64_t offset, uint64_t available,
                             Mp4AtomInfo* info) {
    const uint32_t size = get_be32(head), type = get_be32(head + 4);
    if (size != 1) return finish_header(offset, available, size, kAtomHeader, type, info);
    if (available < kLargeHeader) return FF4_RET_FORMAT;
    return finish_header(offset, available, get_be64(head + kAtomHeader), kLargeHeader, type, info);
}

Mp4Result finish_small_header(const uint8_t* head, uint64_t offset, uint64_t available,
                              Mp4AtomInfo* info) {
    const uint16_t size = get_be16(head);
    if (size == 0) return FF4_RET_FORMAT;
    return finish_header(offset, available, size, kSmallAtomHeader, get_be32(head + 2), info);
}

}  // namespace

Mp4Result mp4_read_atom_header(Mp4Host* host, Mp4File* file, uint64_t offset, uint64_t available,
                               Mp4AtomInfo* info) {
    if (!host || !file || !info) return FF4_RET_ARGS;
    if (available < kAtomHeader) return FF4_RET_FORMAT;
    uint8_t head[kLargeHeader];
    FF4_TRY(mp4_read_at(host, file, offset, head, kAtomHeader));
    if (get_be32(head) == 1 && available >= kLargeHeader)
        FF4_TRY(mp4_read(host, file, head + kAtomHeader, kLargeHeader - kAtomHeader));
    return finish_atom_header(head, offset, available, info);
}

Mp4Result mp4_read_atom_header_mem(const uint8_t* buffer, uint64_t offset, uint64_t available,
                                   Mp4AtomInfo* info) {
    if (!buffer || !info) return FF4_RET_ARGS;
    if (available < kAtomHeader) return FF4_RET_FORMAT;
    return finish_atom_header(buffer + offset, offset, available, info);
}

Mp4Result mp4_read_small_atom_header(Mp4Host* host, Mp4File* file, uint64_t offset,
                                     uint64_t available, Mp4AtomInfo* info) {
    if (!host || !file || !info) return FF4_RET_ARGS;
    if (available < kSmallAtomHeader) return FF4_RET_FORMAT;
    uint8_t head[kSmallAtomHeader];
    FF4_TRY(mp4_read_at(host, file, offset, head, sizeof head));
    return finish_small_header(head, offset, available, info);
}

Mp4Result mp4_read_small_atom_header_mem(const uint8_t* buffer, uint64_t offset, uint64_t available,
                                         Mp4AtomInfo* info) {
    if (!buffer || !info) return FF4_RET_ARGS;
    if (available < kSmallAtomHeader) return FF4_RET_FORMAT;
    return finish_small_header(buffer + offset, offset, available, info);
}

Mp4Result mp4_read_descriptor_header_mem(const uint8_t* buffer, uint64_t offset, uint64_t available,
                                         Mp4AtomInfo* info) {
    if (!buffer || !info) return FF4_RET_ARGS;
    if (available < kDescriptorHeader) return FF4_RET_FORMAT;
    constexpr uint64_t kMostLengthBytes = 4;
    uint64_t length = 0, header = 1;
    bool more = true;
    while (more) {
        if (header == available || header > kMostLengthBytes) return FF4_RET_FORMAT;
        const uint8_t byte = buffer[offset + header++];
        length = length << 7 | (byte & 0x7F);
        more = byte & 0x80;
    }
    return finish_header(offset, available, header + length, header, buffer[offset], info);
}

Mp4Result mp4_read_full_header(Mp4Host* host, Mp4File* file, const Mp4Span& payload,
                               uint32_t max_version, Mp4Span* rest, uint32_t* version_flags) {
    if (!host || !file || !rest) return FF4_RET_ARGS;
    if (payload.size < kFullHead) return FF4_RET_FORMAT;
    uint8_t head[kFullHead];
    FF4_TRY(mp4_read_at(host, file, payload.offset, head, sizeof head));
    if (head[0] > max_version) return FF4_RET_FORMAT;
    *rest = {payload.offset + kFullHead, payload.size - kFullHead};
    if (version_flags) *version_flags = get_be32(head);
    return FF4_RET_OK;
}

Mp4Result mp4_read_table_header(Mp4Host* host, Mp4File* file, const Mp4Span& payload,
                                uint32_t max_version, Mp4TableHeader* header) {
    if (!host || !file || !header) return FF4_RET_ARGS;
    if (payload.size < kTableHead) return FF4_RET_FORMAT;
    uint8_t head[kTableHead];
    FF4_TRY(mp4_read_at(host, file, payload.offset, head, sizeof head));
    const uint32_t version_flags = get_be32(head);
    if (full_version(version_flags) > max_version) return FF4_RET_FORMAT;
    *header = {version_flags,
               get_be32(head + 4),
               {payload.offset + kTableHead, payload.size - kTableHead}};
    return FF4_RET_OK;
}

}  // namespace tarn

#include "mp4format/atom_writer.h"

#include "mp4format/io.h"

namespace tarn {
namespace {

constexpr uint64_t kLargeHeader = 16;

constexpr bool has_high_word(uint64_t value) {
    return value >> 32 != 0;
}

// 8 or 16, the bytes of the header in front of a payload.
Mp4Result header_size(const Mp4WriteOptions& options, uint64_t payload, uint64_t* header) {
    if (options.size_policy > kSizeAlways64) return FF4_RET_ARGS;
    if (payload > UINT64_MAX - kLargeHeader) return FF4_RET_OVERFLOW;
    const bool needs_large = has_high_word(payload + kAtomHeader);
    if (options.size_policy == kSize32 && needs_large) return FF4_RET_STATE;
    const bool large = needs_large || options.size_policy == kSizeAlways64;
    *header = large ? kLargeHeader : kAtomHeader;
    return FF4_RET_OK;
}

}  // namespace

Mp4Sink mp4_counting(const Mp4Sink& sink) {
    return {sink.host, sink.options, nullptr, 0};
}

Mp4Result mp4_put(Mp4Sink& sink, const void* bytes, uint64_t size) {
    if (!sink.host || (!bytes && size > 0)) return FF4_RET_ARGS;
    if (sink.file && size > 0) {
        FF4_TRY(mp4_seek(sink.host, sink.file, sink.position));
        uint64_t done = 0;
        if (sink.host->callbacks.write(sink.file, bytes, size, &done) != FF4_RET_OK || done != size)
            return FF4_RET_FILE;
    }
    sink.position += size;
    return FF4_RET_OK;
}

Mp4Result mp4_write_atom_header(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file,
                                uint64_t offset, uint64_t payload, uint32_t type, uint64_t* header,
                                uint64_t* total) {
    if (!host || !total) return FF4_RET_ARGS;
    uint64_t size = 0;
    FF4_TRY(header_size(options, payload, &size));

    uint8_t bytes[kLargeHeader];
    const bool large = size == kLargeHeader;
    put_be32(bytes, large ? 1 : static_cast<uint32_t>(payload + size));
    put_be32(bytes + 4, type);
    if (large) put_be64(bytes + 8, payload + size);
    Mp4Sink sink{host, options, file, offset};
    FF4_TRY(mp4_put(sink, bytes, size));
    *total += size;
    if (header) *header = size;
    return FF4_RET_OK;
}

Mp4Result mp4_atom_total_size(Mp4Host* host, const Mp4WriteOptions& options, uint64_t payload,
                              uint64_t* total) {
    if (!host || !total) return FF4_RET_ARGS;
    uint64_t header = 0;
    FF4_TRY(header_size(options, payload, &header));
    *total = payload + header;
    return FF4_RET_OK;
}

Mp4Result mp4_write_descriptor_header(Mp4Host* host, Mp4File* file, uint64_t offset,
                                      uint64_t payload, uint8_t tag, uint64_t* total) {
    constexpr int kMostGroups = 4;
    if (!host || !total) return FF4_RET_ARGS;
    int groups = 1;
    while (groups <= kMostGroups && payload >> (7 * groups) != 0)
        ++groups;
    if (groups > kMostGroups) return FF4_RET_OVERFLOW;

    Mp4Fields<1 + kMostGroups> fields;
    fields.U8(tag);
    for (int i = groups - 1; i >= 0; --i) {
        const uint32_t group = static_cast<uint32_t>(payload >> (7 * i)) & 0x7F;
        fields.U8(i > 0 ? group | 0x80 : group);
    }
    Mp4Sink sink{host, {}, file, offset};
    FF4_TRY(mp4_put_fields(sink, fields));
    *total += fields.Size();
    return FF4_RET_OK;
}

Mp4Result mp4_pick_version(Mp4Host* host, const Mp4WriteOptions& options, uint64_t creation,
                           uint64_t modification, uint64_t duration, uint32_t* version) {
    if (!host || !version) return FF4_RET_ARGS;
    switch (options.version_policy) {
        case kVersion0:
        case kVersion0Too:
            if (has_high_word(creation) && has_high_word(modification) && has_high_word(duration))
                return FF4_RET_STATE;
            *version = 0;
            return FF4_RET_OK;
        case kVersionAuto:
            *version = has_high_word(creation | modification | duration) ? 1 : 0;
            return FF4_RET_OK;
        case kVersionAlways1:
            *version = 1;
            return FF4_RET_OK;
        default:
            return FF4_RET_INTERNAL;
    }
}

Mp4Result mp4_write_plain_atom(Mp4Sink& sink, uint32_t type, const void* payload, uint64_t size) {
    FF4_TRY(mp4_write_atom_header(sink.host, sink.options, sink.file, sink.position, size, type,
                                  nullptr, &sink.position));
    return mp4_put(sink, payload, size);
}

Mp4Result mp4_write_free(Mp4Sink& sink, uint64_t size) {
    for (const uint64_t header : {kAtomHeader, kLargeHeader}) {
        if (size < header) return FF4_RET_ARGS;
        const uint64_t payload = size - header;
        uint64_t whole = 0;
        FF4_TRY(mp4_atom_total_size(sink.host, sink.options, payload, &whole));
        if (whole != size) continue;
        FF4_TRY(mp4_write_atom_header(sink.host, sink.options, sink.file, sink.position, payload,
                                      fourcc("free"), nullptr, &sink.position));
        sink.position += payload;
        return FF4_RET_OK;
    }
    return FF4_RET_ARGS;
}

}  // namespace tarn

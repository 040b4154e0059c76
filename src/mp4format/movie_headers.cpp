#include "mp4format/movie_headers.h"

#include "mp4format/io.h"

namespace tarn {
namespace {

// The largest of these atoms, 'mvhd' of version 1; what lies behind is not looked at.
constexpr uint64_t kMostHead = 112;

// The bytes of a fixed atom, taken in order. The reader is given enough bytes for the version
// before it takes any.
class Fields {
public:
    explicit Fields(const uint8_t* at) : m_at(at) {}
    uint16_t U16() { return get_be16(Take(2)); }
    uint32_t U32() { return get_be32(Take(4)); }
    uint64_t U64() { return get_be64(Take(8)); }
    // A time or duration: 32 bits in version 0, 64 in version 1.
    uint64_t Time(uint32_t version) { return version == 1 ? U64() : U32(); }
    void Skip(size_t count) { m_at += count; }
    void Matrix(uint32_t (&matrix)[9]) {
        for (uint32_t& value : matrix)
            value = U32();
    }

private:
    const uint8_t* Take(size_t count) {
        const uint8_t* at = m_at;
        m_at += count;
        return at;
    }
    const uint8_t* m_at;
};

// Reads the head of a fixed atom that needs `size_v0` bytes in version 0 and `size_v1` in
// version 1.
Mp4Result read_fixed(Mp4Host* host, Mp4File* file, const Mp4Span& payload, uint64_t size_v0,
                     uint64_t size_v1, uint8_t (&bytes)[kMostHead]) {
    if (payload.size < size_v0) return FF4_RET_FORMAT;
    FF4_TRY(mp4_read_at(host, file, payload.offset, bytes,
                        payload.size < size_v1 ? payload.size : size_v1));
    const uint8_t version = bytes[0];
    if (version > 1 || (version == 1 && payload.size < size_v1)) return FF4_RET_FORMAT;
    return FF4_RET_OK;
}

}  // namespace

Mp4Result mp4_read_mvhd(Mp4Host* host, Mp4File* file, const Mp4Span& payload, Mp4MovieHeader* out) {
    if (!host || !file || !out) return FF4_RET_ARGS;
    uint8_t bytes[kMostHead];
    FF4_TRY(read_fixed(host, file, payload, 100, 112, bytes));
    Fields fields(bytes);
    out->version_flags = fields.U32();
    const uint32_t version = full_version(out->version_flags);
    out->creation_time = fields.Time(version);
    out->modification_time = fields.Time(version);
    out->timescale = fields.U32();
    out->duration = fields.Time(version);
    out->rate = fields.U32();
    out->volume = fields.U16();
    fields.Skip(10);
    fields.Matrix(out->matrix);
    fields.Skip(24);
    out->next_track_id = fields.U32();
    return FF4_RET_OK;
}

Mp4Result mp4_read_tkhd(Mp4Host* host, Mp4File* file, const Mp4Span& payload, Mp4TrackHeader* out) {
    if (!host || !file || !out) return FF4_RET_ARGS;
    uint8_t bytes[kMostHead];
    FF4_TRY(read_fixed(host, file, payload, 84, 96, bytes));
    Fields fields(bytes);
    out->version_flags = fields.U32();
    const uint32_t version = full_version(out->version_flags);
    out->creation_time = fields.Time(version);
    out->modification_time = fields.Time(version);
    out->track_id = fields.U32();
    fields.Skip(4);
    out->duration = fields.Time(version);
    fields.Skip(8);
    out->layer = fields.U16();
    out->alternate_group = fields.U16();
    out->volume = fields.U16();
    fields.Skip(2);
    fields.Matrix(out->matrix);
    out->width = fields.U32();
    out->height = fields.U32();
    return FF4_RET_OK;
}

Mp4Result mp4_read_mdhd(Mp4Host* host, Mp4File* file, const Mp4Span& payload, Mp4MediaHeader* out) {
    if (!host || !file || !out) return FF4_RET_ARGS;
    uint8_t bytes[kMostHead];
    FF4_TRY(read_fixed(host, file, payload, 24, 36, bytes));
    Fields fields(bytes);
    out->version_flags = fields.U32();
    const uint32_t version = full_version(out->version_flags);
    out->creation_time = fields.Time(version);
    out->modification_time = fields.Time(version);
    out->timescale = fields.U32();
    out->duration = fields.Time(version);
    out->language = fields.U16() & 0x7FFF;
    return FF4_RET_OK;
}

Mp4Result mp4_read_hdlr(Mp4Host* host, Mp4File* file, const Mp4Span& payload, Mp4Handler* out) {
    if (!host || !file || !out) return FF4_RET_ARGS;
    constexpr uint64_t kHandlerHead = 24;
    if (payload.size < kHandlerHead) return FF4_RET_FORMAT;
    uint8_t head[kHandlerHead];
    FF4_TRY(mp4_read_at(host, file, payload.offset, head, sizeof head));
    if (head[0] != 0) return FF4_RET_FORMAT;
    out->handler_type = get_be32(head + 8);
    out->name = {payload.offset + kHandlerHead, payload.size - kHandlerHead};
    return FF4_RET_OK;
}

}  // namespace tarn

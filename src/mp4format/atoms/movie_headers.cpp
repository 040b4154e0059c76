#include "mp4format/atoms/movie_headers.h"

#include "mp4format/io.h"

namespace tarn {
namespace {

// The largest of these atoms, 'mvhd' of version 1; what lies behind is not looked at.
constexpr uint64_t kMostHead = 112;

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

// What all three begin with: version and flags and both dates. Gives the version.
template <typename Header>
uint32_t take_head(Mp4FieldReader* fields, Header* out) {
    out->version_flags = fields->U32();
    const uint32_t version = full_version(out->version_flags);
    out->creation_time = fields->Time(version);
    out->modification_time = fields->Time(version);
    return version;
}

void take_matrix(Mp4FieldReader* fields, uint32_t (&matrix)[9]) {
    for (uint32_t& value : matrix)
        value = fields->U32();
}

}  // namespace

Mp4Result mp4_read_mvhd(Mp4Host* host, Mp4File* file, const Mp4Span& payload, Mp4MovieHeader* out) {
    if (!host || !file || !out) return FF4_RET_ARGS;
    uint8_t bytes[kMostHead];
    FF4_TRY(read_fixed(host, file, payload, 100, 112, bytes));
    Mp4FieldReader fields(bytes);
    const uint32_t version = take_head(&fields, out);
    out->timescale = fields.U32();
    out->duration = fields.Time(version);
    out->rate = fields.U32();
    out->volume = fields.U16();
    fields.Skip(10);
    take_matrix(&fields, out->matrix);
    fields.Skip(24);
    out->next_track_id = fields.U32();
    return FF4_RET_OK;
}

Mp4Result mp4_read_tkhd(Mp4Host* host, Mp4File* file, const Mp4Span& payload, Mp4TrackHeader* out) {
    if (!host || !file || !out) return FF4_RET_ARGS;
    uint8_t bytes[kMostHead];
    FF4_TRY(read_fixed(host, file, payload, 84, 96, bytes));
    Mp4FieldReader fields(bytes);
    const uint32_t version = take_head(&fields, out);
    out->track_id = fields.U32();
    fields.Skip(4);
    out->duration = fields.Time(version);
    fields.Skip(8);
    out->layer = fields.U16();
    out->alternate_group = fields.U16();
    out->volume = fields.U16();
    fields.Skip(2);
    take_matrix(&fields, out->matrix);
    out->width = fields.U32();
    out->height = fields.U32();
    return FF4_RET_OK;
}

Mp4Result mp4_read_mdhd(Mp4Host* host, Mp4File* file, const Mp4Span& payload, Mp4MediaHeader* out) {
    if (!host || !file || !out) return FF4_RET_ARGS;
    uint8_t bytes[kMostHead];
    FF4_TRY(read_fixed(host, file, payload, 24, 36, bytes));
    Mp4FieldReader fields(bytes);
    const uint32_t version = take_head(&fields, out);
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

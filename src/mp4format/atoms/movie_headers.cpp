#include "mp4format/atoms/movie_headers.h"

#include "mp4format/io.h"

namespace tarn {
namespace {

// The largest of these atoms, 'mvhd' of version 1; what lies behind is not looked at.
constexpr uint64_t kMostHead = 112;
constexpr uint16_t kLanguageBits = 0x7FFF;

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

// What all three begin with. Gives the version.
template <typename Fields, typename Header>
Mp4Result put_head(const Mp4Sink& sink, const Header& header, Fields* fields, uint32_t* version) {
    FF4_TRY(mp4_pick_version(sink.host, sink.options, header.creation_time,
                             header.modification_time, header.duration, version));
    fields->U32(*version << 24 | full_flags(header.version_flags));
    fields->Time(*version, header.creation_time);
    fields->Time(*version, header.modification_time);
    return FF4_RET_OK;
}

template <typename Fields>
void put_matrix(Fields* fields, const uint32_t (&matrix)[9]) {
    for (const uint32_t value : matrix)
        fields->U32(value);
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
    out->language = fields.U16() & kLanguageBits;
    return FF4_RET_OK;
}

Mp4Result mp4_write_mvhd(Mp4Sink& sink, const Mp4MovieHeader& header) {
    uint32_t version = 0;
    Mp4Fields<112> fields;
    FF4_TRY(put_head(sink, header, &fields, &version));
    fields.U32(header.timescale);
    fields.Time(version, header.duration);
    fields.U32(header.rate);
    fields.U16(header.volume);
    fields.Skip(10);
    put_matrix(&fields, header.matrix);
    fields.Skip(24);
    fields.U32(header.next_track_id);
    return mp4_write_fields(sink, fourcc("mvhd"), fields);
}

Mp4Result mp4_write_tkhd(Mp4Sink& sink, const Mp4TrackHeader& header) {
    uint32_t version = 0;
    Mp4Fields<96> fields;
    FF4_TRY(put_head(sink, header, &fields, &version));
    fields.U32(header.track_id);
    fields.Skip(4);
    fields.Time(version, header.duration);
    fields.Skip(8);
    fields.U16(header.layer);
    fields.U16(header.alternate_group);
    fields.U16(header.volume);
    fields.Skip(2);
    put_matrix(&fields, header.matrix);
    fields.U32(header.width);
    fields.U32(header.height);
    return mp4_write_fields(sink, fourcc("tkhd"), fields);
}

Mp4Result mp4_write_mdhd(Mp4Sink& sink, const Mp4MediaHeader& header) {
    uint32_t version = 0;
    Mp4Fields<36> fields;
    FF4_TRY(put_head(sink, header, &fields, &version));
    fields.U32(header.timescale);
    fields.Time(version, header.duration);
    fields.U16(header.language & kLanguageBits);
    fields.Skip(2);
    return mp4_write_fields(sink, fourcc("mdhd"), fields);
}

}  // namespace tarn

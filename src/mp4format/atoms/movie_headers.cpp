#include "mp4format/atoms/movie_headers.h"

#include "mp4format/io.h"

namespace tarn {
namespace {

// The largest of these atoms, 'mvhd' of version 1; what lies behind is not looked at.
constexpr uint64_t kMostHead = 112;
constexpr uint64_t kWider = 12;  // two dates and a duration in version 1
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

// The fields of each header after version, flags and dates, read or written in this order.
template <typename Fields, typename Matrix>
void each_of_matrix(Fields& fields, Matrix& matrix) {
    for (auto& value : matrix)
        fields.U32(value);
}

constexpr auto kMovieFields = [](auto& fields, uint32_t version, auto& header) {
    fields.U32(header.timescale);
    fields.Time(version, header.duration);
    fields.U32(header.rate);
    fields.U16(header.volume);
    fields.Skip(10);
    each_of_matrix(fields, header.matrix);
    fields.Skip(24);
    fields.U32(header.next_track_id);
};

constexpr auto kTrackFields = [](auto& fields, uint32_t version, auto& header) {
    fields.U32(header.track_id);
    fields.Skip(4);
    fields.Time(version, header.duration);
    fields.Skip(8);
    fields.U16(header.layer);
    fields.U16(header.alternate_group);
    fields.U16(header.volume);
    fields.Skip(2);
    each_of_matrix(fields, header.matrix);
    fields.U32(header.width);
    fields.U32(header.height);
};

constexpr auto kMediaFields = [](auto& fields, uint32_t version, auto& header) {
    fields.U32(header.timescale);
    fields.Time(version, header.duration);
    fields.U16(header.language);
    fields.Skip(2);
};

template <typename Header, typename Each>
Mp4Result read_header(Mp4Host* host, Mp4File* file, const Mp4Span& payload, uint64_t size_v0,
                      Header* out, Each each) {
    if (!host || !file || !out) return FF4_RET_ARGS;
    uint8_t bytes[kMostHead];
    FF4_TRY(read_fixed(host, file, payload, size_v0, size_v0 + kWider, bytes));
    Mp4FieldReader fields(bytes);
    fields.U32(out->version_flags);
    const uint32_t version = full_version(out->version_flags);
    fields.Time(version, out->creation_time);
    fields.Time(version, out->modification_time);
    each(fields, version, *out);
    return FF4_RET_OK;
}

template <typename Header, typename Each>
Mp4Result write_header(Mp4Sink& sink, uint32_t type, const Header& header, Each each) {
    uint32_t version = 0;
    FF4_TRY(mp4_pick_version(sink.host, sink.options, header.creation_time,
                             header.modification_time, header.duration, &version));
    Mp4Fields<kMostHead> fields;
    fields.U32(version << 24 | full_flags(header.version_flags));
    fields.Time(version, header.creation_time);
    fields.Time(version, header.modification_time);
    each(fields, version, header);
    return mp4_write_fields(sink, type, fields);
}

}  // namespace

Mp4Result mp4_read_mvhd(Mp4Host* host, Mp4File* file, const Mp4Span& payload, Mp4MovieHeader* out) {
    return read_header(host, file, payload, 100, out, kMovieFields);
}

Mp4Result mp4_read_tkhd(Mp4Host* host, Mp4File* file, const Mp4Span& payload, Mp4TrackHeader* out) {
    return read_header(host, file, payload, 84, out, kTrackFields);
}

Mp4Result mp4_read_mdhd(Mp4Host* host, Mp4File* file, const Mp4Span& payload, Mp4MediaHeader* out) {
    FF4_TRY(read_header(host, file, payload, 24, out, kMediaFields));
    out->language &= kLanguageBits;
    return FF4_RET_OK;
}

Mp4Result mp4_write_mvhd(Mp4Sink& sink, const Mp4MovieHeader& header) {
    return write_header(sink, fourcc("mvhd"), header, kMovieFields);
}

Mp4Result mp4_write_tkhd(Mp4Sink& sink, const Mp4TrackHeader& header) {
    return write_header(sink, fourcc("tkhd"), header, kTrackFields);
}

Mp4Result mp4_write_mdhd(Mp4Sink& sink, const Mp4MediaHeader& header) {
    Mp4MediaHeader kept = header;
    kept.language &= kLanguageBits;
    return write_header(sink, fourcc("mdhd"), kept, kMediaFields);
}

}  // namespace tarn

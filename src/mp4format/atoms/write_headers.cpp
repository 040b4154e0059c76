#include "mp4format/atoms/write_atoms.h"

namespace tarn {
namespace {

constexpr uint32_t kHandlerFlags = 0;
constexpr uint32_t kVideoHeaderFlags = 1;  // the format asks for it

struct HandlerName {
    uint32_t type;
    const char* name;
};

constexpr HandlerName kHandlerNames[] = {
    {fourcc("vide"), "Video Media Handler"},
    {fourcc("soun"), "Sound Media Handler"},
    {fourcc("GRAP"), "Graphics Media Handler"},
    {fourcc("PKDT"), "Packed Data Media Handler"},
    {fourcc("odsm"), "ObjectDescriptor Media Handler"},
    {fourcc("BKDT"), "Book Media Handler"},
};

uint32_t version_flags(uint32_t version, uint32_t flags) {
    return version << 24 | full_flags(flags);
}

template <typename Fields>
void put_matrix(Fields* fields, const uint32_t (&matrix)[9]) {
    for (const uint32_t value : matrix)
        fields->U32(value);
}

}  // namespace

Mp4Result mp4_write_ftyp(Mp4Sink& sink, const Mp4FileTypeBuild& type) {
    if (type.brand_count > 0 && !type.brands) return FF4_RET_ARGS;
    const auto body = [&](Mp4Sink& to) {
        Mp4Fields<8> head;
        head.U32(type.major_brand);
        head.U32(type.minor_version);
        FF4_TRY(mp4_put_fields(to, head));
        for (uint32_t i = 0; i < type.brand_count; ++i) {
            Mp4Fields<4> brand;
            brand.U32(type.brands[i]);
            FF4_TRY(mp4_put_fields(to, brand));
        }
        return FF4_RET_OK;
    };
    return mp4_write_container(sink, fourcc("ftyp"), body);
}

Mp4Result mp4_write_mvhd(Mp4Sink& sink, const Mp4MovieHeader& header) {
    uint32_t version = 0;
    FF4_TRY(mp4_pick_version(sink.host, sink.options, header.creation_time,
                             header.modification_time, header.duration, &version));
    Mp4Fields<112> fields;
    fields.U32(version_flags(version, header.version_flags));
    fields.Time(version, header.creation_time);
    fields.Time(version, header.modification_time);
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
    FF4_TRY(mp4_pick_version(sink.host, sink.options, header.creation_time,
                             header.modification_time, header.duration, &version));
    Mp4Fields<96> fields;
    fields.U32(version_flags(version, header.version_flags));
    fields.Time(version, header.creation_time);
    fields.Time(version, header.modification_time);
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
    constexpr uint16_t kLanguageBits = 0x7FFF;
    uint32_t version = 0;
    FF4_TRY(mp4_pick_version(sink.host, sink.options, header.creation_time,
                             header.modification_time, header.duration, &version));
    Mp4Fields<36> fields;
    fields.U32(version_flags(version, header.version_flags));
    fields.Time(version, header.creation_time);
    fields.Time(version, header.modification_time);
    fields.U32(header.timescale);
    fields.Time(version, header.duration);
    fields.U16(header.language & kLanguageBits);
    fields.Skip(2);
    return mp4_write_fields(sink, fourcc("mdhd"), fields);
}

Mp4Result mp4_write_hdlr(Mp4Sink& sink, uint32_t handler_type) {
    for (const HandlerName& handler : kHandlerNames) {
        if (handler.type != handler_type) continue;
        Mp4Fields<64> fields;
        fields.U32(kHandlerFlags);
        fields.Skip(4);
        fields.U32(handler_type);
        fields.Skip(12);
        fields.Copy(handler.name, std::strlen(handler.name) + 1);
        return mp4_write_fields(sink, fourcc("hdlr"), fields);
    }
    return FF4_RET_INTERNAL;
}

Mp4Result mp4_write_vmhd(Mp4Sink& sink, const Mp4MediaHeaderAtom& header) {
    if (header.type != fourcc("vmhd")) return FF4_RET_INTERNAL;
    Mp4Fields<12> fields;
    fields.U32(kVideoHeaderFlags);
    fields.U16(header.graphics_mode);
    for (const uint16_t color : header.op_color)
        fields.U16(color);
    return mp4_write_fields(sink, fourcc("vmhd"), fields);
}

Mp4Result mp4_write_smhd(Mp4Sink& sink, const Mp4MediaHeaderAtom& header) {
    if (header.type != fourcc("smhd")) return FF4_RET_INTERNAL;
    Mp4Fields<8> fields;
    fields.U32(0);
    fields.U16(static_cast<uint16_t>(header.balance));
    fields.Skip(2);
    return mp4_write_fields(sink, fourcc("smhd"), fields);
}

Mp4Result mp4_write_nmhd(Mp4Sink& sink, const Mp4MediaHeaderAtom& header) {
    if (header.type != fourcc("nmhd")) return FF4_RET_INTERNAL;
    Mp4Fields<4> fields;
    fields.U32(0);
    return mp4_write_fields(sink, fourcc("nmhd"), fields);
}

}  // namespace tarn

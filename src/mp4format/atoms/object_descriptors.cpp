#include "mp4format/atoms/object_descriptors.h"

namespace tarn {
namespace {

enum : uint8_t {
    kTagIpmp = 11,
    kTagEsIdInc = 14,
    kTagEsIdRef = 15,
    kTagInitialObject = 16,
    kTagObject = 17
};

// id (10 bits), URL flag, profile flag, 4 reserved bits that are set.
uint16_t object_head(const Mp4ObjectDescriptor& object, bool inline_profiles) {
    constexpr uint32_t kReserved = 0xF, kInlineProfiles = 0x10;
    return static_cast<uint16_t>(uint32_t{object.id} << 6 |
                                 (inline_profiles ? kInlineProfiles : 0) | kReserved);
}

// The streams of an object, 32 bits each in tag 14 and 16 in tag 15.
Mp4Result put_streams(Mp4Sink& sink, const Mp4ObjectDescriptor& object, uint8_t tag) {
    for (uint32_t i = 0; i < object.stream_count; ++i) {
        const auto body = [&](Mp4Sink& to) {
            Mp4Fields<4> stream;
            tag == kTagEsIdInc ? stream.U32(object.streams[i]) : stream.U16(object.streams[i]);
            return mp4_put_fields(to, stream);
        };
        FF4_TRY(mp4_write_descriptor(sink, tag, body));
    }
    return FF4_RET_OK;
}

bool is_valid(const Mp4ObjectDescriptor& object) {
    return object.id < 1 << 10 && (object.streams || object.stream_count == 0);
}

}  // namespace

Mp4Result mp4_write_initial_object_descriptor(Mp4Sink& sink, const Mp4ObjectDescriptor& object) {
    if (!is_valid(object)) return FF4_RET_ARGS;
    const auto body = [&](Mp4Sink& to) {
        Mp4Fields<7> fields;
        fields.U16(object_head(object, object.inline_profiles));
        fields.U8(object.od_profile);
        fields.U8(object.scene_profile);
        fields.U8(object.audio_profile);
        fields.U8(object.visual_profile);
        fields.U8(object.graphics_profile);
        FF4_TRY(mp4_put_fields(to, fields));
        return put_streams(to, object, kTagEsIdInc);
    };
    return mp4_write_descriptor(sink, kTagInitialObject, body);
}

Mp4Result mp4_write_object_descriptor(Mp4Sink& sink, const Mp4ObjectDescriptor& object) {
    if (!is_valid(object)) return FF4_RET_ARGS;
    const auto body = [&](Mp4Sink& to) {
        // The bit of the profiles is one of the reserved ones here.
        Mp4Fields<2> fields;
        fields.U16(object_head(object, true));
        FF4_TRY(mp4_put_fields(to, fields));
        return put_streams(to, object, kTagEsIdRef);
    };
    return mp4_write_descriptor(sink, kTagObject, body);
}

Mp4Result mp4_write_ipmp_descriptor(Mp4Sink& sink, const Mp4IpmpDescriptor& ipmp) {
    const auto body = [&](Mp4Sink& to) {
        Mp4Fields<3> fields;
        fields.U8(ipmp.id);
        fields.U16(ipmp.type);
        FF4_TRY(mp4_put_fields(to, fields));
        return mp4_put(to, ipmp.data, ipmp.size);
    };
    return mp4_write_descriptor(sink, kTagIpmp, body);
}

Mp4Result mp4_write_iods(Mp4Sink& sink, const Mp4ByteBlock& descriptor) {
    const auto body = [&](Mp4Sink& to) {
        FF4_TRY(mp4_put_words(to, 0));
        return mp4_put(to, descriptor.data, descriptor.size);
    };
    return mp4_write_container(sink, fourcc("iods"), body);
}

}  // namespace tarn

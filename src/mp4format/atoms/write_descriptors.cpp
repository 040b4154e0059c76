// MPEG-4 descriptors: those of an elementary stream in 'esds', those of the movie in 'iods'.
#include "mp4format/atoms/write_atoms.h"

namespace tarn {
namespace {

enum : uint8_t {
    kTagEs = 3,
    kTagDecoderConfig = 4,
    kTagSpecificInfo = 5,
    kTagSyncLayer = 6,
    kTagIpmp = 11,
    kTagEsIdInc = 14,
    kTagEsIdRef = 15,
    kTagInitialObject = 16,
    kTagObject = 17
};
enum : uint8_t { kHasDependence = 0x80, kHasUrl = 0x40, kHasOcr = 0x20 };

constexpr uint32_t kMostUrl = 255;        // its length is a byte
constexpr uint8_t kSyncLayerForFile = 2;  // predefined: reserved for use in files of this format

Mp4Result write_specific_info(Mp4Sink& sink, const Mp4EsDescriptor& es) {
    const auto body = [&](Mp4Sink& to) {
        const Mp4ByteBlock& info = es.decoder_specific_info;
        return mp4_put(to, info.data, info.size);
    };
    return mp4_write_descriptor(sink, kTagSpecificInfo, body);
}

Mp4Result write_decoder_config(Mp4Sink& sink, const Mp4EsDescriptor& es) {
    const auto body = [&](Mp4Sink& to) {
        Mp4Fields<13> fields;
        fields.U8(es.object_type_indication);
        fields.U8(uint32_t{es.stream_type} << 2 | (es.up_stream & 1u) << 1 | 1u);
        fields.U24(es.buffer_size_db);
        fields.U32(es.max_bitrate);
        fields.U32(es.avg_bitrate);
        FF4_TRY(mp4_put_fields(to, fields));
        return es.has_specific_info ? write_specific_info(to, es) : FF4_RET_OK;
    };
    return mp4_write_descriptor(sink, kTagDecoderConfig, body);
}

Mp4Result write_sync_layer(Mp4Sink& sink) {
    const auto body = [&](Mp4Sink& to) { return mp4_put(to, &kSyncLayerForFile, 1); };
    return mp4_write_descriptor(sink, kTagSyncLayer, body);
}

// What is in front of the descriptors within tag 3.
Mp4Result put_es_fields(Mp4Sink& sink, const Mp4EsDescriptor& es) {
    Mp4Fields<3 + 2 + 1 + kMostUrl + 2> fields;
    fields.U16(es.es_id);
    fields.U8(es.flags);
    if (es.flags & kHasDependence) fields.U16(es.depends_on_es_id);
    if (es.flags & kHasUrl) {
        if (es.url.size > kMostUrl) return FF4_RET_OVERFLOW;
        fields.U8(es.url.size);
        if (es.url.size > 0) fields.Copy(es.url.data, es.url.size);
    }
    if (es.flags & kHasOcr) fields.U16(es.ocr_es_id);
    return mp4_put_fields(sink, fields);
}

Mp4Result write_es(Mp4Sink& sink, const Mp4EsDescriptor& es) {
    const auto body = [&](Mp4Sink& to) {
        FF4_TRY(put_es_fields(to, es));
        if (!es.has_config) return FF4_RET_OK;
        FF4_TRY(write_decoder_config(to, es));
        return write_sync_layer(to);
    };
    return mp4_write_descriptor(sink, kTagEs, body);
}

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

Mp4Result mp4_write_esds(Mp4Sink& sink, const Mp4EsDescriptor& es) {
    const auto body = [&](Mp4Sink& to) {
        Mp4Fields<kFullHead> head;
        head.U32(0);
        FF4_TRY(mp4_put_fields(to, head));
        return es.has_es ? write_es(to, es) : FF4_RET_OK;
    };
    return mp4_write_container(sink, fourcc("esds"), body);
}

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
        Mp4Fields<kFullHead> head;
        head.U32(0);
        FF4_TRY(mp4_put_fields(to, head));
        return mp4_put(to, descriptor.data, descriptor.size);
    };
    return mp4_write_container(sink, fourcc("iods"), body);
}

}  // namespace tarn

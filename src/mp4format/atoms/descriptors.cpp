#include "mp4format/atoms/descriptors.h"

#include "mp4format/atom.h"

namespace tarn {
namespace {

enum : uint8_t { kTagEs = 3, kTagDecoderConfig = 4, kTagSpecificInfo = 5, kTagSyncLayer = 6 };
enum : uint8_t { kHasDependence = 0x80, kHasUrl = 0x40, kHasOcr = 0x20 };

// Takes fields off the front of a descriptor's payload, whose offset indexes `bytes`.
class FieldReader {
public:
    FieldReader(const uint8_t* bytes, const Mp4Span& payload) : m_bytes(bytes), m_left(payload) {}

    // The next `size` bytes, or null when there are fewer.
    const uint8_t* Take(uint64_t size) {
        if (size > m_left.size) return nullptr;
        const uint8_t* p = m_bytes + m_left.offset;
        m_left.offset += size;
        m_left.size -= size;
        return p;
    }
    Mp4Result Take16(uint16_t* value) {
        const uint8_t* p = Take(2);
        if (!p) return FF4_RET_FORMAT;
        *value = get_be16(p);
        return FF4_RET_OK;
    }
    Mp4Result Take8(uint8_t* value) {
        const uint8_t* p = Take(1);
        if (!p) return FF4_RET_FORMAT;
        *value = *p;
        return FF4_RET_OK;
    }
    const Mp4Span& Left() const { return m_left; }

private:
    const uint8_t* m_bytes;
    Mp4Span m_left;
};

Mp4Result read_decoder_config(Mp4Host* host, const uint8_t* bytes, const Mp4Span& payload,
                              Mp4EsDescriptor* es) {
    FieldReader reader(bytes, payload);
    const uint8_t* p = reader.Take(13);
    if (!p) return FF4_RET_FORMAT;
    es->has_config = true;
    es->object_type_indication = p[0];
    es->stream_type = p[1] >> 2;
    es->up_stream = p[1] >> 1 & 1;
    es->buffer_size_db = get_be24(p + 2);
    es->max_bitrate = get_be32(p + 5);
    es->avg_bitrate = get_be32(p + 9);

    return mp4_walk_descriptors(bytes, reader.Left(), [&](const Mp4AtomInfo& child) -> Mp4Result {
        if (child.type != kTagSpecificInfo || es->has_specific_info) return FF4_RET_OK;
        es->has_specific_info = true;
        es->specific_info_offset = static_cast<uint32_t>(child.payload.offset);
        return mp4_copy_block(host, bytes + child.payload.offset, child.payload.size,
                              &es->decoder_specific_info);
    });
}

Mp4Result read_url(Mp4Host* host, FieldReader* reader, Mp4EsDescriptor* es) {
    uint8_t length = 0;
    FF4_TRY(reader->Take8(&length));
    const uint8_t* url = reader->Take(length);
    return url ? mp4_copy_block(host, url, length, &es->url) : FF4_RET_FORMAT;
}

Mp4Result read_es(Mp4Host* host, const uint8_t* bytes, const Mp4Span& payload,
                  Mp4EsDescriptor* es) {
    FieldReader reader(bytes, payload);
    FF4_TRY(reader.Take16(&es->es_id));
    FF4_TRY(reader.Take8(&es->flags));
    es->has_es = true;
    if (es->flags & kHasDependence) FF4_TRY(reader.Take16(&es->depends_on_es_id));
    if (es->flags & kHasUrl) FF4_TRY(read_url(host, &reader, es));
    if (es->flags & kHasOcr) FF4_TRY(reader.Take16(&es->ocr_es_id));

    return mp4_walk_descriptors(bytes, reader.Left(), [&](const Mp4AtomInfo& child) -> Mp4Result {
        if (child.type != kTagDecoderConfig || es->has_config) return FF4_RET_OK;
        return read_decoder_config(host, bytes, child.payload, es);
    });
}

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

}  // namespace

Mp4Result mp4_read_es_descriptor(Mp4Host* host, const uint8_t* bytes, uint64_t size,
                                 Mp4EsDescriptor* es) {
    if (!host || !bytes || !es) return FF4_RET_ARGS;
    FF4_TRY(mp4_copy_block(host, bytes, size, &es->bytes));
    return mp4_walk_descriptors(bytes, {0, size}, [&](const Mp4AtomInfo& child) -> Mp4Result {
        if (child.type != kTagEs || es->has_es) return FF4_RET_OK;
        return read_es(host, bytes, child.payload, es);
    });
}

void mp4_free_es_descriptor(Mp4Host* host, Mp4EsDescriptor* es) {
    mp4_free_block(host, &es->bytes);
    mp4_free_block(host, &es->url);
    mp4_free_block(host, &es->decoder_specific_info);
    *es = {};
}

Mp4Result mp4_write_esds(Mp4Sink& sink, const Mp4EsDescriptor& es) {
    const auto body = [&](Mp4Sink& to) {
        FF4_TRY(mp4_put_words(to, 0));
        return es.has_es ? write_es(to, es) : FF4_RET_OK;
    };
    return mp4_write_container(sink, fourcc("esds"), body);
}

}  // namespace tarn

// descriptors.h - the MPEG-4 descriptors of 'esds': which codec a stream needs, its bit rates, and
// the bytes its decoder is set up with (ISO/IEC 14496-1, 7.2.6).
#pragma once

#include <cstdint>

#include "mp4format/atom_writer.h"
#include "mp4format/byte_block.h"

namespace tarn {

// The first ES descriptor (tag 3), its first decoder config (tag 4) and in there the first decoder
// specific info (tag 5). A descriptor that is not there leaves its fields 0.
struct Mp4EsDescriptor {
    Mp4ByteBlock bytes;  // all descriptors, behind the version and flags of 'esds'

    bool has_es;
    uint16_t es_id;
    uint8_t flags;  // bit 7 depends on another stream, bit 6 URL, bit 5 OCR; low 5 bits priority
    uint16_t depends_on_es_id;
    Mp4ByteBlock url;
    uint16_t ocr_es_id;

    bool has_config;
    uint8_t object_type_indication;
    uint8_t stream_type;
    uint8_t up_stream;
    uint32_t buffer_size_db;  // bytes
    uint32_t max_bitrate;     // bit/s
    uint32_t avg_bitrate;     // bit/s

    bool has_specific_info;
    uint32_t specific_info_offset;  // of its first byte in `bytes`
    Mp4ByteBlock decoder_specific_info;
};

// Reads the descriptors in `size` bytes into an empty record. FF4_RET_FORMAT for one that is too
// short. What was taken before a failure stays in the record.
Mp4Result mp4_read_es_descriptor(Mp4Host* host, const uint8_t* bytes, uint64_t size,
                                 Mp4EsDescriptor* es);
void mp4_free_es_descriptor(Mp4Host* host, Mp4EsDescriptor* es);

// From the fields alone; what the specific info is followed by is fixed. FF4_RET_OVERFLOW for a URL
// past 255 bytes.
Mp4Result mp4_write_esds(Mp4Sink& sink, const Mp4EsDescriptor& es);

}  // namespace tarn

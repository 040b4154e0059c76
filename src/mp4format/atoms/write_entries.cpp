// The entries of 'stsd'.
#include "mp4format/atoms/write_atoms.h"

namespace tarn {
namespace {

constexpr uint64_t kMostFixed = 78;  // bytes in front of the children, of a visual entry
using Fixed = Mp4Fields<kMostFixed>;

// Length byte, text, and zeros up to 32 bytes.
constexpr char kAvcCompressor[32] = "\012AVC Coding";
constexpr uint16_t kDepth = 24;

uint32_t format_of(const Mp4SampleEntry& entry) {
    if (entry.format != 0) return entry.format;
    switch (entry.kind) {
        case kEntryMpeg4Visual:
            return fourcc("mp4v");
        case kEntryAvc:
            return fourcc("avc1");
        case kEntryAudio:
            return fourcc("mp4a");
        case kEntryStream:
            return fourcc("mp4s");
        default:
            return 0;
    }
}

bool is_visual(const Mp4SampleEntry& entry) {
    return entry.kind == kEntryMpeg4Visual || entry.kind == kEntryAvc;
}

void put_visual(const Mp4SampleEntry& entry, Fixed* fixed) {
    const Mp4VisualFields& visual = entry.visual;
    fixed->Skip(16);
    fixed->U16(visual.width);
    fixed->U16(visual.height);
    fixed->U32(visual.horizontal_resolution);
    fixed->U32(visual.vertical_resolution);
    fixed->Skip(4);
    fixed->U16(visual.frame_count);
    fixed->Copy(
        entry.kind == kEntryAvc ? static_cast<const void*>(kAvcCompressor) : visual.compressor_name,
        sizeof visual.compressor_name);
    fixed->U16(kDepth);
    fixed->U16(0xFFFF);
}

// Always the plain form of version 0, whatever the source had.
void put_audio(const Mp4AudioFields& audio, Fixed* fixed) {
    fixed->Skip(8);
    fixed->U16(audio.channel_count);
    fixed->U16(audio.sample_size);
    fixed->Skip(4);
    fixed->U32(audio.sample_rate);
}

// What is in front of the children.
Mp4Result put_fixed(const Mp4SampleEntry& entry, Fixed* fixed) {
    fixed->Skip(6);
    fixed->U16(entry.data_reference_index);
    switch (entry.kind) {
        case kEntryMpeg4Visual:
        case kEntryAvc:
            put_visual(entry, fixed);
            return FF4_RET_OK;
        case kEntryAudio:
            put_audio(entry.audio, fixed);
            return FF4_RET_OK;
        case kEntryStream:
        case kEntryMetadata:
            return FF4_RET_OK;
        case kEntryBookmark:
        case kEntryPackedData:
            fixed->Skip(4);
            return FF4_RET_OK;
        case kEntryGraphics:
        case kEntryGraphicsStereo:
            fixed->Copy(entry.graphics.numbers, sizeof entry.graphics.numbers);
            return FF4_RET_OK;
        default:
            return FF4_RET_INTERNAL;
    }
}

// A child kept as bytes; nothing for an empty one.
Mp4Result put_block(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file, uint64_t offset,
                    uint32_t type, const Mp4ByteBlock& block, uint64_t* total) {
    if (block.size == 0) return FF4_RET_OK;
    return mp4_write_plain_atom(host, options, file, offset, type, block.data, block.size, total);
}

Mp4Result put_extra(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file, uint64_t offset,
                    const Mp4ByteBlock& extra, uint64_t* total) {
    if (extra.size == 0) return FF4_RET_OK;
    const auto body = [&](Mp4File* to, uint64_t at, uint64_t* size) {
        FF4_TRY(mp4_put_extended_type(host, to, at + *size, fourcc("3DDS"), size));
        return mp4_put(host, to, at + *size, extra.data, extra.size, size);
    };
    return mp4_write_container(host, options, file, offset, fourcc("uuid"), body, total);
}

Mp4Result put_stereo(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file, uint64_t offset,
                     const Mp4GraphicsFields& graphics, uint64_t* total) {
    Mp4Fields<1 + sizeof graphics.stereo_numbers> fields;
    fields.U8(graphics.stereo_version);
    fields.Copy(graphics.stereo_numbers, sizeof graphics.stereo_numbers);
    return mp4_write_fields(host, options, file, offset, fourcc("3STP"), fields, total);
}

Mp4Result put_config(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file, uint64_t offset,
                     const Mp4SampleEntry& entry, uint64_t* total) {
    switch (entry.kind) {
        case kEntryAvc:
            return mp4_write_avcc(host, options, file, offset, entry.avc, total);
        case kEntryMpeg4Visual:
        case kEntryStream:
            return mp4_write_esds(host, options, file, offset, entry.es, total);
        case kEntryAudio:  // PCM has none
            return entry.es.has_es ? mp4_write_esds(host, options, file, offset, entry.es, total)
                                   : FF4_RET_OK;
        case kEntryGraphicsStereo:
            return put_stereo(host, options, file, offset, entry.graphics, total);
        default:
            return FF4_RET_OK;
    }
}

Mp4Result put_children(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file,
                       uint64_t offset, const Mp4SampleEntry& entry, uint64_t* total) {
    uint64_t size = 0;
    FF4_TRY(put_config(host, options, file, offset, entry, &size));
    if (is_visual(entry)) {
        const Mp4VisualFields& visual = entry.visual;
        FF4_TRY(put_block(host, options, file, offset + size, fourcc("pasp"), visual.pasp, &size));
        FF4_TRY(put_block(host, options, file, offset + size, fourcc("colr"), visual.colr, &size));
        FF4_TRY(put_extra(host, options, file, offset + size, visual.extra, &size));
    }
    for (const Mp4ProtectionInfo* info = entry.sinf.head; info; info = info->next) {
        FF4_TRY(
            put_block(host, options, file, offset + size, fourcc("sinf"), info->payload, &size));
    }
    *total += size;
    return FF4_RET_OK;
}

// A count of parameter sets and the sets, each behind its length.
Mp4Result put_sets(Mp4Host* host, Mp4File* file, uint64_t offset, const Mp4ParameterSetList& sets,
                   uint32_t most, uint32_t reserved_bits, uint64_t* total) {
    if (sets.count > most) return FF4_RET_OVERFLOW;
    uint64_t size = 0;
    Mp4Fields<1> head;
    head.U8(reserved_bits | sets.count);
    FF4_TRY(mp4_put(host, file, offset, head.Data(), head.Size(), &size));
    for (const Mp4ParameterSet* set = sets.head; set; set = set->next) {
        if (set->data.size > UINT16_MAX) return FF4_RET_OVERFLOW;
        Mp4Fields<2> length;
        length.U16(set->data.size);
        FF4_TRY(mp4_put(host, file, offset + size, length.Data(), length.Size(), &size));
        FF4_TRY(mp4_put(host, file, offset + size, set->data.data, set->data.size, &size));
    }
    *total += size;
    return FF4_RET_OK;
}

}  // namespace

Mp4Result mp4_write_avcc(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file,
                         uint64_t offset, const Mp4AvcConfig& config, uint64_t* total) {
    constexpr uint32_t kMostSequenceSets = 31, kMostPictureSets = 255;
    if (config.bytes.size > 0)
        return put_block(host, options, file, offset, fourcc("avcC"), config.bytes, total);
    const auto body = [&](Mp4File* to, uint64_t at, uint64_t* size) {
        Mp4Fields<5> head;
        head.U8(config.configuration_version);
        head.U8(config.profile);
        head.U8(config.profile_compatibility);
        head.U8(config.level);
        head.U8(0xFCu | (config.length_size_minus_one & 3u));
        FF4_TRY(mp4_put(host, to, at + *size, head.Data(), head.Size(), size));
        FF4_TRY(
            put_sets(host, to, at + *size, config.sequence_sets, kMostSequenceSets, 0xE0, size));
        return put_sets(host, to, at + *size, config.picture_sets, kMostPictureSets, 0, size);
    };
    return mp4_write_container(host, options, file, offset, fourcc("avcC"), body, total);
}

Mp4Result mp4_write_sample_entry(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file,
                                 uint64_t offset, const Mp4SampleEntry& entry, uint64_t* total) {
    const uint32_t format = format_of(entry);
    if (format == 0) return FF4_RET_INTERNAL;
    Fixed fixed;
    FF4_TRY(put_fixed(entry, &fixed));
    const auto body = [&](Mp4File* to, uint64_t at, uint64_t* size) {
        FF4_TRY(mp4_put(host, to, at + *size, fixed.Data(), fixed.Size(), size));
        return put_children(host, options, to, at + *size, entry, size);
    };
    return mp4_write_container(host, options, file, offset, format, body, total);
}

Mp4Result mp4_write_stsd(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file,
                         uint64_t offset, const Mp4SampleEntryList& entries, uint64_t* total) {
    const auto body = [&](Mp4File* to, uint64_t at, uint64_t* size) {
        Mp4Fields<kTableHead> head;
        head.U32(0);
        head.U32(entries.count);
        FF4_TRY(mp4_put(host, to, at + *size, head.Data(), head.Size(), size));
        for (const Mp4SampleEntry* entry = entries.head; entry; entry = entry->next)
            FF4_TRY(mp4_write_sample_entry(host, options, to, at + *size, *entry, size));
        return FF4_RET_OK;
    };
    return mp4_write_container(host, options, file, offset, fourcc("stsd"), body, total);
}

}  // namespace tarn

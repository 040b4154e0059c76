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
Mp4Result put_block(Mp4Sink& sink, uint32_t type, const Mp4ByteBlock& block) {
    if (block.size == 0) return FF4_RET_OK;
    return mp4_write_plain_atom(sink, type, block.data, block.size);
}

Mp4Result put_extra(Mp4Sink& sink, const Mp4ByteBlock& extra) {
    if (extra.size == 0) return FF4_RET_OK;
    const auto body = [&](Mp4Sink& to) {
        FF4_TRY(mp4_put_extended_type(to, fourcc("3DDS")));
        return mp4_put(to, extra.data, extra.size);
    };
    return mp4_write_container(sink, fourcc("uuid"), body);
}

Mp4Result put_stereo(Mp4Sink& sink, const Mp4GraphicsFields& graphics) {
    Mp4Fields<1 + sizeof graphics.stereo_numbers> fields;
    fields.U8(graphics.stereo_version);
    fields.Copy(graphics.stereo_numbers, sizeof graphics.stereo_numbers);
    return mp4_write_fields(sink, fourcc("3STP"), fields);
}

Mp4Result put_config(Mp4Sink& sink, const Mp4SampleEntry& entry) {
    switch (entry.kind) {
        case kEntryAvc:
            return mp4_write_avcc(sink, entry.avc);
        case kEntryMpeg4Visual:
        case kEntryStream:
            return mp4_write_esds(sink, entry.es);
        case kEntryAudio:  // PCM has none
            return entry.es.has_es ? mp4_write_esds(sink, entry.es) : FF4_RET_OK;
        case kEntryGraphicsStereo:
            return put_stereo(sink, entry.graphics);
        default:
            return FF4_RET_OK;
    }
}

Mp4Result put_children(Mp4Sink& sink, const Mp4SampleEntry& entry) {
    FF4_TRY(put_config(sink, entry));
    if (is_visual(entry)) {
        const Mp4VisualFields& visual = entry.visual;
        FF4_TRY(put_block(sink, fourcc("pasp"), visual.pasp));
        FF4_TRY(put_block(sink, fourcc("colr"), visual.colr));
        FF4_TRY(put_extra(sink, visual.extra));
    }
    for (const Mp4ProtectionInfo* info = entry.sinf.head; info; info = info->next) {
        FF4_TRY(put_block(sink, fourcc("sinf"), info->payload));
    }
    return FF4_RET_OK;
}

// A count of parameter sets and the sets, each behind its length.
Mp4Result put_sets(Mp4Sink& sink, const Mp4ParameterSetList& sets, uint32_t most,
                   uint32_t reserved_bits) {
    if (sets.count > most) return FF4_RET_OVERFLOW;
    Mp4Fields<1> head;
    head.U8(reserved_bits | sets.count);
    FF4_TRY(mp4_put_fields(sink, head));
    for (const Mp4ParameterSet* set = sets.head; set; set = set->next) {
        if (set->data.size > UINT16_MAX) return FF4_RET_OVERFLOW;
        Mp4Fields<2> length;
        length.U16(set->data.size);
        FF4_TRY(mp4_put_fields(sink, length));
        FF4_TRY(mp4_put(sink, set->data.data, set->data.size));
    }
    return FF4_RET_OK;
}

}  // namespace

Mp4Result mp4_write_avcc(Mp4Sink& sink, const Mp4AvcConfig& config) {
    constexpr uint32_t kMostSequenceSets = 31, kMostPictureSets = 255;
    if (config.bytes.size > 0) return put_block(sink, fourcc("avcC"), config.bytes);
    const auto body = [&](Mp4Sink& to) {
        Mp4Fields<5> head;
        head.U8(config.configuration_version);
        head.U8(config.profile);
        head.U8(config.profile_compatibility);
        head.U8(config.level);
        head.U8(0xFCu | (config.length_size_minus_one & 3u));
        FF4_TRY(mp4_put_fields(to, head));
        FF4_TRY(put_sets(to, config.sequence_sets, kMostSequenceSets, 0xE0));
        return put_sets(to, config.picture_sets, kMostPictureSets, 0);
    };
    return mp4_write_container(sink, fourcc("avcC"), body);
}

Mp4Result mp4_write_sample_entry(Mp4Sink& sink, const Mp4SampleEntry& entry) {
    const uint32_t format = format_of(entry);
    if (format == 0) return FF4_RET_INTERNAL;
    Fixed fixed;
    FF4_TRY(put_fixed(entry, &fixed));
    const auto body = [&](Mp4Sink& to) {
        FF4_TRY(mp4_put_fields(to, fixed));
        return put_children(to, entry);
    };
    return mp4_write_container(sink, format, body);
}

Mp4Result mp4_write_stsd(Mp4Sink& sink, const Mp4SampleEntryList& entries) {
    const auto body = [&](Mp4Sink& to) {
        Mp4Fields<kTableHead> head;
        head.U32(0);
        head.U32(entries.count);
        FF4_TRY(mp4_put_fields(to, head));
        for (const Mp4SampleEntry* entry = entries.head; entry; entry = entry->next)
            FF4_TRY(mp4_write_sample_entry(to, *entry));
        return FF4_RET_OK;
    };
    return mp4_write_container(sink, fourcc("stsd"), body);
}

}  // namespace tarn

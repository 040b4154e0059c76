#include "mp4format/atoms/sample_entries.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>

#include "mp4format/atoms/hevc_entry.h"
#include "mp4format/atoms/user_atoms.h"
#include "mp4format/io.h"

namespace tarn {
namespace {

enum class Layout { kNone, kVisual, kAudio, kStream, kBookmark, kMetadata, kPacked, kGraphics };

struct LayoutRule {
    uint32_t handler, kind;
    uint64_t fixed;  // bytes of payload in front of the children
};

constexpr LayoutRule kRules[] = {
    {0, kEntryUnknown, 0},
    {fourcc("vide"), kEntryUnknown, 78},
    {fourcc("soun"), kEntryAudio, 28},
    {fourcc("odsm"), kEntryStream, 8},
    {fourcc("BKDT"), kEntryBookmark, 12},
    {fourcc("meta"), kEntryMetadata, 8},
    {fourcc("PKDT"), kEntryPackedData, 12},
    {fourcc("GRAP"), kEntryGraphics, 32},
};

Layout layout_of_format(uint32_t format) {
    switch (format) {
        case fourcc("encv"):
        case fourcc("mp4v"):
        case fourcc("PNG "):
            return Layout::kVisual;
        case fourcc("encm"):
        case fourcc("LBIN"):
            return Layout::kMetadata;
        default:
            return Layout::kNone;
    }
}

Layout layout_of(uint32_t handler, uint32_t format) {
    if (handler == kHandlerByFormat) return layout_of_format(format);
    for (size_t i = 1; i < std::size(kRules); ++i)
        if (kRules[i].handler == handler) return static_cast<Layout>(i);
    return Layout::kNone;
}

// One entry under construction. `m_bytes` holds its payload; spans index it.
class EntryReader {
public:
    EntryReader(Mp4Host* host, const uint8_t* bytes, Layout layout, Mp4SampleEntry* entry)
        : m_host(host), m_bytes(bytes), m_layout(layout), m_entry(entry) {}

    Mp4Result Read(const Mp4Span& payload) {
        if (m_layout == Layout::kNone) return FF4_RET_OK;
        const LayoutRule& rule = kRules[static_cast<int>(m_layout)];
        if (payload.size < rule.fixed) return FF4_RET_FORMAT;
        const uint8_t* p = m_bytes + payload.offset;
        m_entry->kind = rule.kind;
        m_entry->data_reference_index = get_be16(p + 6);
        uint64_t fixed = rule.fixed;
        if (m_layout == Layout::kVisual) ReadVisual(p);
        if (m_layout == Layout::kGraphics) std::memcpy(m_entry->graphics.numbers, p + 8, 24);
        if (m_layout == Layout::kAudio) FF4_TRY(ReadAudio(p, payload.size, &fixed));
        const Mp4Span children{payload.offset + fixed, payload.size - fixed};
        FF4_TRY(Walk(children));
        return m_layout == Layout::kVisual ? FinishHevc(payload, children) : FF4_RET_OK;
    }

private:
    // A hurt one counts as without configuration: written as it is, it would hurt another file.
    Mp4Result FinishHevc(const Mp4Span& payload, const Mp4Span& children) {
        const Mp4ByteBlock& config = m_entry->visual.hvcc;
        if (m_has_config || !mp4_is_hevc(m_entry->format) || !config.data ||
            !mp4_is_hevc_config_whole(config.data, config.size) ||
            !mp4_are_children_whole(m_bytes + children.offset, children.size))
            return FF4_RET_OK;
        m_entry->visual.config_type = fourcc("hvcC");
        return Keep(payload, &m_entry->visual.as_read);
    }

    void ReadVisual(const uint8_t* p) {
        Mp4VisualFields& visual = m_entry->visual;
        visual.width = get_be16(p + 24);
        visual.height = get_be16(p + 26);
        visual.horizontal_resolution = get_be32(p + 28);
        visual.vertical_resolution = get_be32(p + 32);
        visual.frame_count = get_be16(p + 40);
        std::memcpy(visual.compressor_name, p + 42, sizeof visual.compressor_name);
        visual.depth = get_be16(p + 74);
    }

    // `fixed` comes as the size of version 0 and grows by what the QuickTime versions add.
    Mp4Result ReadAudio(const uint8_t* p, uint64_t size, uint64_t* fixed) {
        constexpr uint64_t kVersion1Extra = 16, kVersion2Extra = 36;
        Mp4AudioFields& audio = m_entry->audio;
        audio.version = get_be16(p + 8);
        audio.channel_count = get_be16(p + 16);
        audio.sample_size = get_be16(p + 18);
        audio.sample_rate = get_be32(p + 24);
        audio.sampling_rate = audio.sample_rate >> 16;
        const uint64_t extra = audio.version == 1   ? kVersion1Extra
                               : audio.version == 2 ? kVersion2Extra
                                                    : 0;
        if (size - *fixed < extra) return FF4_RET_FORMAT;
        if (audio.version == 2) ReadAudioVersion2(p + *fixed);
        *fixed += extra;
        return FF4_RET_OK;
    }

    // u32 size, f64 rate, u32 channels, u32 0x7F000000, u32 bits, three more; the numbers of
    // version 0 in front are fillers there.
    void ReadAudioVersion2(const uint8_t* p) {
        Mp4AudioFields& audio = m_entry->audio;
        const uint64_t bits = get_be64(p + 4);
        double rate = 0;
        std::memcpy(&rate, &bits, sizeof rate);
        audio.sampling_rate =
            rate >= 0 && rate < UINT32_MAX ? static_cast<uint32_t>(std::lround(rate)) : 0;
        audio.sample_rate = audio.sampling_rate <= UINT16_MAX ? audio.sampling_rate << 16 : 0;
        audio.channel_count =
            static_cast<uint16_t>(std::min<uint32_t>(get_be32(p + 12), UINT16_MAX));
        const uint32_t sample_bits = get_be32(p + 20);
        if (sample_bits > 0 && sample_bits <= UINT16_MAX)
            audio.sample_size = static_cast<uint16_t>(sample_bits);
    }

    Mp4Result Walk(const Mp4Span& children) {
        return mp4_walk_mem(m_host, m_bytes, children,
                            [&](const Mp4AtomInfo& child) { return Visit(child); });
    }

    Mp4Result Visit(const Mp4AtomInfo& child) {
        switch (m_layout) {
            case Layout::kVisual:
                return VisitVisual(child);
            case Layout::kAudio:
                // QuickTime hides the descriptors one level deeper.
                if (child.type == fourcc("wave")) return VisitWave(child.payload);
                if (child.type == fourcc("sinf")) return ReadSinf(child.payload);
                return child.type == fourcc("esds") ? ReadEsds(child.payload) : FF4_RET_OK;
            case Layout::kStream:
                return child.type == fourcc("esds") ? ReadEsds(child.payload) : FF4_RET_OK;
            case Layout::kMetadata:
                return child.type == fourcc("sinf") ? ReadSinf(child.payload) : FF4_RET_OK;
            case Layout::kGraphics:
                return child.type == fourcc("3STP") ? ReadStereo(child.payload) : FF4_RET_OK;
            default:
                return FF4_RET_OK;
        }
    }

    Mp4Result VisitVisual(const Mp4AtomInfo& child) {
        Mp4VisualFields& visual = m_entry->visual;
        switch (child.type) {
            case fourcc("esds"):
                return ReadEsds(child.payload);
            case fourcc("avcC"):
                return ReadAvcc(child.payload);
            case fourcc("sinf"):
                return ReadSinf(child.payload);
            case fourcc("pasp"):
                return Keep(child.payload, &visual.pasp);
            case fourcc("hvcC"):
                return Keep(child.payload, &visual.hvcc);
            case fourcc("colr"):
                return Keep(child.payload, &visual.colr);
            case fourcc("uuid"):
                return ReadExtra(child.payload);
            default:
                return FF4_RET_OK;
        }
    }

    Mp4Result VisitWave(const Mp4Span& payload) {
        return mp4_walk_mem(m_host, m_bytes, payload, [&](const Mp4AtomInfo& child) -> Mp4Result {
            return child.type == fourcc("esds") ? ReadEsds(child.payload) : FF4_RET_OK;
        });
    }

    Mp4Result ReadEsds(const Mp4Span& payload) {
        if (m_has_config) return FF4_RET_OK;
        if (payload.size < kFullHead) return FF4_RET_FORMAT;
        if (full_version(get_be32(m_bytes + payload.offset)) != 0) return FF4_RET_FORMAT;
        m_has_config = true;
        if (m_layout == Layout::kVisual) {
            m_entry->kind = kEntryMpeg4Visual;
            m_entry->visual.config_type = fourcc("esds");
        }
        return mp4_read_es_descriptor(m_host, m_bytes + payload.offset + kFullHead,
                                      payload.size - kFullHead, &m_entry->es);
    }

    Mp4Result ReadAvcc(const Mp4Span& payload) {
        if (m_has_config) return FF4_RET_OK;
        m_has_config = true;
        m_entry->kind = kEntryAvc;
        m_entry->visual.config_type = fourcc("avcC");
        return mp4_read_avc_config(m_host, m_bytes + payload.offset, payload.size, &m_entry->avc);
    }

    Mp4Result ReadSinf(const Mp4Span& payload) {
        auto info = mp4_make<Mp4ProtectionInfo>(m_host);
        if (!info) return FF4_RET_NOMEM;
        bool has_format = false;
        FF4_TRY(mp4_walk_mem(m_host, m_bytes, payload, [&](const Mp4AtomInfo& child) -> Mp4Result {
            if (child.type != fourcc("frma") || has_format) return FF4_RET_OK;
            if (child.payload.size < 4) return FF4_RET_FORMAT;
            has_format = true;
            info->original_format = get_be32(m_bytes + child.payload.offset);
            return FF4_RET_OK;
        }));
        FF4_TRY(Keep(payload, &info->payload));
        mp4_append(&m_entry->sinf, info.release());
        return FF4_RET_OK;
    }

    Mp4Result ReadExtra(const Mp4Span& payload) {
        Mp4ExtendedType type{};
        FF4_TRY(mp4_read_extended_type_mem(m_bytes, payload, &type));
        if (!type.family || type.words[0] != fourcc("3DDS")) return FF4_RET_OK;
        return Keep(type.rest, &m_entry->visual.extra);
    }

    Mp4Result ReadStereo(const Mp4Span& payload) {
        if (m_entry->kind == kEntryGraphicsStereo) return FF4_RET_OK;
        Mp4GraphicsFields& graphics = m_entry->graphics;
        if (payload.size < 1 + sizeof graphics.stereo_numbers) return FF4_RET_FORMAT;
        const uint8_t* p = m_bytes + payload.offset;
        if (p[0] > 1) return FF4_RET_FORMAT;
        m_entry->kind = kEntryGraphicsStereo;
        graphics.stereo_version = p[0];
        std::memcpy(graphics.stereo_numbers, p + 1, sizeof graphics.stereo_numbers);
        return FF4_RET_OK;
    }

    // Copies the first payload of its kind; later ones are stepped over.
    Mp4Result Keep(const Mp4Span& payload, Mp4ByteBlock* block) {
        return block->data ? FF4_RET_OK
                           : mp4_copy_block(m_host, m_bytes + payload.offset, payload.size, block);
    }

    Mp4Host* m_host;
    const uint8_t* m_bytes;
    Layout m_layout;
    Mp4SampleEntry* m_entry;
    bool m_has_config = false;
};

struct EntryDeleter {
    Mp4Host* host;
    void operator()(Mp4SampleEntry* entry) const { mp4_free_sample_entry(host, entry); }
};

Mp4Result read_entry(Mp4Host* host, const uint8_t* bytes, const Mp4Span& payload, uint32_t handler,
                     Mp4SampleEntry* entry) {
    return EntryReader(host, bytes, layout_of(handler, entry->format), entry).Read(payload);
}

// --- writing

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

// Byte for byte, but for where the samples lie.
Mp4Result write_as_read(Mp4Sink& sink, const Mp4SampleEntry& entry) {
    const Mp4ByteBlock& bytes = entry.visual.as_read;
    Mp4Fields<8> head;
    if (bytes.size < 8) return FF4_RET_INTERNAL;
    head.Copy(bytes.data, 6);
    head.U16(entry.data_reference_index);
    const auto body = [&](Mp4Sink& to) {
        FF4_TRY(mp4_put_fields(to, head));
        return mp4_put(to, bytes.data + 8, bytes.size - 8);
    };
    return mp4_write_container(sink, entry.format, body);
}

}  // namespace

Mp4Result mp4_read_sample_entries(Mp4Host* host, Mp4File* file, const Mp4Span& entries,
                                  uint32_t count, uint32_t handler, Mp4SampleEntryList* list) {
    if (!host || !file || !list) return FF4_RET_ARGS;
    Mp4Span left = entries;
    for (uint32_t n = 0; n < count && left.size >= kAtomHeader; ++n) {
        Mp4SampleEntry* entry = nullptr;
        FF4_TRY(mp4_take_sample_entry(host, file, handler, &left, &entry));
        mp4_append(list, entry);
        ++list->count;
    }
    return FF4_RET_OK;
}

Mp4Result mp4_take_sample_entry(Mp4Host* host, Mp4File* file, uint32_t handler, Mp4Span* left,
                                Mp4SampleEntry** out) {
    if (!host || !file || !left || !out) return FF4_RET_ARGS;
    Mp4AtomInfo atom{};
    FF4_TRY(mp4_blame(host, fourcc("stsd"),
                      mp4_read_atom_header(host, file, left->offset, left->size, &atom)));
    HostPtr<uint8_t> bytes(nullptr, {host});
    FF4_TRY(mp4_read_block(host, file, atom.payload.offset, atom.payload.size, &bytes));
    std::unique_ptr<Mp4SampleEntry, EntryDeleter> entry(mp4_make<Mp4SampleEntry>(host).release(),
                                                        {host});
    if (!entry) return FF4_RET_NOMEM;
    entry->format = atom.type;
    FF4_TRY(mp4_blame(host, atom.type,
                      read_entry(host, bytes.get(), {0, atom.payload.size}, handler, entry.get())));
    left->offset += atom.atom.size;
    left->size -= atom.atom.size;
    *out = entry.release();
    return FF4_RET_OK;
}

void mp4_free_sample_entry(Mp4Host* host, Mp4SampleEntry* entry) {
    if (!entry) return;
    mp4_free_block(host, &entry->visual.pasp);
    mp4_free_block(host, &entry->visual.colr);
    mp4_free_block(host, &entry->visual.hvcc);
    mp4_free_block(host, &entry->visual.extra);
    mp4_free_block(host, &entry->visual.as_read);
    mp4_free_es_descriptor(host, &entry->es);
    mp4_free_avc_config(host, &entry->avc);
    mp4_free_list(&entry->sinf, [=](Mp4ProtectionInfo* info) {
        mp4_free_block(host, &info->payload);
        mp4_free(host, info);
    });
    mp4_free(host, entry);
}

void mp4_free_sample_entries(Mp4Host* host, Mp4SampleEntryList* list) {
    mp4_free_list(list, [=](Mp4SampleEntry* entry) { mp4_free_sample_entry(host, entry); });
}

const Mp4SampleEntry* mp4_sample_entry_at(const Mp4SampleEntryList& list, uint32_t n) {
    return mp4_nth(list.head, n);
}

Mp4Result mp4_write_sample_entry(Mp4Sink& sink, const Mp4SampleEntry& entry) {
    const uint32_t format = format_of(entry);
    if (format == 0) return FF4_RET_INTERNAL;
    if (entry.visual.config_type == fourcc("hvcC")) return write_as_read(sink, entry);
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
        FF4_TRY(mp4_put_words(to, 0, entries.count));
        for (const Mp4SampleEntry* entry = entries.head; entry; entry = entry->next)
            FF4_TRY(mp4_write_sample_entry(to, *entry));
        return FF4_RET_OK;
    };
    return mp4_write_container(sink, fourcc("stsd"), body);
}

}  // namespace tarn

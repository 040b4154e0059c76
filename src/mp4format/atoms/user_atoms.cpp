#include "mp4format/atoms/user_atoms.h"

#include "mp4format/io.h"

namespace tarn {
namespace {

constexpr uint64_t kExtendedType = 16;
constexpr uint32_t kFamily[] = {0x21D24FCE, 0xBB88695C, 0xFAC9C740};

void decode_extended_type(const uint8_t* name, const Mp4Span& payload, Mp4ExtendedType* type) {
    for (int i = 0; i < 4; ++i)
        type->words[i] = get_be32(name + 4 * i);
    type->family = type->words[1] == kFamily[0] && type->words[2] == kFamily[1] &&
                   type->words[3] == kFamily[2];
    type->rest = {payload.offset + kExtendedType, payload.size - kExtendedType};
}

// Reads what an atom of the list says of its items.
Mp4Result read_items_head(Mp4Host* host, Mp4File* file, Mp4UserAtom* item) {
    constexpr uint64_t kItemCount = 2;
    switch (item->type) {
        case fourcc("MTDT"):
        case fourcc("MTDF"): {
            if (item->payload.size < kItemCount) return FF4_RET_FORMAT;
            uint8_t count[kItemCount];
            FF4_TRY(mp4_read_at(host, file, item->payload.offset, count, sizeof count));
            item->item_count = get_be16(count);
            item->entries = {item->payload.offset + kItemCount, item->payload.size - kItemCount};
            return FF4_RET_OK;
        }
        case fourcc("MTSM"):
        case fourcc("MVPL"):
        case fourcc("UASI"):
            item->entries = item->payload;
            return FF4_RET_OK;
        default:
            return FF4_RET_OK;
    }
}

}  // namespace

Mp4Result mp4_read_extended_type(Mp4Host* host, Mp4File* file, const Mp4Span& payload,
                                 Mp4ExtendedType* type) {
    if (!host || !file || !type) return FF4_RET_ARGS;
    if (payload.size < kExtendedType) return FF4_RET_FORMAT;
    uint8_t name[kExtendedType];
    FF4_TRY(mp4_read_at(host, file, payload.offset, name, sizeof name));
    decode_extended_type(name, payload, type);
    return FF4_RET_OK;
}

Mp4Result mp4_read_extended_type_mem(const uint8_t* buffer, const Mp4Span& payload,
                                     Mp4ExtendedType* type) {
    if (!buffer || !type) return FF4_RET_ARGS;
    if (payload.size < kExtendedType) return FF4_RET_FORMAT;
    decode_extended_type(buffer + payload.offset, payload, type);
    return FF4_RET_OK;
}

Mp4Result mp4_read_user_atoms(Mp4Host* host, Mp4File* file, const Mp4Span& span, int64_t limit,
                              Mp4UserAtomList* list) {
    if (!host || !file || !list) return FF4_RET_ARGS;
    Mp4Span left = span;
    for (int64_t n = 0; left.size >= kAtomHeader && (limit < 0 || n < limit); ++n) {
        Mp4AtomInfo info{};
        FF4_TRY(mp4_read_atom_header(host, file, left.offset, left.size, &info));
        auto item = mp4_make<Mp4UserAtom>(host);
        if (!item) return FF4_RET_NOMEM;
        item->type = info.type;
        item->item_count = -1;
        item->atom = info.atom;
        item->payload = info.payload;
        FF4_TRY(mp4_blame(host, item->type, read_items_head(host, file, item.get())));
        mp4_append(list, item.release());
        left.offset += info.atom.size;
        left.size -= info.atom.size;
    }
    return FF4_RET_OK;
}

void mp4_free_user_atoms(Mp4Host* host, Mp4UserAtomList* list) {
    mp4_free_list(host, list);
}

const Mp4UserAtom* mp4_find_user_atom(const Mp4UserAtomList& list, uint32_t type) {
    const Mp4UserAtom* item = list.head;
    while (item && item->type != type)
        item = item->next;
    return item;
}

Mp4Result mp4_put_extended_type(Mp4Sink& sink, uint32_t name) {
    return mp4_put_words(sink, name, kFamily[0], kFamily[1], kFamily[2]);
}

}  // namespace tarn

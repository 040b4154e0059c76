#include "mp4format/atoms/meta_items.h"

#include "mp4format/io.h"

namespace tarn {
namespace {

constexpr uint64_t kItemHead = 4;  // language and encoding
constexpr uint64_t kWholeItemHead = kSmallAtomHeader + kItemHead;
constexpr uint16_t kLanguageBits = 0x7FFF;

Mp4Result read_item(Mp4Host* host, Mp4File* file, const Mp4AtomInfo& atom, uint64_t limit,
                    Mp4MetaList* list) {
    if (atom.payload.size < kItemHead) return FF4_RET_FORMAT;
    uint8_t head[kItemHead];
    FF4_TRY(mp4_read_at(host, file, atom.payload.offset, head, sizeof head));

    auto item = mp4_make<Mp4MetaItem>(host);
    if (!item) return FF4_RET_NOMEM;
    item->type = atom.type;
    item->flag = head[0] >> 7;
    item->language = get_be16(head) & kLanguageBits;
    item->encoding = get_be16(head + 2);
    item->payload = {atom.payload.offset + kItemHead, atom.payload.size - kItemHead};
    if (item->payload.size <= limit) {
        HostPtr<uint8_t> data(nullptr, {host});
        FF4_TRY(mp4_read_block(host, file, item->payload.offset, item->payload.size, &data));
        item->data = {data.release(), static_cast<uint32_t>(item->payload.size)};
        item->loaded = true;
    }
    mp4_append(list, item.release());
    ++list->count;
    return FF4_RET_OK;
}

// A small atom: u16 size and u32 type, then u16 language with the flag on top, u16 encoding, data.
Mp4Result write_item(Mp4Sink& sink, const Mp4MetaItem& item) {
    if (item.data.size > kMostMetaData) return FF4_RET_OVERFLOW;
    Mp4Fields<kWholeItemHead> head;
    head.U16(static_cast<uint32_t>(kWholeItemHead) + item.data.size);
    head.U32(item.type);
    head.U16(uint32_t{item.flag} << 15 | (item.language & kLanguageBits));
    head.U16(item.encoding);
    FF4_TRY(mp4_put_fields(sink, head));
    return mp4_put(sink, item.data.data, item.data.size);
}

}  // namespace

Mp4Result mp4_read_meta_items(Mp4Host* host, Mp4File* file, const Mp4UserAtom& atom, uint64_t limit,
                              Mp4MetaList* list) {
    if (!host || !file || !list) return FF4_RET_ARGS;
    if (atom.item_count < 0) return FF4_RET_ARGS;
    if (atom.type == fourcc("MTDF")) limit = UINT64_MAX;

    Mp4Span left = atom.entries;
    for (int32_t n = 0; n < atom.item_count && left.size >= kSmallAtomHeader; ++n) {
        Mp4AtomInfo info{};
        FF4_TRY(mp4_blame(host, atom.type,
                          mp4_read_small_atom_header(host, file, left.offset, left.size, &info)));
        FF4_TRY(mp4_blame(host, atom.type, read_item(host, file, info, limit, list)));
        left.offset += info.atom.size;
        left.size -= info.atom.size;
    }
    return FF4_RET_OK;
}

void mp4_free_meta_items(Mp4Host* host, Mp4MetaList* list) {
    mp4_free_list(list, [=](Mp4MetaItem* item) {
        mp4_free_block(host, &item->data);
        mp4_free(host, item);
    });
}

const Mp4MetaItem* mp4_meta_item_at(const Mp4MetaList& list, uint32_t n) {
    return mp4_nth(list.head, n);
}

Mp4Result mp4_get_meta_payload(Mp4Host* host, Mp4File* file, const Mp4MetaItem& item,
                               uint64_t capacity, uint8_t* buffer) {
    if (!host || !file || !buffer || capacity < item.payload.size) return FF4_RET_ARGS;
    if (item.payload.size == 0) return FF4_RET_OK;
    if (!item.loaded)
        return mp4_read_at(host, file, item.payload.offset, buffer, item.payload.size);
    host->callbacks.memcpy(host->callbacks.userData, buffer, capacity, item.data.data,
                           item.data.size);
    return FF4_RET_OK;
}

Mp4Result mp4_find_meta_item(const Mp4MetaList& list, uint32_t* index, const Mp4MetaItem** item) {
    constexpr uint32_t kType = 10;
    constexpr uint16_t kLanguageUndetermined = 0x55C4;
    if (!index || !item) return FF4_RET_ARGS;
    uint32_t n = 1;
    for (const Mp4MetaItem* at = list.head; at; at = at->next, ++n) {
        if (at->type != kType || at->language != kLanguageUndetermined || at->encoding != 0)
            continue;
        *index = n;
        *item = at;
        return FF4_RET_OK;
    }
    return FF4_RET_NOTFOUND;
}

Mp4Result mp4_add_meta_item(Mp4Host* host, const Mp4MetaItem& item, Mp4MetaList* list) {
    if (!host || !list || (item.data.size > 0 && !item.data.data)) return FF4_RET_ARGS;
    if (item.data.size > kMostMetaData || list->count >= UINT16_MAX) return FF4_RET_OVERFLOW;
    auto copy = mp4_make<Mp4MetaItem>(host);
    if (!copy) return FF4_RET_NOMEM;
    if (item.data.size > 0)
        FF4_TRY(mp4_copy_block(host, item.data.data, item.data.size, &copy->data));
    copy->type = item.type;
    copy->flag = item.flag & 1;
    copy->language = item.language & kLanguageBits;
    copy->encoding = item.encoding;
    copy->loaded = true;
    mp4_append(list, copy.release());
    ++list->count;
    return FF4_RET_OK;
}

Mp4Result mp4_write_meta_list(Mp4Sink& sink, uint32_t type, const Mp4MetaList& list) {
    if (list.count > UINT16_MAX) return FF4_RET_OVERFLOW;
    const auto body = [&](Mp4Sink& to) {
        Mp4Fields<2> head;
        head.U16(list.count);
        FF4_TRY(mp4_put_fields(to, head));
        for (const Mp4MetaItem* item = list.head; item; item = item->next)
            FF4_TRY(write_item(to, *item));
        return FF4_RET_OK;
    };
    return mp4_write_container(sink, type, body);
}

void mp4_free_user_build(Mp4Host* host, Mp4UserBuild* user) {
    mp4_free_meta_items(host, &user->texts);
    mp4_free_meta_items(host, &user->files);
}

Mp4Result mp4_write_usmt(Mp4Sink& sink, const Mp4UserBuild& user) {
    if (!user.texts.head && !user.files.head) return FF4_RET_OK;
    const auto body = [&](Mp4Sink& to) {
        FF4_TRY(mp4_put_extended_type(to, fourcc("USMT")));
        if (user.texts.head) {
            FF4_TRY(mp4_write_meta_list(to, fourcc("MTDT"), user.texts));
        }
        if (!user.files.head) return FF4_RET_OK;
        return mp4_write_meta_list(to, fourcc("MTDF"), user.files);
    };
    return mp4_write_container(sink, fourcc("uuid"), body);
}

}  // namespace tarn

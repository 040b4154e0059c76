// meta_items.h - the items of the camera's metadata lists: texts in 'MTDT', file records in 'MTDF'.
//
// An item is a small atom (u16 size, u32 type), then u16 language with a flag in its top bit, u16
// encoding and the data. Read when a caller opens the list; a list owns its items.
#pragma once

#include <cstdint>

#include "mp4format/atoms/user_atoms.h"
#include "mp4format/byte_block.h"

namespace tarn {

struct Mp4MetaItem {
    uint32_t type;
    uint8_t flag;       // 0 or 1
    uint16_t language;  // 15 bits, packed as in 'mdhd'
    uint16_t encoding;
    Mp4Span payload;  // where the data lies
    bool loaded;      // `data` holds it, even if that is no bytes
    Mp4ByteBlock data;
    Mp4MetaItem* next;
};

struct Mp4MetaList {
    Mp4MetaItem* head;
    Mp4MetaItem* tail;
    uint32_t count;
};

// Appends the items of an 'MTDT' or 'MTDF' atom as the user list found it, at most its item_count
// of them. Data of up to `limit` bytes is loaded, larger data is left in the file ('MTDF' data is
// always loaded). FF4_RET_FORMAT for an item below 4 bytes behind its header. Items before a
// failure stay.
Mp4Result mp4_read_meta_items(Mp4Host* host, Mp4File* file, const Mp4UserAtom& atom, uint64_t limit,
                              Mp4MetaList* list);
void mp4_free_meta_items(Mp4Host* host, Mp4MetaList* list);

// The n-th item, from 1, or null.
const Mp4MetaItem* mp4_meta_item_at(const Mp4MetaList& list, uint32_t n);
// Copies the data out of memory or the file. FF4_RET_ARGS for a capacity below its size.
Mp4Result mp4_get_meta_payload(Mp4Host* host, Mp4File* file, const Mp4MetaItem& item,
                               uint64_t capacity, uint8_t* buffer);

// The first item of type 10, of no particular language (0x55C4) and encoding 0, which in a track
// tells its role. `index` counts from 1. FF4_RET_NOTFOUND when there is none.
Mp4Result mp4_find_meta_item(const Mp4MetaList& list, uint32_t* index, const Mp4MetaItem** item);

constexpr uint32_t kMostMetaData = 65525;  // bytes: the 16-bit size of an item counts its head
// Appends a copy of an item with its data. FF4_RET_OVERFLOW for data that no item can hold or an
// item past 65,535.
Mp4Result mp4_add_meta_item(Mp4Host* host, const Mp4MetaItem& item, Mp4MetaList* list);
// One list, 'MTDT' or 'MTDF'. Items must be loaded; an item or a count past 16 bits is
// FF4_RET_OVERFLOW.
Mp4Result mp4_write_meta_list(Mp4Sink& sink, uint32_t type, const Mp4MetaList& list);

// The user metadata of a movie or a track.
struct Mp4UserBuild {
    Mp4MetaList texts;  // 'MTDT'
    Mp4MetaList files;  // 'MTDF'
};
void mp4_free_user_build(Mp4Host* host, Mp4UserBuild* user);
// 'uuid' 'USMT' with both lists, each where it has items; nothing without any.
Mp4Result mp4_write_usmt(Mp4Sink& sink, const Mp4UserBuild& user);

}  // namespace tarn

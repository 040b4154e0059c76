#include "mp4format/atoms/edit_list.h"

#include <algorithm>

#include "mp4format/io.h"

namespace tarn {
namespace {

constexpr uint64_t kEntryV0 = 12;
constexpr uint64_t kEntryV1 = 20;

}  // namespace

Mp4Result mp4_decode_edits(Mp4Host* host, const uint8_t* bytes, uint64_t size, uint32_t count,
                           uint32_t version_flags, Mp4EditList* list) {
    const uint32_t version = full_version(version_flags);
    if (!host || (!bytes && size > 0) || !list || version > 1) return FF4_RET_ARGS;
    const uint64_t entry = version == 1 ? kEntryV1 : kEntryV0;
    for (; count > 0 && size >= entry; --count, size -= entry, bytes += entry) {
        auto edit = mp4_make<Mp4Edit>(host);
        if (!edit) return FF4_RET_NOMEM;
        if (version == 1) {
            edit->segment_duration = get_be64(bytes);
            edit->media_time = static_cast<int64_t>(get_be64(bytes + 8));
        } else {
            edit->segment_duration = get_be32(bytes);
            edit->media_time = static_cast<int32_t>(get_be32(bytes + 4));
        }
        edit->rate_integer = get_be16(bytes + entry - 4);
        edit->rate_fraction = get_be16(bytes + entry - 2);
        mp4_append(list, edit.release());
        ++list->count;
    }
    return FF4_RET_OK;
}

Mp4Result mp4_read_edits(Mp4Host* host, Mp4File* file, const Mp4Span& entries, uint32_t count,
                         uint32_t version_flags, Mp4EditList* list) {
    if (!host || !file || !list) return FF4_RET_ARGS;
    // Only the bytes that the counted entries need: an atom may be longer than its list.
    const uint64_t size = std::min(entries.size, count * kEntryV1);
    HostPtr<uint8_t> bytes(nullptr, {host});
    FF4_TRY(mp4_read_block(host, file, entries.offset, size, &bytes));
    return mp4_decode_edits(host, bytes.get(), size, count, version_flags, list);
}

void mp4_free_edits(Mp4Host* host, Mp4EditList* list) {
    while (Mp4Edit* edit = list->head) {
        list->head = edit->next;
        mp4_free(host, edit);
    }
    *list = {};
}

}  // namespace tarn

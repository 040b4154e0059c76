#include "mp4format/atoms/edit_list.h"

#include <algorithm>

#include "mp4format/io.h"

namespace tarn {
namespace {

constexpr uint64_t kEntryV0 = 12;
constexpr uint64_t kEntryV1 = 20;

bool is_narrow(const Mp4WriteOptions& options) {
    return options.version_policy == kVersion0 || options.version_policy == kVersion0Too;
}

Mp4Result elst_version(const Mp4WriteOptions& options, const Mp4EditList& edits,
                       uint32_t* version) {
    if (options.version_policy > kVersionAlways1) return FF4_RET_INTERNAL;
    *version = options.version_policy == kVersionAlways1 ? 1 : 0;
    for (const Mp4Edit* edit = edits.head; edit; edit = edit->next) {
        if (!mp4_edit_needs_64_bits(*edit)) continue;
        if (is_narrow(options)) return FF4_RET_STATE;
        *version = 1;
    }
    return FF4_RET_OK;
}

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
    mp4_free_list(host, list);
}

bool mp4_edit_needs_64_bits(const Mp4Edit& edit) {
    return edit.segment_duration > UINT32_MAX || edit.media_time > INT32_MAX ||
           edit.media_time < INT32_MIN;
}

Mp4Result mp4_add_edit(Mp4Host* host, const Mp4WriteOptions& options, const Mp4Edit& edit,
                       Mp4EditList* list) {
    if (!host || !list) return FF4_RET_ARGS;
    if (is_narrow(options) && mp4_edit_needs_64_bits(edit)) return FF4_RET_STATE;
    FF4_TRY(mp4_append_copy(host, list, edit));
    ++list->count;
    return FF4_RET_OK;
}

Mp4Result mp4_write_elst(Mp4Sink& sink, const Mp4EditList& edits) {
    uint32_t version = 0;
    FF4_TRY(elst_version(sink.options, edits, &version));
    const auto body = [&](Mp4Sink& to) {
        FF4_TRY(mp4_put_words(to, version << 24, edits.count));
        for (const Mp4Edit* edit = edits.head; edit; edit = edit->next) {
            Mp4Fields<20> entry;
            entry.Time(version, edit->segment_duration);
            entry.Time(version, static_cast<uint64_t>(edit->media_time));
            entry.U16(edit->rate_integer);
            entry.U16(edit->rate_fraction);
            FF4_TRY(mp4_put_fields(to, entry));
        }
        return FF4_RET_OK;
    };
    return mp4_write_container(sink, fourcc("elst"), body);
}

Mp4Result mp4_write_edts(Mp4Sink& sink, const Mp4EditList& edits) {
    if (!edits.head) return FF4_RET_OK;
    const auto body = [&](Mp4Sink& to) { return mp4_write_elst(to, edits); };
    return mp4_write_container(sink, fourcc("edts"), body);
}

}  // namespace tarn

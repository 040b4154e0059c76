#include "mp4format/atoms/sample_entry_copy.h"

#include <memory>

#include "mp4format/atom.h"

namespace tarn {
namespace {

struct EntryDeleter {
    Mp4Host* host;
    void operator()(Mp4SampleEntry* entry) const { mp4_free_sample_entry(host, entry); }
};

// A copy of its own in an empty block.
Mp4Result own(Mp4Host* host, const Mp4ByteBlock& from, Mp4ByteBlock* to) {
    return from.size > 0 ? mp4_copy_block(host, from.data, from.size, to) : FF4_RET_OK;
}

Mp4Result copy_sets(Mp4Host* host, const Mp4ParameterSetList& from, Mp4ParameterSetList* to) {
    for (const Mp4ParameterSet* set = from.head; set; set = set->next) {
        auto copy = mp4_make<Mp4ParameterSet>(host);
        if (!copy) return FF4_RET_NOMEM;
        FF4_TRY(own(host, set->data, &copy->data));
        mp4_append(to, copy.release());
        ++to->count;
    }
    return FF4_RET_OK;
}

Mp4Result copy_sinf(Mp4Host* host, const Mp4ProtectionList& from, Mp4ProtectionList* to) {
    for (const Mp4ProtectionInfo* info = from.head; info; info = info->next) {
        auto copy = mp4_make<Mp4ProtectionInfo>(host);
        if (!copy) return FF4_RET_NOMEM;
        copy->original_format = info->original_format;
        FF4_TRY(own(host, info->payload, &copy->payload));
        mp4_append(to, copy.release());
    }
    return FF4_RET_OK;
}

// The plain fields of an entry, without what it owns.
Mp4SampleEntry without_blocks(const Mp4SampleEntry& entry) {
    Mp4SampleEntry plain = entry;
    plain.visual.pasp = plain.visual.colr = plain.visual.hvcc = plain.visual.extra = {};
    plain.visual.as_read = {};
    plain.es.bytes = plain.es.url = plain.es.decoder_specific_info = {};
    plain.avc.bytes = {};
    plain.avc.sequence_sets = plain.avc.picture_sets = {};
    plain.sinf = {};
    plain.next = nullptr;
    return plain;
}

}  // namespace

Mp4Result mp4_copy_sample_entry(Mp4Host* host, const Mp4SampleEntry& entry,
                                Mp4SampleEntryList* list) {
    if (!host || !list) return FF4_RET_ARGS;
    std::unique_ptr<Mp4SampleEntry, EntryDeleter> copy(mp4_make<Mp4SampleEntry>(host).release(),
                                                       {host});
    if (!copy) return FF4_RET_NOMEM;
    *copy = without_blocks(entry);
    FF4_TRY(own(host, entry.visual.pasp, &copy->visual.pasp));
    FF4_TRY(own(host, entry.visual.colr, &copy->visual.colr));
    FF4_TRY(own(host, entry.visual.hvcc, &copy->visual.hvcc));
    FF4_TRY(own(host, entry.visual.extra, &copy->visual.extra));
    FF4_TRY(own(host, entry.visual.as_read, &copy->visual.as_read));
    FF4_TRY(own(host, entry.es.bytes, &copy->es.bytes));
    FF4_TRY(own(host, entry.es.url, &copy->es.url));
    FF4_TRY(own(host, entry.es.decoder_specific_info, &copy->es.decoder_specific_info));
    FF4_TRY(own(host, entry.avc.bytes, &copy->avc.bytes));
    FF4_TRY(copy_sets(host, entry.avc.sequence_sets, &copy->avc.sequence_sets));
    FF4_TRY(copy_sets(host, entry.avc.picture_sets, &copy->avc.picture_sets));
    FF4_TRY(copy_sinf(host, entry.sinf, &copy->sinf));
    mp4_append(list, copy.release());
    ++list->count;
    return FF4_RET_OK;
}

}  // namespace tarn

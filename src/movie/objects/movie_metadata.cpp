#include "movie/objects/movie_metadata.h"

#include <utility>

namespace tarn {
namespace {

// Calls add(entry, index, payload) for the items of a list that have a payload, up to the first
// that can't be read.
template <typename Entry, typename Get, typename Add>
void load_items(Mp4ReadSession* session, const Mp4MetaList* list, Get get, Add add) {
    for (uint32_t index = 1; index <= list->count; ++index) {
        Entry entry{};
        if (get(session, list, index, &entry) != FF4_RET_OK) return;
        if (entry.size == 0) continue;
        std::vector<uint8_t> data(entry.size);
        if (mp4_get_meta_data(session, list, index, entry.size, data.data()) != FF4_RET_OK) return;
        add(entry, index, std::move(data));
    }
}

}  // namespace

void LoadMetaData(Mp4ReadSession* session, const Mp4MetaList* list,
                  std::vector<CMetaDataInfo>* out) {
    using Entry = Mp4MetaTextEntry;
    load_items<Entry>(session, list, mp4_get_meta_text, [&](const Entry& e, uint32_t n, auto data) {
        out->push_back({e.type, e.flag, e.language, e.encoding, std::move(data), n});
    });
}

void LoadMetaTypes(Mp4ReadSession* session, const Mp4MetaList* list,
                   std::vector<CMetaTypeDefinition>* out) {
    using Entry = Mp4MetaFileEntry;
    load_items<Entry>(session, list, mp4_get_meta_file, [&](const Entry& e, uint32_t n, auto data) {
        CMetaTypeDefinition& info = out->emplace_back();
        info.type = e.type;
        info.field1 = e.field1;
        info.field2 = e.field2;
        info.index = n;
        info.data = std::move(data);
    });
}

}  // namespace tarn

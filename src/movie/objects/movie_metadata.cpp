#include "movie/objects/movie_metadata.h"

#include <utility>

namespace tarn {
namespace {

// Calls add(item, index, payload) for the items of a list that have a payload, up to the first
// that can't be read.
template <typename Add>
void load_items(Mp4ReadSession* session, const Mp4MetaList* list, Add add) {
    uint32_t index = 0;
    for (const Mp4MetaItem* item = list->head; item; item = item->next) {
        ++index;
        if (item->payload.size == 0) continue;
        std::vector<uint8_t> data(item->payload.size);
        if (mp4_get_meta_payload(session->host, session->file, *item, data.size(), data.data()) !=
            FF4_RET_OK)
            return;
        add(*item, index, std::move(data));
    }
}

}  // namespace

void LoadMetaData(Mp4ReadSession* session, const Mp4MetaList* list,
                  std::vector<CMetaDataInfo>* out) {
    load_items(session, list, [&](const Mp4MetaItem& item, uint32_t n, auto data) {
        out->push_back({item.type, item.flag, item.language, item.encoding, std::move(data), n});
    });
}

void LoadMetaTypes(Mp4ReadSession* session, const Mp4MetaList* list,
                   std::vector<CMetaTypeDefinition>* out) {
    load_items(session, list, [&](const Mp4MetaItem& item, uint32_t n, auto data) {
        CMetaTypeDefinition& info = out->emplace_back();
        info.type = item.type;
        info.field1 = item.language;
        info.field2 = item.encoding;
        info.index = n;
        info.data = std::move(data);
    });
}

}  // namespace tarn

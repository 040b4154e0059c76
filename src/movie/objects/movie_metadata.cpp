#include "movie/objects/movie_metadata.h"

namespace tarn {
namespace {

// The payload of an item; false when it can't be read.
bool read_payload(Mp4ReadSession* session, const Mp4MetaList* list, uint32_t index, uint32_t size,
                  std::vector<uint8_t>* data) {
    data->resize(size);
    return mp4_get_meta_data(session, list, index, size, data->data()) == FF4_RET_OK;
}

}  // namespace

void LoadMetaData(Mp4ReadSession* session, const Mp4MetaList* list,
                  std::vector<CMetaDataInfo>* out) {
    for (uint32_t index = 1; index <= list->count; ++index) {
        Mp4MetaTextEntry entry{};
        if (mp4_get_meta_text(session, list, index, &entry) != FF4_RET_OK) return;
        if (entry.size == 0) continue;
        CMetaDataInfo info{entry.type, entry.flag, entry.language, entry.encoding, {}, index};
        if (!read_payload(session, list, index, entry.size, &info.data)) return;
        out->push_back(std::move(info));
    }
}

void LoadMetaTypes(Mp4ReadSession* session, const Mp4MetaList* list,
                   std::vector<CMetaTypeDefinition>* out) {
    for (uint32_t index = 1; index <= list->count; ++index) {
        Mp4MetaFileEntry entry{};
        if (mp4_get_meta_file(session, list, index, &entry) != FF4_RET_OK) return;
        if (entry.size == 0) continue;
        CMetaTypeDefinition info;
        info.type = entry.type;
        info.field1 = entry.field1;
        info.field2 = entry.field2;
        info.index = index;
        if (!read_payload(session, list, index, entry.size, &info.data)) return;
        out->push_back(std::move(info));
    }
}

}  // namespace tarn

#include "movie/engine/meta_lists.h"

#include "movie/engine/tracks.h"

namespace tarn {
namespace {

// Data up to this size is kept in memory; larger data stays in the file until it is asked for.
constexpr uint64_t kLoadLimit = 1024;

Mp4Result find_user_list(Mp4ReadSession* session, uint32_t track, const Mp4UserAtomList** user) {
    *user = &session->index.movie.user;
    if (track == 0) return FF4_RET_OK;
    const Mp4TrackIndex* index = mp4_find_track_index(session, track);
    if (!index) return FF4_RET_NOTFOUND;
    *user = &index->facts->user;
    return FF4_RET_OK;
}

Mp4Result open_items(Mp4ReadSession* session, uint32_t track, uint32_t type, Mp4MetaList** list) {
    if (!session || !list) return FF4_RET_ARGS;
    const Mp4UserAtomList* user = nullptr;
    FF4_TRY(find_user_list(session, track, &user));
    const Mp4UserAtom* atom = mp4_find_user_atom(*user, type);
    if (!atom) return FF4_RET_NOTFOUND;
    auto made = mp4_make<Mp4MetaList>(session->host);
    if (!made) return FF4_RET_NOMEM;
    const Mp4Result result =
        mp4_read_meta_items(session->host, session->file, *atom, kLoadLimit, made.get());
    if (result != FF4_RET_OK) {
        mp4_free_meta_items(session->host, made.get());
        return result;
    }
    *list = made.release();
    return FF4_RET_OK;
}

Mp4Result find_item(Mp4ReadSession* session, const Mp4MetaList* list, uint32_t index,
                    const Mp4MetaItem** item) {
    if (!session || !list) return FF4_RET_ARGS;
    *item = mp4_meta_item_at(*list, index);
    return *item ? FF4_RET_OK : FF4_RET_NOTFOUND;
}

// An item is shorter than 64 KiB: its size field has 16 bits.
uint32_t payload_size(const Mp4MetaItem& item) {
    return static_cast<uint32_t>(item.payload.size);
}

Mp4MetaTextEntry text_entry(const Mp4MetaItem& item) {
    return {item.type, item.flag, item.language, item.encoding, payload_size(item)};
}

Mp4MetaFileEntry file_entry(const Mp4MetaItem& item) {
    return {item.type, item.language, item.encoding, payload_size(item)};
}

template <typename Entry>
Mp4Result get_entry(Mp4ReadSession* session, const Mp4MetaList* list, uint32_t index,
                    Entry (*entry_of)(const Mp4MetaItem&), Entry* out) {
    if (!out) return FF4_RET_ARGS;
    *out = {};
    const Mp4MetaItem* item = nullptr;
    FF4_TRY(find_item(session, list, index, &item));
    *out = entry_of(*item);
    return FF4_RET_OK;
}

Mp4Result read_role(Mp4ReadSession* session, const Mp4MetaList* list, Mp4TrackRole* out) {
    uint32_t index = 0;
    Mp4MetaTextEntry entry{};
    FF4_TRY(mp4_find_meta_text(session, list, &index, &entry));
    uint8_t bytes[UINT16_MAX];
    if (entry.size < 8) return FF4_RET_FORMAT;
    FF4_TRY(mp4_get_meta_data(session, list, index, sizeof bytes, bytes));
    *out = {get_be32(bytes), get_be32(bytes + 4)};
    return FF4_RET_OK;
}

}  // namespace

Mp4Result mp4_open_meta_texts(Mp4ReadSession* session, uint32_t track, Mp4MetaList** list) {
    return open_items(session, track, fourcc("MTDT"), list);
}

Mp4Result mp4_open_meta_files(Mp4ReadSession* session, uint32_t track, Mp4MetaList** list) {
    return open_items(session, track, fourcc("MTDF"), list);
}

Mp4Result mp4_close_meta_list(Mp4ReadSession* session, Mp4MetaList* list) {
    if (!session || !list) return FF4_RET_ARGS;
    mp4_free_meta_items(session->host, list);
    mp4_free(session->host, list);
    return FF4_RET_OK;
}

Mp4Result mp4_get_meta_text(Mp4ReadSession* session, const Mp4MetaList* list, uint32_t index,
                            Mp4MetaTextEntry* out) {
    return get_entry(session, list, index, text_entry, out);
}

Mp4Result mp4_get_meta_file(Mp4ReadSession* session, const Mp4MetaList* list, uint32_t index,
                            Mp4MetaFileEntry* out) {
    return get_entry(session, list, index, file_entry, out);
}

Mp4Result mp4_get_meta_data(Mp4ReadSession* session, const Mp4MetaList* list, uint32_t index,
                            uint32_t capacity, uint8_t* buffer) {
    if (!buffer) return FF4_RET_ARGS;
    const Mp4MetaItem* item = nullptr;
    FF4_TRY(find_item(session, list, index, &item));
    return mp4_get_meta_payload(session->host, session->file, *item, capacity, buffer);
}

Mp4Result mp4_find_meta_text(Mp4ReadSession* session, const Mp4MetaList* list, uint32_t* index,
                             Mp4MetaTextEntry* out) {
    if (!session || !list || !index || !out) return FF4_RET_ARGS;
    *out = {};
    const Mp4MetaItem* item = nullptr;
    FF4_TRY(mp4_find_meta_item(*list, index, &item));
    *out = text_entry(*item);
    return FF4_RET_OK;
}

Mp4Result mp4_get_track_role(Mp4ReadSession* session, uint32_t track, Mp4TrackRole* out) {
    if (!session || !out || track == 0) return FF4_RET_ARGS;
    Mp4MetaList* list = nullptr;
    FF4_TRY(mp4_open_meta_texts(session, track, &list));
    const Mp4Result result = read_role(session, list, out);
    FF4_TRY(mp4_close_meta_list(session, list));
    return result;
}

Mp4Result mp4_get_profile_counts(Mp4ReadSession* session, Mp4ProfileCounts* counts) {
    if (!session || !counts) return FF4_RET_ARGS;
    return mp4_count_profiles(session->index.profile, counts);
}

Mp4Result mp4_get_file_profile(Mp4ReadSession* session, uint32_t* profile) {
    if (!session || !profile) return FF4_RET_ARGS;
    return mp4_read_file_profile(session->host, session->file, session->index.profile, profile);
}

Mp4Result mp4_get_video_profile(Mp4ReadSession* session, Mp4VideoProfile* profile) {
    if (!session || !profile) return FF4_RET_ARGS;
    return mp4_read_video_profile(session->host, session->file, session->index.profile, profile);
}

Mp4Result mp4_get_audio_profile(Mp4ReadSession* session, Mp4AudioProfile* profile) {
    if (!session || !profile) return FF4_RET_ARGS;
    return mp4_read_audio_profile(session->host, session->file, session->index.profile, profile);
}

}  // namespace tarn

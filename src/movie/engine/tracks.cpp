#include "movie/engine/tracks.h"

#include "mp4format/tables/sample_tables.h"

namespace tarn {
namespace {

// A list that is handed out, in a block of its own.
template <typename List, typename Read>
Mp4Result open_list(Mp4Host* host, List** out, Read read, void (*free_entries)(Mp4Host*, List*)) {
    auto list = mp4_make<List>(host);
    if (!list) return FF4_RET_NOMEM;
    const Mp4Result result = read(list.get());
    if (result != FF4_RET_OK) {
        free_entries(host, list.get());
        return result;
    }
    *out = list.release();
    return FF4_RET_OK;
}

// Takes a track out of the list of open ones.
void unlink(Mp4ReadSession* session, Mp4OpenTrack* gone) {
    Mp4OpenTrack* before = nullptr;
    for (Mp4OpenTrack* track = session->tracks.head; track != gone; track = track->next)
        before = track;
    (before ? before->next : session->tracks.head) = gone->next;
    if (session->tracks.tail == gone) session->tracks.tail = before;
    mp4_free(session->host, gone);
}

}  // namespace

Mp4Result mp4_get_track_count(Mp4ReadSession* session, uint32_t* count) {
    if (!session || !count) return FF4_RET_ARGS;
    *count = session->index.movie.tracks.count;
    return FF4_RET_OK;
}

const Mp4TrackIndex* mp4_find_track_index(const Mp4ReadSession* session, uint32_t track) {
    if (track == 0 || track > session->index.movie.tracks.count) return nullptr;
    return session->numbered[track - 1];
}

Mp4OpenTrack* mp4_find_open_track(Mp4ReadSession* session, uint32_t track) {
    session->asked_track = track;
    Mp4OpenTrack* open = session->tracks.head;
    while (open && open->number != track)
        open = open->next;
    return open;
}

Mp4TableReader mp4_tables_of(const Mp4ReadSession* session, const Mp4OpenTrack& open) {
    return {session->host, session->file, &open.tables, open.cache};
}

Mp4Result mp4_open_track(Mp4ReadSession* session, uint32_t track) {
    if (!session || track == 0) return FF4_RET_ARGS;
    if (mp4_find_open_track(session, track)) return FF4_RET_OK;
    const Mp4TrackIndex* index = mp4_find_track_index(session, track);
    if (!index) return FF4_RET_NOTFOUND;

    auto open = mp4_make<Mp4OpenTrack>(session->host);
    if (!open) return FF4_RET_NOMEM;
    open->number = track;
    open->index = index;
    open->tables.track_id = index->facts->track_id;
    FF4_TRY(mp4_read_track_tables(session->host, session->file, index->payload, session->file_size,
                                  &open->tables));
    FF4_TRY(mp4_add_track_cache(session->host, &session->caches, open->tables, &open->cache));
    mp4_append(&session->tracks, open.release());
    return FF4_RET_OK;
}

Mp4Result mp4_close_track(Mp4ReadSession* session, uint32_t track) {
    if (!session || track == 0) return FF4_RET_ARGS;
    Mp4OpenTrack* open = mp4_find_open_track(session, track);
    if (!open) return FF4_RET_STATE;
    if (session->fragments) mp4_end_fragment_track(session->fragments, open->tables.track_id);
    const Mp4Result result = mp4_remove_track_cache(session->host, &session->caches, open->cache);
    unlink(session, open);
    return result;
}

Mp4Result mp4_get_track_header(Mp4ReadSession* session, uint32_t track, Mp4TrackHeaderInfo* out) {
    if (!session || !out || track == 0) return FF4_RET_ARGS;
    *out = {};
    const Mp4TrackIndex* index = mp4_find_track_index(session, track);
    if (!index || !present(index->facts->tkhd)) return FF4_RET_NOTFOUND;
    Mp4TrackHeader header{};
    FF4_TRY(mp4_read_tkhd(session->host, session->file, index->facts->tkhd, &header));
    out->flags = full_flags(header.version_flags);
    out->creation = header.creation_time;
    out->modification = header.modification_time;
    out->track_id = header.track_id;
    out->duration = header.duration;
    out->layer = header.layer;
    out->alternate_group = header.alternate_group;
    out->volume = header.volume;
    for (int i = 0; i < 9; ++i)
        out->matrix[i] = header.matrix[i];
    out->width_integer = static_cast<uint16_t>(header.width >> 16);
    out->width_fraction = static_cast<uint16_t>(header.width);
    out->height_integer = static_cast<uint16_t>(header.height >> 16);
    out->height_fraction = static_cast<uint16_t>(header.height);
    out->version = static_cast<uint8_t>(full_version(header.version_flags));
    return FF4_RET_OK;
}

Mp4Result mp4_get_media_header(Mp4ReadSession* session, uint32_t track, Mp4MediaHeaderInfo* out) {
    if (!session || !out || track == 0) return FF4_RET_ARGS;
    *out = {};
    const Mp4TrackIndex* index = mp4_find_track_index(session, track);
    if (!index || !present(index->facts->mdhd)) return FF4_RET_NOTFOUND;
    Mp4MediaHeader header{};
    FF4_TRY(mp4_read_mdhd(session->host, session->file, index->facts->mdhd, &header));
    *out = {header.creation_time, header.modification_time, header.timescale, header.duration,
            header.language};
    return FF4_RET_OK;
}

Mp4Result mp4_get_handler(Mp4ReadSession* session, uint32_t track, Mp4HandlerInfo* out) {
    if (!session || !out || track == 0) return FF4_RET_ARGS;
    *out = {};
    const Mp4TrackIndex* index = mp4_find_track_index(session, track);
    if (!index || !present(index->facts->hdlr)) return FF4_RET_NOTFOUND;
    *out = {index->facts->handler_type, index->facts->handler_name};
    return FF4_RET_OK;
}

Mp4Result mp4_get_track_fragment_defaults(Mp4ReadSession* session, uint32_t track,
                                          Mp4TrackFragmentDefaults* out) {
    if (!session || !out || track == 0) return FF4_RET_ARGS;
    *out = {};
    const Mp4TrackIndex* index = mp4_find_track_index(session, track);
    if (!index) return FF4_RET_NOTFOUND;
    const Mp4Trex* trex = mp4_find_trex(session->index.movie.extends, index->facts->track_id);
    if (!trex) return FF4_RET_NOTFOUND;
    *out = {trex->track_id, trex->default_description_index, trex->default_duration,
            trex->default_size, trex->default_flags};
    return FF4_RET_OK;
}

Mp4Result mp4_get_tables_duration(Mp4ReadSession* session, uint32_t track, uint64_t* duration) {
    if (!session || !duration || track == 0) return FF4_RET_ARGS;
    Mp4OpenTrack* open = mp4_find_open_track(session, track);
    if (!open) return FF4_RET_STATE;
    return mp4_lookup_media_duration(mp4_tables_of(session, *open), duration);
}

Mp4Result mp4_use_track_fragments(Mp4ReadSession* session, uint32_t track) {
    if (!session || track == 0) return FF4_RET_ARGS;
    const Mp4OpenTrack* open = mp4_find_open_track(session, track);
    if (!open || !session->fragments) return FF4_RET_STATE;
    uint64_t tables_end = 0;
    FF4_TRY(mp4_get_tables_duration(session, track, &tables_end));
    const uint32_t track_id = open->tables.track_id;
    FF4_TRY(mp4_begin_fragment_track(session->fragments, track_id, open->tables.sample_count,
                                     tables_end));
    return mp4_set_fragment_share(session->fragments, track_id, open->cache->fragment_share);
}

Mp4Result mp4_get_track_duration(Mp4ReadSession* session, uint32_t track, uint64_t* duration) {
    if (!session || !duration || track == 0) return FF4_RET_ARGS;
    Mp4OpenTrack* open = mp4_find_open_track(session, track);
    if (!open) return FF4_RET_STATE;
    if (open->duration == 0) {
        FF4_TRY(mp4_get_tables_duration(session, track, &open->duration));
        uint64_t end = 0;
        if (session->fragments) {
            FF4_TRY(mp4_use_track_fragments(session, track));
            FF4_TRY(mp4_get_fragment_end(session->fragments, open->tables.track_id, &end));
        }
        if (end > open->duration) open->duration = end;
    }
    *duration = open->duration;
    return FF4_RET_OK;
}

Mp4Result mp4_open_edit_list(Mp4ReadSession* session, uint32_t track, Mp4EditList** list) {
    if (!session || !list || track == 0) return FF4_RET_ARGS;
    const Mp4OpenTrack* open = mp4_find_open_track(session, track);
    if (!open) return FF4_RET_STATE;
    const Mp4TrackTables& t = open->tables;
    return open_list<Mp4EditList>(
        session->host, list,
        [&](Mp4EditList* made) {
            return mp4_read_edits(session->host, session->file, t.elst_entries, t.elst_count,
                                  t.elst_version_flags, made);
        },
        mp4_free_edits);
}

Mp4Result mp4_get_edit_count(Mp4ReadSession* session, const Mp4EditList* list, uint32_t* count) {
    if (!session || !list || !count) return FF4_RET_ARGS;
    *count = list->count;
    return FF4_RET_OK;
}

Mp4Result mp4_get_edit_entry(Mp4ReadSession* session, const Mp4EditList* list, uint32_t index,
                             Mp4EditEntry* out) {
    if (!session || !list || !out) return FF4_RET_ARGS;
    *out = {};
    const Mp4Edit* edit = mp4_nth(list->head, index);
    if (!edit) return FF4_RET_NOTFOUND;
    *out = {edit->segment_duration, edit->media_time, edit->rate_integer, edit->rate_fraction};
    return FF4_RET_OK;
}

Mp4Result mp4_close_edit_list(Mp4ReadSession* session, Mp4EditList* list) {
    if (!session || !list) return FF4_RET_ARGS;
    mp4_free_edits(session->host, list);
    mp4_free(session->host, list);
    return FF4_RET_OK;
}

Mp4Result mp4_open_data_refs(Mp4ReadSession* session, uint32_t track, Mp4DataRefs** list) {
    if (!session || !list || track == 0) return FF4_RET_ARGS;
    const Mp4OpenTrack* open = mp4_find_open_track(session, track);
    if (!open) return FF4_RET_STATE;
    if (!present(open->tables.dref_entries)) return FF4_RET_NOTFOUND;
    return open_list<Mp4DataRefs>(
        session->host, list,
        [&](Mp4DataRefs* made) {
            return mp4_read_data_refs(session->host, session->file, open->tables.dref_entries,
                                      open->tables.dref_count, made);
        },
        mp4_free_data_refs);
}

Mp4Result mp4_get_data_ref(Mp4ReadSession* session, const Mp4DataRefs* list, uint32_t index,
                           Mp4DataRefEntry* out) {
    if (!session || !list || !out) return FF4_RET_ARGS;
    *out = {};
    const Mp4DataRef* ref = mp4_nth(list->head, index);
    if (!ref) return FF4_RET_NOTFOUND;
    *out = {ref->type, ref->location, ref->name};
    return FF4_RET_OK;
}

Mp4Result mp4_close_data_refs(Mp4ReadSession* session, Mp4DataRefs* list) {
    if (!session || !list) return FF4_RET_ARGS;
    mp4_free_data_refs(session->host, list);
    mp4_free(session->host, list);
    return FF4_RET_OK;
}

}  // namespace tarn

#include "movie/engine/write_session.h"

#include <algorithm>

#include "mp4format/atoms/sample_entry_copy.h"
#include "mp4format/movie/write_movie.h"

namespace tarn {
namespace {

constexpr uint32_t kRoleType = 10;
constexpr uint16_t kLanguageUndetermined = 0x55C4;

Mp4Result check_open(const Mp4WriteSession* session) {
    if (!session) return FF4_RET_ARGS;
    return session->has_movie && !session->finished ? FF4_RET_OK : FF4_RET_STATE;
}

Mp4Result find_track(Mp4WriteSession* session, uint32_t number, Mp4TrackBuild** out) {
    FF4_TRY(check_open(session));
    if (number == 0) return FF4_RET_ARGS;
    Mp4TrackBuild* track = session->movie.tracks.head;
    while (track && --number > 0)
        track = track->next;
    *out = track;
    return track ? FF4_RET_OK : FF4_RET_NOTFOUND;
}

// The user metadata of a track, or of the movie for 0.
Mp4Result find_user(Mp4WriteSession* session, uint32_t number, Mp4UserBuild** out) {
    FF4_TRY(check_open(session));
    if (number == 0) {
        *out = &session->movie.user;
        return FF4_RET_OK;
    }
    Mp4TrackBuild* track = nullptr;
    FF4_TRY(find_track(session, number, &track));
    *out = &track->user;
    return FF4_RET_OK;
}

// Calls visit(Mp4TableBuild*) for the tables of one track, or of all for 0.
template <typename Visit>
Mp4Result visit_tables(Mp4WriteSession* session, uint32_t number, Visit visit) {
    if (number > 0) {
        Mp4TrackBuild* track = nullptr;
        FF4_TRY(find_track(session, number, &track));
        return visit(&track->media.tables);
    }
    for (Mp4TrackBuild* track = session->movie.tracks.head; track; track = track->next)
        FF4_TRY(visit(&track->media.tables));
    return FF4_RET_OK;
}

}  // namespace

Mp4Result mp4_open_write(Mp4Host* host, Mp4File* file, const Mp4WriteOptions& options,
                         Mp4WriteSession** session) {
    if (!host || !file || !session) return FF4_RET_ARGS;
    FF4_TRY(mp4_set_memory_limit(host, false, 0, 0, 0));
    auto made = mp4_make<Mp4WriteSession>(host);
    if (!made) return FF4_RET_NOMEM;
    made->host = host;
    made->file = file;
    made->options = options;
    *session = made.release();
    return FF4_RET_OK;
}

Mp4Result mp4_close_write(Mp4Host* host, Mp4WriteSession* session) {
    if (!host || !session) return FF4_RET_ARGS;
    mp4_free_movie_build(host, &session->movie);
    mp4_free(host, session->brands);
    mp4_free(host, session);
    return FF4_RET_OK;
}

Mp4Result mp4_create_movie(Mp4WriteSession* session, uint32_t fields,
                           const Mp4MovieHeader& header) {
    if (!session) return FF4_RET_ARGS;
    if (session->has_movie) return FF4_RET_STATE;
    mp4_init_movie_build(&session->movie);
    FF4_TRY(mp4_set_movie_fields(session->options, fields, header, &session->movie));
    session->has_movie = true;
    return FF4_RET_OK;
}

Mp4Result mp4_set_times(Mp4WriteSession* session, uint64_t creation, uint64_t modification) {
    FF4_TRY(check_open(session));
    Mp4MovieHeader header{};
    header.creation_time = creation;
    header.modification_time = modification;
    FF4_TRY(mp4_set_movie_fields(session->options, kFieldCreation | kFieldModification, header,
                                 &session->movie));
    for (Mp4TrackBuild* track = session->movie.tracks.head; track; track = track->next) {
        track->header.creation_time = track->media.header.creation_time = creation;
        track->header.modification_time = track->media.header.modification_time = modification;
    }
    return FF4_RET_OK;
}

Mp4Result mp4_set_file_type(Mp4WriteSession* session, uint32_t major_brand, uint32_t minor_version,
                            const uint32_t* brands, uint32_t brand_count) {
    FF4_TRY(check_open(session));
    if (!brands && brand_count > 0) return FF4_RET_ARGS;
    if (session->has_media) return FF4_RET_STATE;
    auto copy = mp4_make<uint32_t>(session->host, brand_count);
    if (!copy) return FF4_RET_NOMEM;
    std::copy_n(brands, brand_count, copy.get());
    mp4_free(session->host, session->brands);
    session->brands = copy.release();
    session->brand_count = brand_count;
    session->major_brand = major_brand;
    session->minor_version = minor_version;
    return FF4_RET_OK;
}

Mp4Result mp4_set_profile(Mp4WriteSession* session, const Mp4ProfileBuild& profile) {
    FF4_TRY(check_open(session));
    const Mp4ProfileBuild& held = session->profile;
    const bool other_records = profile.has_file != held.has_file ||
                               profile.has_audio != held.has_audio ||
                               profile.has_video != held.has_video;
    if (session->has_media && other_records) return FF4_RET_STATE;
    session->profile = profile;
    return FF4_RET_OK;
}

Mp4Result mp4_add_track(Mp4WriteSession* session, const Mp4NewTrack& track, uint32_t* number,
                        uint32_t* track_id) {
    FF4_TRY(check_open(session));
    if (!number || !track_id) return FF4_RET_ARGS;
    Mp4TrackBuild* made = nullptr;
    FF4_TRY(mp4_add_track_build(session->host, track, &session->movie, &made));
    *number = session->movie.tracks.count;
    *track_id = made->header.track_id;
    return FF4_RET_OK;
}

Mp4Result mp4_add_track_data_ref(Mp4WriteSession* session, uint32_t track, uint32_t type,
                                 const char* location, const char* name) {
    Mp4TrackBuild* found = nullptr;
    FF4_TRY(find_track(session, track, &found));
    return mp4_add_data_ref(session->host, type, location, name, &found->media.refs);
}

Mp4Result mp4_add_track_description(Mp4WriteSession* session, uint32_t track,
                                    const Mp4SampleEntry& entry, uint32_t* index) {
    Mp4TrackBuild* found = nullptr;
    FF4_TRY(find_track(session, track, &found));
    if (!index) return FF4_RET_ARGS;
    const uint32_t reference = entry.data_reference_index;
    if (reference == 0 || reference > found->media.refs.count) return FF4_RET_ARGS;
    Mp4Sink counted{session->host, session->options, nullptr, 0};
    const Mp4Result writable = mp4_write_sample_entry(counted, entry);
    if (writable != FF4_RET_OK) return writable == FF4_RET_INTERNAL ? FF4_RET_STATE : writable;
    Mp4SampleEntryList& entries = found->media.tables.entries;
    FF4_TRY(mp4_copy_sample_entry(session->host, entry, &entries));
    *index = entries.count;
    return FF4_RET_OK;
}

Mp4Result mp4_add_track_chunk(Mp4WriteSession* session, uint32_t track, const Mp4NewChunk& chunk) {
    Mp4TrackBuild* found = nullptr;
    FF4_TRY(find_track(session, track, &found));
    return mp4_add_chunk(session->host, &found->media.tables, chunk);
}

Mp4Result mp4_add_track_edit(Mp4WriteSession* session, uint32_t track, const Mp4Edit& edit) {
    Mp4TrackBuild* found = nullptr;
    FF4_TRY(find_track(session, track, &found));
    return mp4_add_edit(session->host, session->options, edit, &found->edits);
}

Mp4Result mp4_add_meta_text(Mp4WriteSession* session, uint32_t track, const Mp4MetaItem& item) {
    Mp4UserBuild* user = nullptr;
    FF4_TRY(find_user(session, track, &user));
    return mp4_add_meta_item(session->host, item, &user->texts);
}

Mp4Result mp4_add_meta_file(Mp4WriteSession* session, uint32_t track, const Mp4MetaItem& item) {
    Mp4UserBuild* user = nullptr;
    FF4_TRY(find_user(session, track, &user));
    return mp4_add_meta_item(session->host, item, &user->files);
}

Mp4Result mp4_add_track_role(Mp4WriteSession* session, uint32_t track, uint32_t role,
                             uint32_t detail) {
    if (track == 0) return FF4_RET_ARGS;
    uint8_t payload[8];
    put_be32(payload, role);
    put_be32(payload + 4, detail);
    Mp4MetaItem item{};
    item.type = kRoleType;
    item.language = kLanguageUndetermined;
    item.data = {payload, sizeof payload};
    return mp4_add_meta_text(session, track, item);
}

Mp4Result mp4_shift_chunk_offsets(Mp4WriteSession* session, uint32_t track, uint32_t description,
                                  int64_t amount) {
    FF4_TRY(check_open(session));
    FF4_TRY(visit_tables(session, track, [&](const Mp4TableBuild* tables) {
        return mp4_can_shift_chunks(*tables, description, amount);
    }));
    return visit_tables(session, track, [&](Mp4TableBuild* tables) {
        return mp4_shift_chunks(tables, description, amount);
    });
}

Mp4Result mp4_get_movie_size(Mp4WriteSession* session, uint64_t* size) {
    FF4_TRY(check_open(session));
    if (!size) return FF4_RET_ARGS;
    Mp4Sink counted{session->host, session->options, nullptr, 0};
    FF4_TRY(mp4_write_moov(counted, &session->movie));
    *size = counted.position;
    return FF4_RET_OK;
}

}  // namespace tarn

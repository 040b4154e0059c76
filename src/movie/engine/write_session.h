// write_session.h - one movie file being made.
//
// The order of calls: open, make the movie and its tracks, begin the media, then for each chunk
// write its bytes to the file and add it to its track, add the edits, finish, close. All but the
// media stays in memory until the finish.
//
//     FF4_TRY(mp4_open_write(host, file, kWriteAsNeeded, &session));
//     FF4_TRY(mp4_create_movie(session, kFieldTimescale, header));
//     FF4_TRY(mp4_set_file_type(session, fourcc("mp42"), 0, brands, 2));
//     FF4_TRY(mp4_add_track(session, new_track, &track, &track_id));
//     FF4_TRY(mp4_add_track_data_ref(session, track, fourcc("url "), nullptr, nullptr));
//     FF4_TRY(mp4_add_track_description(session, track, *source_entry, &description));
//     FF4_TRY(mp4_begin_media(session, kMovieAfterMedia, most_media_bytes, &at));
//     ... bytes of a chunk at `at`, then
//     FF4_TRY(mp4_add_track_chunk(session, track, {at, description, runs, run_count}));
//     FF4_TRY(mp4_add_track_edit(session, track, {duration, first_time, 1, 0, nullptr}));
//     FF4_TRY(mp4_set_times(session, now, now));
//     FF4_TRY(mp4_finish_write(session, media_bytes, &file_size));
//
// Used by one thread at a time. All functions test their pointers first (FF4_RET_ARGS). Without a
// movie, or after the finish, they answer FF4_RET_STATE; for a track past the last
// FF4_RET_NOTFOUND. Track numbers and description indexes count from 1.
#pragma once

#include <cstdint>

#include "mp4format/atoms/profile.h"
#include "mp4format/movie/movie_build.h"

namespace tarn {

// Where 'moov' goes.
enum Mp4Layout : uint32_t { kMovieBeforeMedia = 1, kMovieAfterMedia = 2 };

struct Mp4WriteSession {
    Mp4Host* host;
    Mp4File* file;
    Mp4WriteOptions options;
    bool has_movie, has_media, finished;
    Mp4MovieBuild movie;
    uint32_t major_brand, minor_version, brand_count;
    uint32_t* brands;  // owned; null without 'ftyp'
    Mp4ProfileBuild profile;
    Mp4Layout layout;
    uint64_t head_size;    // 'ftyp' and 'PROF'
    uint64_t data_offset;  // of the first media byte
};

// The file is opened for writing, by the host's callbacks; it stays the caller's.
Mp4Result mp4_open_write(Mp4Host* host, Mp4File* file, const Mp4WriteOptions& options,
                         Mp4WriteSession** session);
// Gives everything back, finished or not. What was written stays in the file.
Mp4Result mp4_close_write(Mp4Host* host, Mp4WriteSession* session);

// Makes the one movie of the session; `fields` (Mp4MovieField) names what is taken from `header`.
Mp4Result mp4_create_movie(Mp4WriteSession* session, uint32_t fields, const Mp4MovieHeader& header);
// Both times, in seconds since 1904, of the movie and of every track and media there is. Under a
// policy of version 0 a time past 32 bits is FF4_RET_STATE.
Mp4Result mp4_set_times(Mp4WriteSession* session, uint64_t creation, uint64_t modification);
Mp4Result mp4_set_file_type(Mp4WriteSession* session, uint32_t major_brand, uint32_t minor_version,
                            const uint32_t* brands, uint32_t brand_count);
// The profile records that follow 'ftyp', with the ids of the new tracks. Once the media has begun
// their values can still change, but no record can come or go.
Mp4Result mp4_set_profile(Mp4WriteSession* session, const Mp4ProfileBuild& profile);

Mp4Result mp4_add_track(Mp4WriteSession* session, const Mp4NewTrack& track, uint32_t* number,
                        uint32_t* track_id);
// A place of samples: 'url ' without a location is this very file, what nearly every track has.
Mp4Result mp4_add_track_data_ref(Mp4WriteSession* session, uint32_t track, uint32_t type,
                                 const char* location, const char* name);
// Copies a description with all it owns. FF4_RET_ARGS where its data reference is not there yet,
// FF4_RET_STATE for one of unknown kind, which can't be written.
Mp4Result mp4_add_track_description(Mp4WriteSession* session, uint32_t track,
                                    const Mp4SampleEntry& entry, uint32_t* index);
// As mp4_add_chunk. After a failure on the way the file can't be finished any more.
Mp4Result mp4_add_track_chunk(Mp4WriteSession* session, uint32_t track, const Mp4NewChunk& chunk);
Mp4Result mp4_add_track_edit(Mp4WriteSession* session, uint32_t track, const Mp4Edit& edit);

// An item of the 'MTDT' or 'MTDF' list, of track 0 for the movie's. The data is copied.
Mp4Result mp4_add_meta_text(Mp4WriteSession* session, uint32_t track, const Mp4MetaItem& item);
Mp4Result mp4_add_meta_file(Mp4WriteSession* session, uint32_t track, const Mp4MetaItem& item);
// The text of type 10 that tells a track's role: 1 is the main one.
Mp4Result mp4_add_track_role(Mp4WriteSession* session, uint32_t track, uint32_t role,
                             uint32_t detail);

// Moves the chunk offsets of a track, or of all for 0, and of one description or all for 0. A wrap
// either way is FF4_RET_OVERFLOW and moves nothing.
Mp4Result mp4_shift_chunk_offsets(Mp4WriteSession* session, uint32_t track, uint32_t description,
                                  int64_t amount);

// Bytes of 'moov' as it stands.
Mp4Result mp4_get_movie_size(Mp4WriteSession* session, uint64_t* size);

// Where the media begins when 'moov' stands before it: at 64 KB, or at as many steps of 64 KB as
// hold 1/1024 of the media.
uint64_t mp4_reserved_front(uint64_t media_bytes);

// Chooses where the media begins and moves the file there. `most_media_bytes` is the most that will
// come. More than comes does no harm. Less does: in layout 1 the movie may then have to go after
// the media; in layout 2 media that passes 4 GB without having been announced can't be finished
// (FF4_RET_OVERFLOW).
Mp4Result mp4_begin_media(Mp4WriteSession* session, Mp4Layout layout, uint64_t most_media_bytes,
                          uint64_t* data_offset);

// Writes all but the media: 'ftyp', 'PROF', 'moov', 'free' and the header of 'mdat'. A movie that
// is too large for the room before the media goes after it: media is never overwritten. A gap too
// small for a 'free' becomes the first bytes of the 'mdat'.
Mp4Result mp4_finish_write(Mp4WriteSession* session, uint64_t media_bytes, uint64_t* file_size);

}  // namespace tarn

// meta_lists.h - the camera's own records in a movie: texts, file records, roles and profiles.
//
// Lists belong to a track or, with track number 0, to the movie. Indexes count from 1.
#pragma once

#include <cstdint>

#include "movie/engine/session.h"
#include "mp4format/atoms/meta_items.h"
#include "mp4format/atoms/profile.h"

namespace tarn {

struct Mp4MetaTextEntry {
    uint32_t type;
    uint8_t flag;
    uint16_t language;  // packed as in 'mdhd'
    uint16_t encoding;
    uint32_t size;  // bytes of the payload
};

struct Mp4MetaFileEntry {
    uint32_t type;
    uint16_t field1, field2;
    uint32_t size;
};

// The items of the first 'MTDT' or 'MTDF' there. FF4_RET_NOTFOUND without one.
Mp4Result mp4_open_meta_texts(Mp4ReadSession* session, uint32_t track, Mp4MetaList** list);
Mp4Result mp4_open_meta_files(Mp4ReadSession* session, uint32_t track, Mp4MetaList** list);
Mp4Result mp4_close_meta_list(Mp4ReadSession* session, Mp4MetaList* list);

Mp4Result mp4_get_meta_text(Mp4ReadSession* session, const Mp4MetaList* list, uint32_t index,
                            Mp4MetaTextEntry* out);
Mp4Result mp4_get_meta_file(Mp4ReadSession* session, const Mp4MetaList* list, uint32_t index,
                            Mp4MetaFileEntry* out);
// A capacity below the payload's size is FF4_RET_ARGS.
Mp4Result mp4_get_meta_data(Mp4ReadSession* session, const Mp4MetaList* list, uint32_t index,
                            uint32_t capacity, uint8_t* buffer);
// The first item of type 10, language "und" and encoding 0.
Mp4Result mp4_find_meta_text(Mp4ReadSession* session, const Mp4MetaList* list, uint32_t* index,
                             Mp4MetaTextEntry* out);

// What a track is for, as its own record says; 1 is the main picture or sound.
constexpr uint32_t kRoleMain = 1;
struct Mp4TrackRole {
    uint32_t role;
    uint32_t detail;
};
// FF4_RET_NOTFOUND for a track without such a record, FF4_RET_FORMAT for one below 8 bytes.
Mp4Result mp4_get_track_role(Mp4ReadSession* session, uint32_t track, Mp4TrackRole* out);

// FF4_RET_NOTFOUND when there is no profile atom, or no record of that kind in it.
Mp4Result mp4_get_profile_counts(Mp4ReadSession* session, Mp4ProfileCounts* counts);
Mp4Result mp4_get_file_profile(Mp4ReadSession* session, uint32_t* profile);
Mp4Result mp4_get_video_profile(Mp4ReadSession* session, Mp4VideoProfile* profile);
Mp4Result mp4_get_audio_profile(Mp4ReadSession* session, Mp4AudioProfile* profile);

}  // namespace tarn

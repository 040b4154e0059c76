// tracks.h - the tracks of a read session: opening, headers, edit lists, data references.
//
// Calls on a track's content need the track open and answer FF4_RET_STATE otherwise; a number past
// the last track is FF4_RET_NOTFOUND. List indexes count from 1.
#pragma once

#include <cstdint>

#include "movie/engine/session.h"
#include "mp4format/atoms/data_refs.h"
#include "mp4format/atoms/edit_list.h"
#include "mp4format/tables/sample_tables.h"

namespace tarn {

Mp4Result mp4_get_track_count(Mp4ReadSession* session, uint32_t* count);

// Locates the track's tables and gives it a share of the window memory. Opening an open track is
// no failure, and one closing closes it.
Mp4Result mp4_open_track(Mp4ReadSession* session, uint32_t track);
Mp4Result mp4_close_track(Mp4ReadSession* session, uint32_t track);
// The open track of that number, or null.
Mp4OpenTrack* mp4_find_open_track(Mp4ReadSession* session, uint32_t track);
// The tables of an open track, for lookups.
Mp4TableReader mp4_tables_of(const Mp4ReadSession* session, const Mp4OpenTrack& open);
// The index record of a track, open or not; null past the last.
const Mp4TrackIndex* mp4_find_track_index(const Mp4ReadSession* session, uint32_t track);

struct Mp4TrackHeaderInfo {
    uint32_t flags;  // 24 bits; bit 0: enabled
    uint64_t creation, modification;
    uint32_t track_id;
    uint64_t duration;  // movie units, as stored
    uint16_t layer, alternate_group, volume;
    uint32_t matrix[9];
    uint16_t width_integer, width_fraction, height_integer, height_fraction;
    uint8_t version;
};
Mp4Result mp4_get_track_header(Mp4ReadSession* session, uint32_t track, Mp4TrackHeaderInfo* out);

struct Mp4MediaHeaderInfo {
    uint64_t creation, modification;
    uint32_t timescale;
    uint64_t duration;  // media units, as stored
    uint16_t language;
};
Mp4Result mp4_get_media_header(Mp4ReadSession* session, uint32_t track, Mp4MediaHeaderInfo* out);

struct Mp4HandlerInfo {
    uint32_t type;
    Mp4Span name;
};
// FF4_RET_NOTFOUND for a track without 'hdlr'.
Mp4Result mp4_get_handler(Mp4ReadSession* session, uint32_t track, Mp4HandlerInfo* out);

// The sum of the durations in the sample tables, in media units.
Mp4Result mp4_get_tables_duration(Mp4ReadSession* session, uint32_t track, uint64_t* duration);
// Makes the fragments of an open track ready for lookups. FF4_RET_STATE for a file without any.
Mp4Result mp4_use_track_fragments(Mp4ReadSession* session, uint32_t track);
// Where the last sample ends, in media units, fragments included.
Mp4Result mp4_get_track_duration(Mp4ReadSession* session, uint32_t track, uint64_t* duration);

// What the track's fragments take where they say nothing themselves.
struct Mp4TrackFragmentDefaults {
    uint32_t track_id;
    uint32_t description_index;  // 1-based
    uint32_t duration;           // media units
    uint32_t size;               // bytes
    uint32_t flags;              // bit 16: not a sync sample
};
// FF4_RET_NOTFOUND for a track without such a record.
Mp4Result mp4_get_track_fragment_defaults(Mp4ReadSession* session, uint32_t track,
                                          Mp4TrackFragmentDefaults* out);

struct Mp4EditEntry {
    uint64_t segment_duration;  // movie units
    int64_t media_time;         // media units; -1 is an empty edit
    uint16_t rate_integer, rate_fraction;
};
// A track without an edit list gives an empty list.
Mp4Result mp4_open_edit_list(Mp4ReadSession* session, uint32_t track, Mp4EditList** list);
Mp4Result mp4_get_edit_count(Mp4ReadSession* session, const Mp4EditList* list, uint32_t* count);
Mp4Result mp4_get_edit_entry(Mp4ReadSession* session, const Mp4EditList* list, uint32_t index,
                             Mp4EditEntry* out);
Mp4Result mp4_close_edit_list(Mp4ReadSession* session, Mp4EditList* list);

struct Mp4DataRefEntry {
    uint32_t type;         // 'url ' or 'urn '
    const char* location;  // null or empty: the samples are in this file
    const char* name;
};
Mp4Result mp4_open_data_refs(Mp4ReadSession* session, uint32_t track, Mp4DataRefs** list);
Mp4Result mp4_get_data_ref(Mp4ReadSession* session, const Mp4DataRefs* list, uint32_t index,
                           Mp4DataRefEntry* out);
Mp4Result mp4_close_data_refs(Mp4ReadSession* session, Mp4DataRefs* list);

}  // namespace tarn

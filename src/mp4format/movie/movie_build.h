// movie_build.h - a movie that is being written: everything of 'moov' but the bytes.
//
// The tree is filled as samples arrive and written at the end. It owns its lists and the copies it
// takes of what callers hand in; mp4_free_movie_build gives all back to the host.
#pragma once

#include <cstdint>

#include "mp4format/atoms/data_refs.h"
#include "mp4format/atoms/edit_list.h"
#include "mp4format/atoms/handler.h"
#include "mp4format/atoms/meta_items.h"
#include "mp4format/atoms/movie_extends.h"
#include "mp4format/atoms/movie_headers.h"
#include "mp4format/atoms/track_references.h"
#include "mp4format/tables/table_build.h"
#include "mp4format/write_options.h"

namespace tarn {

struct Mp4MediaBuild {
    uint64_t atom_size;     // of 'mdia', when it was last counted or written; so in the others
    Mp4MediaHeader header;  // its duration is the tables'
    uint32_t handler_type;
    Mp4MediaHeaderAtom media_header;
    Mp4DataRefs refs;
    Mp4TableBuild tables;
};

struct Mp4TrackBuild {
    uint64_t atom_size;
    Mp4TrackHeader header;
    bool duration_set;  // else the length of the edits, or of the media
    Mp4TrackReferenceList references;
    Mp4EditList edits;
    Mp4MediaBuild media;
    Mp4UserBuild user;
    Mp4TrackBuild* next;
};

struct Mp4TrackBuildList {
    Mp4TrackBuild* head;
    Mp4TrackBuild* tail;
    uint32_t count;
};

// Which fields of the movie header a caller set.
enum Mp4MovieField : uint32_t {
    kFieldCreation = 0x01,
    kFieldModification = 0x02,
    kFieldTimescale = 0x04,
    kFieldDuration = 0x08,  // else the longest track's
    kFieldRateInteger = 0x10,
    kFieldRateFraction = 0x20,
    kFieldVolumeInteger = 0x40,
    kFieldVolumeFraction = 0x80,
    kFieldMatrix = 0x100,
    kFieldNextTrackId = 0x200  // else follows from the highest
};

struct Mp4MovieBuild {
    uint64_t atom_size;
    uint32_t set_fields;  // Mp4MovieField
    Mp4MovieHeader header;
    Mp4ByteBlock iods;  // its descriptor, behind version and flags; empty: no 'iods'
    Mp4TrackBuildList tracks;
    Mp4MovieExtends extends;  // no 'trex': no 'mvex'
    Mp4UserBuild user;
};

// Normal speed, full volume, no turning; 1000 units a second.
void mp4_init_movie_build(Mp4MovieBuild* movie);
void mp4_free_movie_build(Mp4Host* host, Mp4MovieBuild* movie);

// Takes over the fields named in `fields` (Mp4MovieField). FF4_RET_ARGS for a timescale of 0,
// FF4_RET_STATE for a time past 32 bits under a policy of version 0; then nothing is taken.
Mp4Result mp4_set_movie_fields(const Mp4WriteOptions& options, uint32_t fields,
                               const Mp4MovieHeader& header, Mp4MovieBuild* movie);

// What a track is made of. Zero is a default where one is named.
struct Mp4NewTrack {
    uint32_t handler_type = 0;  // 'vide', 'soun' ...
    uint32_t timescale = 0;     // media units a second, not 0
    uint32_t track_id = 0;      // 1 to 127 or 1024 to 63487; 0: the next free one
    int32_t visibility = 0;     // 0, -1: disabled; 1, 8: shown; 2, 6: not by default
    uint16_t language = 0;      // packed as in 'mdhd'
    uint16_t layer = 0, alternate_group = 0;
    uint16_t width_integer = 0, width_fraction = 0;  // pixels
    uint16_t height_integer = 0, height_fraction = 0;
    uint32_t matrix[9] = {};     // all 0: no turning
    uint32_t constant_size = 0;  // bytes of every sample; 0: each has its own
    uint32_t field_bits = 0;     // 4, 8 or 16 for a compact size table; 0: the ordinary one
};

// Adds a track at the end. FF4_RET_ARGS for a timescale of 0, a visibility or id out of range or
// an id in use, FF4_RET_NOTFOUND when no id is left, FF4_RET_INTERNAL for an unknown handler.
Mp4Result mp4_add_track_build(Mp4Host* host, const Mp4NewTrack& track, Mp4MovieBuild* movie,
                              Mp4TrackBuild** out);

// Flags of 'tkhd' for a visibility.
Mp4Result mp4_track_flags(int32_t visibility, uint32_t* flags);

// Length of the media in movie units: its edits, else its samples. FF4_RET_OVERFLOW past 64 bits.
Mp4Result mp4_track_duration(const Mp4MovieBuild& movie, const Mp4TrackBuild& track,
                             uint64_t* duration);
Mp4Result mp4_longest_track(const Mp4MovieBuild& movie, uint64_t* duration);

}  // namespace tarn

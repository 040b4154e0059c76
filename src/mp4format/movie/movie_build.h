// movie_build.h - a movie that is being written: everything of 'moov' but the bytes.
//
// The tree is filled as samples arrive and written at the end. It owns its lists and the copies it
// takes of what callers hand in; mp4_free_movie_build gives all back to the host.
#pragma once

#include <cstdint>

#include "mp4format/atoms/data_refs.h"
#include "mp4format/atoms/edit_list.h"
#include "mp4format/atoms/meta_items.h"
#include "mp4format/atoms/movie_extends.h"
#include "mp4format/atoms/movie_headers.h"
#include "mp4format/tables/table_build.h"
#include "mp4format/write_options.h"

namespace tarn {

// The camera's user metadata of a movie or a track. Empty lists leave no atom.
struct Mp4UserBuild {
    Mp4MetaList texts;  // 'MTDT'
    Mp4MetaList files;  // 'MTDF'
};

// 'vmhd', 'smhd' or 'nmhd'.
struct Mp4MediaHeaderAtom {
    uint32_t type;
    uint16_t graphics_mode, op_color[3];  // 'vmhd'
    int16_t balance;                      // 'smhd', 8.8, 0 is the centre
};

struct Mp4MediaBuild {
    uint64_t atom_size;     // of 'mdia', when it was last counted or written; so in the others
    Mp4MediaHeader header;  // its duration is the tables'
    uint32_t handler_type;
    Mp4MediaHeaderAtom media_header;
    Mp4DataRefs refs;
    Mp4TableBuild tables;
};

// One kind of reference of a track to others.
struct Mp4TrackReference {
    uint32_t type;
    uint32_t* track_ids;
    uint32_t count;
    Mp4TrackReference* next;
};

struct Mp4TrackReferenceList {
    Mp4TrackReference* head;
    Mp4TrackReference* tail;
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
    bool has_extends;  // 'mvex' with what is in `extends`
    Mp4MovieExtends extends;
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

// Whether an entry fits only version 1 of 'elst'; the -1 of an empty edit fits either.
bool mp4_edit_needs_64_bits(const Mp4Edit& edit);
// FF4_RET_STATE for an edit that needs 64 bits under a policy of version 0.
Mp4Result mp4_add_edit(Mp4Host* host, const Mp4WriteOptions& options, const Mp4Edit& edit,
                       Mp4TrackBuild* track);
constexpr uint32_t kDataInSameFile = 1;  // flags of 'url '
// 'url ' with a location or without, which is this very file; 'urn ' with a name and maybe a
// location. Texts are copied. Another type is FF4_RET_ARGS.
Mp4Result mp4_add_data_ref(Mp4Host* host, uint32_t type, const char* location, const char* name,
                           Mp4DataRefs* refs);
Mp4Result mp4_add_track_reference(Mp4Host* host, uint32_t type, const uint32_t* track_ids,
                                  uint32_t count, Mp4TrackBuild* track);
constexpr uint32_t kMostMetaData = 65525;  // bytes: the 16-bit size of an item counts its head
// Copies an item with its data. FF4_RET_OVERFLOW for data that no item can hold or an item past
// 65,535.
Mp4Result mp4_add_meta_item(Mp4Host* host, const Mp4MetaItem& item, Mp4MetaList* list);
Mp4Result mp4_add_trex(Mp4Host* host, const Mp4Trex& trex, Mp4MovieBuild* movie);

// Length of the media in movie units: its edits, else its samples. FF4_RET_OVERFLOW past 64 bits.
Mp4Result mp4_track_duration(const Mp4MovieBuild& movie, const Mp4TrackBuild& track,
                             uint64_t* duration);
Mp4Result mp4_longest_track(const Mp4MovieBuild& movie, uint64_t* duration);

}  // namespace tarn

// session.h - one movie file open for reading: the engine's front door.
//
// A session is opened on a file that the host can read, and answers questions about the file and
// its tracks. It is used by one thread at a time and must outlive every list handle taken from it.
// All functions test their pointers first (FF4_RET_ARGS). Track numbers count from 1 in the order
// of the file and are not the track identifiers.
#pragma once

#include <cstdint>

#include "mp4format/atoms/movie_headers.h"
#include "mp4format/fragments/fragments.h"
#include "mp4format/host.h"
#include "mp4format/movie/file_index.h"
#include "mp4format/tables/track_cache.h"
#include "mp4format/tables/track_tables.h"
#include "mp4format/time_math.h"

namespace tarn {

struct Mp4OpenParams {
    uint64_t memoryLimit;        // bytes; 0 for none
    uint32_t memoryPercent;      // the share of the limit for table windows
    uint32_t parseAllFragments;  // 0: the scan stops at the first 'moof'
};

// What the top-level scan found, one bit each.
enum Mp4FileFlags : uint32_t {
    kFileMovieExtends = 1u << 0,
    kFileTrackDefaults = 1u << 1,  // a file that may hold fragments
    kFileFragments = 1u << 2,
    kFileRandomAccess = 1u << 3,
    kFileType = 1u << 4,
    kFileProfile = 1u << 5,
    kFileMovie = 1u << 6,
    kFileMovieUser = 1u << 7,
    kFileLicence = 1u << 8,
    kFileMtsd = 1u << 9,
    kFileExtra = 1u << 10,
    kFileMdri = 1u << 11,
};

// A sample as its track's tables or fragments describe it; times in media units.
struct Mp4SampleInfo {
    uint32_t size;               // bytes
    uint64_t offset;             // in the file
    uint32_t duration;           // decoding duration
    uint32_t isSync;             // 1 for a sync sample
    int32_t compositionOffset;   // presentation time less decoding time
    uint32_t compositionSigned;  // 1 when the track has 'ctts' of version 1
    uint32_t descriptionIndex;   // 1-based
};

// Samples that differ in number and place alone and lie one after the other.
struct Mp4AlikeSamples {
    uint32_t first, count;
    uint64_t start;      // of the first, media units
    Mp4SampleInfo info;  // of the first
};

// A track in use.
struct Mp4OpenTrack {
    uint32_t number;
    const Mp4TrackIndex* index;
    Mp4TrackTables tables;
    Mp4TrackCache* cache;  // the windows of its tables
    uint64_t duration;     // media units; 0 until it has been asked for
    Mp4AlikeSamples last;  // what the last lookup by number found: a walk mostly stays in it
    Mp4OpenTrack* next;
};

struct Mp4OpenTrackList {
    Mp4OpenTrack* head;
    Mp4OpenTrack* tail;
};

struct Mp4ReadSession {
    Mp4Host* host;
    Mp4File* file;
    Mp4OpenParams params;
    uint64_t file_size;
    Mp4FileIndex index;
    const Mp4TrackIndex** numbered;  // the tracks of the index, in their order
    Mp4OpenTrackList tracks;
    Mp4TrackCacheList caches;  // the tables' windows of the open tracks
    uint32_t asked_track;      // the one whose content was asked for last; 0 before that
    uint64_t duration_plain;   // movie units; 0 until it has been asked for
    uint64_t duration_fragmented;
    Mp4FragmentState* fragments;  // null for a file without track defaults
};

// On a failure all is undone and `session` stays untouched. FF4_RET_FILE when the length can't be
// had or a read comes back short. `flags` gets Mp4FileFlags.
Mp4Result mp4_open_read(Mp4Host* host, Mp4File* file, const Mp4OpenParams& params,
                        Mp4ReadSession** session, uint32_t* flags);
// Gives everything back; the file itself stays open.
Mp4Result mp4_close_read(Mp4Host* host, Mp4ReadSession* session);

struct Mp4FileType {
    uint32_t major_brand, minor_version;
};
// FF4_RET_NOTFOUND without 'ftyp', FF4_RET_FORMAT for one below 8 bytes.
Mp4Result mp4_get_file_type(Mp4ReadSession* session, Mp4FileType* out);
Mp4Result mp4_has_compatible_brand(Mp4ReadSession* session, uint32_t brand, uint32_t* flag);
// The list of compatible brands, 1-based; FF4_RET_NOTFOUND after the last.
// As many of them from `first` on, counted from 1, as there are, at most `most`.
Mp4Result mp4_get_compatible_brands(Mp4ReadSession* session, uint32_t first, uint32_t most,
                                    uint32_t* brands, uint32_t* count);
Mp4Result mp4_get_compatible_brand(Mp4ReadSession* session, uint32_t number, uint32_t* brand);

struct Mp4MovieHeaderInfo {
    uint64_t creation, modification;  // seconds since 1904
    uint32_t timescale;
    uint64_t duration;  // as stored
    uint16_t rate_integer, rate_fraction;
    uint8_t volume_integer, volume_fraction;
    uint32_t matrix[9];
    uint32_t next_track_id;
};
// FF4_RET_NOTFOUND without 'mvhd'.
Mp4Result mp4_get_movie_header(Mp4ReadSession* session, Mp4MovieHeaderInfo* out);

struct Mp4MovieExtent {
    Mp4Span atom, payload;  // of 'moov'
};
Mp4Result mp4_get_movie_extent(Mp4ReadSession* session, Mp4MovieExtent* out);

// The longest counting track in movie units. Object descriptor tracks do not count, nor do video
// tracks whose role is another than the main one.
Mp4Result mp4_get_movie_duration(Mp4ReadSession* session, uint64_t* duration);

}  // namespace tarn

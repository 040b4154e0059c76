// file_index.h - what one walk over the top of a movie file finds: the movie with its tracks, the
// fragments, the camera's own atoms. Nothing but headers and the small fixed atoms is read.
#pragma once

#include <cstdint>

#include "mp4format/atom.h"
#include "mp4format/atoms/movie_extends.h"
#include "mp4format/atoms/random_access.h"
#include "mp4format/atoms/user_atoms.h"

namespace tarn {

// What the atoms in a track say of it.
struct Mp4TrackFacts {
    Mp4Span tkhd;  // payload
    uint32_t track_id;
    Mp4Span mdhd;  // payload
    uint32_t timescale;
    uint64_t duration;  // media units, as the header says
    Mp4Span hdlr;       // payload
    uint32_t handler_type;
    Mp4Span handler_name;
    Mp4UserAtomList user;
};

// Small: a file of a few megabytes may hold half a million.
struct Mp4TrackIndex {
    Mp4Span atom, payload;       // of 'trak'
    const Mp4TrackFacts* facts;  // never null: those of a track that says nothing are shared
    Mp4TrackIndex* next;
};

struct Mp4TrackIndexList {
    Mp4TrackIndex* head;
    Mp4TrackIndex* tail;
    uint32_t count;
};

struct Mp4MovieIndex {
    Mp4Span atom, payload;  // of 'moov'
    Mp4Span mvhd;           // payload
    uint32_t timescale;
    Mp4Span iods;             // payload
    Mp4Span iods_descriptor;  // behind version and flags
    Mp4TrackIndexList tracks;
    Mp4UserAtomList user;
    Mp4MovieExtends extends;  // 'mvex'
};

// One 'moof' atom that the walk kept.
struct Mp4MoofSpan {
    Mp4Span atom;
    Mp4MoofSpan* next;
};

struct Mp4MoofList {
    Mp4MoofSpan* head;
    Mp4MoofSpan* tail;
};

struct Mp4FileIndex {
    Mp4Span ftyp;  // payload
    Mp4UserAtomList profile;
    Mp4MovieIndex movie;
    Mp4RandomAccess random_access;  // 'mfra'
    Mp4MoofList moofs;
    Mp4Span mtsd_atom, mtsd_payload;
    Mp4UserAtomList lici;
    Mp4Span extra_atom, extra_payload;
    Mp4Span mdri_atom, mdri_payload;
};

struct Mp4ScanOptions {
    bool scan_past_moof;  // go on after the first fragment; else the walk stops there
    bool keep_all_moof;   // remember every 'moof', not the first alone
};

// Walks the top level. A file without 'moov' or 'ftyp' is no failure: the spans tell. On a failure
// what was recorded so far stays in `index`; mp4_free_file_index gives all of it back.
Mp4Result mp4_scan_file(Mp4Host* host, Mp4File* file, uint64_t file_size,
                        const Mp4ScanOptions& options, Mp4FileIndex* index);
void mp4_free_file_index(Mp4Host* host, Mp4FileIndex* index);

}  // namespace tarn

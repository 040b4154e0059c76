// movie_builder.h - whole movies from a plain list of samples, which afterwards knows where each
// of them lies: the truth that a reader is compared with.
//
//     MovieBuilder movie{.tracks = {VideoTrack(90), SoundTrack(140)}};
//     TestHost host(movie.Build());
//     // movie.tracks[0].samples[5].offset, .time ...
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "support/atoms.h"

namespace tarn {

struct MovieSample {
    uint32_t size;
    uint32_t duration;  // media timescale, as are composition and time
    int32_t composition = 0;
    bool sync = true;
    uint32_t description = 1;
    // Set by Build:
    uint64_t offset = 0, time = 0;
};

enum class SyncTable { kWhereNeeded, kAlways, kNever };

struct MovieTrack {
    FourCC handler;
    uint32_t timescale;
    std::vector<MovieSample> samples;
    // Samples of each chunk in turn; the last figure goes on. A new description begins a chunk too.
    std::vector<uint32_t> chunks = {1};
    std::vector<Edit> edits = {};
    std::vector<Bytes> entries = {};  // none: what goes with the handler
    std::vector<Bytes> refs = {Url()};
    uint32_t id = 0;                  // 0: its place in the movie, from 1
    uint8_t version = 0;              // of the headers and the edit list
    uint8_t size_bits = 32;           // 32: stsz, 0: stsz of a constant size, 4, 8, 16: stz2
    bool co64 = false, merge = true;  // merge: equal neighbours share a run of their table
    SyncTable sync_table = SyncTable::kWhereNeeded;
    std::optional<uint8_t> ctts_version = {};  // none: a ctts only where an offset is not 0
    uint32_t flags = 7;                        // of its header
    uint32_t role = 0;                         // 0: no role record
    Bytes extra = {};                          // atoms at the end of the trak
};

// `count` pictures of 1001/30000 s in groups of `group`, with `between` B pictures in a row.
MovieTrack VideoTrack(uint32_t count, uint32_t group = 12, uint32_t between = 0);
// `count` frames of AAC at 48 kHz.
MovieTrack SoundTrack(uint32_t count);

struct MovieBuilder {
    std::vector<MovieTrack> tracks;
    uint32_t timescale = 1000;
    bool moov_first = false, large_mdat = false;
    bool camera = false;  // brand 'MSNV' with profile records
    // Above 0: of each track, what is behind the first `plain_samples` lies in fragments of so
    // many.
    uint32_t fragment_samples = 0, plain_samples = 0;
    Bytes top_extra = {}, moov_extra = {};  // in front of the media, in moov

    // The file. Chunks of the tracks take turns. Fills in the truth about the samples.
    Bytes Build();
};

// What lies in a sample of the file: bytes that tell track, number (from 1) and place.
Bytes SampleContent(uint32_t track_id, uint64_t number, uint32_t size);

// A movie with every atom that a reader knows; with `fragments`, a moof and an mfra behind it.
MovieBuilder RichMovie(bool fragments = false);
// One to four tracks with tables of every form, odd chunks, edits, sizes and offsets.
MovieBuilder RandomMovie(uint64_t seed);

}  // namespace tarn

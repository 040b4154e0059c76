// long_clip.h - clips of hours and many gigabytes, written in a moment: headers and tables are
// real, the media is a hole in the file.
#pragma once

#include <string>
#include <vector>

#include "support/movie_builder.h"

namespace tarn {

struct LongTrack {
    FourCC handler = "vide";
    uint32_t timescale = 30000, duration = 1001;
    uint32_t count = 0;        // samples
    uint32_t size = 1000;      // of sample n (from 1): this and n % 7
    uint32_t per_chunk = 15;   // samples
    uint32_t sync_every = 15;  // 0: no sync table
    bool reordered = false;    // a ctts with a run for each sample: n % 3 durations
};

struct LongClip {
    std::vector<LongTrack> tracks;

    // False when the file can't be written. moov is at the end, behind a 64-bit mdat.
    bool Write(const std::string& path) const;
    // The truth about sample `number` (from 1) of a track (from 0).
    MovieSample Sample(size_t track, uint32_t number) const;
};

}  // namespace tarn

// whole_samples.h - of a recording whose file ends early, as much as there is.
#pragma once

#include <string>

#include "base/reason.h"
#include "movie/engine/session.h"
#include "movie/objects/movie_info.h"

namespace tarn {

// Takes away what follows a track's last sample whose bytes all lie within the file: count and
// duration become those of what is left. Asks for one sample of a file that is complete.
Mp4Result CutMissingSamples(Mp4ReadSession* session, MovieTrackInfo* track);

// When the last sample's time is over in the movie's own timeline, in units of `movieTimescale`.
Mp4Result GetMovieEnd(Mp4ReadSession* session, const MovieTrackInfo& track, uint32_t movieTimescale,
                      uint64_t* end);

struct SampleCounts {
    uint64_t all = 0, missing = 0;
};
// Tells what is missing of the movie `file`; none where nothing is.
Reason MissingSamples(const SampleCounts& video, const SampleCounts& audio,
                      const std::string& file);

}  // namespace tarn

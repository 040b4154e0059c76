// movie_rig.h - a movie under construction.
#pragma once

#include <gtest/gtest.h>

#include "mp4format/movie/movie_build.h"
#include "support/test_host.h"

namespace tarn {

// Owns a movie; its host outlives it.
struct Movie {
    explicit Movie(TestHost& at) : host(at) { mp4_init_movie_build(&build); }
    ~Movie() { mp4_free_movie_build(host, &build); }
    TestHost& host;
    Mp4MovieBuild build{};
};

inline Mp4TrackBuild* AddTrack(Movie& movie, const Mp4NewTrack& track = {
                                                 .handler_type = fourcc("soun"), .timescale = 1}) {
    Mp4TrackBuild* made = nullptr;
    EXPECT_EQ(mp4_add_track_build(movie.host, track, &movie.build, &made), FF4_RET_OK);
    return made;
}

}  // namespace tarn

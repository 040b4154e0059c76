#include "mp4format/movie/movie_build.h"

#include <gtest/gtest.h>

#include "mp4format/movie/movie_rig.h"

namespace tarn {
namespace {

constexpr uint64_t k4G = uint64_t{1} << 32;

TEST(MovieBuild, FieldsAreTakenByTheMask) {
    TestHost host;
    Movie movie(host);
    Mp4MovieHeader header{};
    header.rate = 0x00025678;
    header.volume = 0x0342;
    header.creation_time = k4G;
    const Mp4WriteOptions narrow = {kSizeAuto, kVersion0Too, kOffsetAuto};
    EXPECT_EQ(mp4_set_movie_fields(narrow, kFieldTimescale, header, &movie.build), FF4_RET_ARGS);
    EXPECT_EQ(
        mp4_set_movie_fields(narrow, kFieldCreation | kFieldRateInteger, header, &movie.build),
        FF4_RET_STATE);
    EXPECT_EQ(movie.build.header.rate, 0x10000u) << "nothing is taken";
    EXPECT_EQ(mp4_set_movie_fields(narrow, kFieldRateFraction | kFieldVolumeInteger, header,
                                   &movie.build),
              FF4_RET_OK);
    EXPECT_EQ(movie.build.header.rate, 0x15678u);
    EXPECT_EQ(movie.build.header.volume, 0x300);
    EXPECT_EQ(movie.build.header.creation_time, 0u);
}

TEST(MovieBuild, VisibilityAndDurationsPast64Bits) {
    const std::pair<int32_t, int64_t> cases[] = {{0, 0}, {-1, 0}, {1, 7},  {8, 7},
                                                 {2, 6}, {6, 6},  {3, -1}, {7, -1}};
    for (const auto& [visibility, expected] : cases) {
        uint32_t flags = 99;
        const Mp4Result result = mp4_track_flags(visibility, &flags);
        EXPECT_EQ(result, expected < 0 ? FF4_RET_ARGS : FF4_RET_OK) << visibility;
        EXPECT_EQ(flags, expected < 0 ? 99 : expected) << visibility;
    }
    TestHost host;
    Movie movie(host);
    Mp4TrackBuild* track = AddTrack(movie);
    track->media.tables.duration = UINT64_MAX / 1000 + 1;
    uint64_t duration = 0;
    EXPECT_EQ(mp4_track_duration(movie.build, *track, &duration), FF4_RET_OVERFLOW);
    EXPECT_EQ(mp4_longest_track(movie.build, &duration), FF4_RET_OVERFLOW);
}

}  // namespace
}  // namespace tarn

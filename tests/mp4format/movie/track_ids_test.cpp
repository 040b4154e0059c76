#include "mp4format/movie/track_ids.h"

#include <gtest/gtest.h>

#include <numeric>
#include <vector>

#include "mp4format/movie/movie_rig.h"

namespace tarn {
namespace {

TEST(TrackIds, TheNextOne) {
    std::vector<uint32_t> all_low(128, 63487);
    std::iota(all_low.begin() + 1, all_low.end(), 1);
    const std::tuple<const char*, std::vector<uint32_t>, uint32_t, uint32_t> cases[] = {
        {"the first", {}, 1, 1},
        {"above the highest, not in a hole", {1, 5}, 6, 6},
        {"the last of the low ones", {126}, 127, 127},
        {"over the gap", {127}, 1024, 1024},
        {"high", {1024}, 1025, 1025},
        {"the last", {63486}, 63487, 63487},
        {"the highest used up: a low one", {63487, 1, 2}, 3, 0xFFFFFFFF},
        {"the low ones too: on from 1024", all_low, 1024, 0xFFFFFFFF},
    };
    for (const auto& [name, given, picked, next] : cases) {
        SCOPED_TRACE(name);
        TestHost host;
        Movie movie(host);
        const auto with_id = [](uint32_t id) {
            return Mp4NewTrack{.handler_type = fourcc("soun"), .timescale = 1, .track_id = id};
        };
        for (const uint32_t id : given)
            AddTrack(movie, with_id(id));
        EXPECT_EQ(mp4_next_track_id(movie.build), next);
        EXPECT_EQ(AddTrack(movie)->header.track_id, picked);
        for (const uint32_t bad : {128u, 1023u, 63488u, picked}) {
            Mp4TrackBuild* none = nullptr;
            EXPECT_EQ(mp4_add_track_build(host, with_id(bad), &movie.build, &none), FF4_RET_ARGS);
        }
    }
}

}  // namespace
}  // namespace tarn

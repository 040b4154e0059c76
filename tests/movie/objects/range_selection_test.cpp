#include "movie/objects/range_selection.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "movie/objects/movie_reader.h"
#include "support/movie_builder.h"
#include "support/temp_dir.h"

namespace tarn {
namespace {

// 25 pictures a second of 1000 units each, in groups of ten (0.4 s); sound of 1024 units at 48 kHz.
MovieTrack pictures(uint32_t count, uint32_t between = 0) {
    MovieTrack track = VideoTrack(count, 10, between);
    track.timescale = 25000;
    for (MovieSample& s : track.samples) {
        s.composition = s.composition / 1001 * 1000;
        s.duration = 1000;
    }
    return track;
}

struct Case {
    const char* name;
    std::vector<MovieTrack> tracks;
    uint64_t in, out;
    uint32_t samples[4];  // first and end of the picture, then of the sound
    int64_t offsets[2];   // where each starts
    uint64_t actual[2];   // in, out
};

MovieTrack with_edits(MovieTrack track, std::vector<Edit> edits) {
    track.edits = std::move(edits);
    return track;
}

TEST(RangeSelection, CutsOnSyncSamplesWithSoundInStep) {
    const MovieTrack sound = SoundTrack(188);  // 4.0107 s
    const MovieTrack plain = pictures(100), reordered = pictures(100, 2);
    const MovieTrack edited = with_edits(reordered, {{4000, 1000}});
    const MovieTrack late = with_edits(sound, {{1000, -1}, {3000, 0}});
    const Case cases[] = {
        {"all of it", {plain, sound}, 0, 4010, {1, 101, 1, 189}, {0, 0}, {0, 4010}},
        // Sound starts in the frame that holds 0.4 s: 19200 = 18 * 1024 + 768.
        {"within a group", {plain, sound}, 500, 1000, {11, 31, 19, 57}, {0, 768}, {400, 1200}},
        {"on sync samples", {plain, sound}, 400, 1200, {11, 31, 19, 57}, {0, 768}, {400, 1200}},
        {"equal points", {plain, sound}, 400, 400, {11, 21, 19, 39}, {0, 768}, {400, 800}},
        {"last group", {plain, sound}, 3700, 3900, {91, 101, 169, 189}, {0, 768}, {3600, 4000}},
        // With B pictures the first is shown a picture late, 40 ms, which the edit takes back.
        {"B, edited", {edited, sound}, 400, 800, {11, 21, 19, 39}, {0, 768}, {400, 800}},
        // Without the edit the picture of sync sample 11 is shown at 440 ms.
        {"B", {reordered, sound}, 440, 840, {11, 21, 21, 40}, {0, 640}, {440, 840}},
        {"B, too early", {reordered, sound}, 0, 440, {1, 11, 1, 22}, {-1000, 0}, {0, 440}},
        // The sound comes a second late: nothing of it before, and its own delay kept.
        {"late sound", {plain, late}, 400, 1600, {11, 41, 1, 29}, {0, -28800}, {400, 1600}},
        {"over", {pictures(200), sound}, 6000, 6400, {151, 161, 189, 189}, {0, 0}, {6000, 6400}},
        {"sound alone", {sound}, 500, 1000, {1, 1, 24, 48}, {0, 448}, {500, 1000}},
        {"picture alone", {plain}, 500, 1000, {11, 31, 1, 1}, {0, 0}, {400, 1200}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TempDir dir;
        const Bytes bytes = MovieBuilder{.tracks = c.tracks}.Build();
        dir.Write("m.mp4", {bytes.begin(), bytes.end()});
        CMP4MovieRead movie;
        movie.SetPath(dir.Path("m.mp4"));
        ASSERT_EQ(movie.Open(), kMovieOk);
        uint64_t in = c.in, out = c.out;
        ASSERT_EQ(movie.SelectRange(&in, &out, c.out == 4010), kMovieOk);
        const TrackRange &video = movie.GetRange().video, &audio = movie.GetRange().audio;
        const uint32_t samples[] = {video.first, video.end, audio.first, audio.end};
        EXPECT_TRUE(std::ranges::equal(samples, c.samples)) << testing::PrintToString(samples);
        EXPECT_EQ(video.startOffset, c.offsets[0]);
        if (audio.first < audio.end) {
            EXPECT_EQ(audio.startOffset, c.offsets[1]);
        }
        EXPECT_EQ(in, c.actual[0]);
        EXPECT_EQ(out, c.actual[1]);
    }
}

}  // namespace
}  // namespace tarn

#include "movie/range_selection.h"

#include <gtest/gtest.h>

#include <fstream>

#include "movie/movie_reader.h"
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
    bool at_end;
    // first and end sample of the picture, then of the sound, and its start offset
    uint32_t video_first, video_end, audio_first, audio_end;
    int64_t video_offset, audio_offset;
    uint64_t actual_in, actual_out;
};

MovieTrack with_edits(MovieTrack track, std::vector<Edit> edits) {
    track.edits = std::move(edits);
    return track;
}

TEST(RangeSelection, CutsOnSyncSamplesWithSoundInStep) {
    const MovieTrack sound = SoundTrack(188);  // 4.0107 s
    const Case cases[] = {
        {"all of it", {pictures(100), sound}, 0, 4010, true, 1, 101, 1, 189, 0, 0, 0, 4010},
        // Sound starts in the frame that holds 0.4 s: 19200 = 18 * 1024 + 768.
        {"in point within a group",
         {pictures(100), sound},
         500,
         1000,
         false,
         11,
         31,
         19,
         57,
         0,
         768,
         400,
         1200},
        {"points on sync samples",
         {pictures(100), sound},
         400,
         1200,
         false,
         11,
         31,
         19,
         57,
         0,
         768,
         400,
         1200},
        {"equal points keep a group",
         {pictures(100), sound},
         400,
         400,
         false,
         11,
         21,
         19,
         39,
         0,
         768,
         400,
         800},
        {"out point behind the last sync sample",
         {pictures(100), sound},
         3700,
         3900,
         false,
         91,
         101,
         169,
         189,
         0,
         768,
         3600,
         4000},
        // With B pictures the first is shown a picture late, 40 ms, which the edit takes back.
        {"reordered pictures, with their edit",
         {with_edits(pictures(100, 2), {{4000, 1000}}), sound},
         400,
         800,
         false,
         11,
         21,
         19,
         39,
         0,
         768,
         400,
         800},
        // Without the edit the picture of sync sample 11 is shown at 440 ms.
        {"reordered pictures without an edit",
         {pictures(100, 2), sound},
         440,
         840,
         false,
         11,
         21,
         21,
         40,
         0,
         640,
         440,
         840},
        {"before the first picture is shown",
         {pictures(100, 2), sound},
         0,
         440,
         false,
         1,
         11,
         1,
         22,
         -1000,
         0,
         0,
         440},
        // The sound comes a second late: nothing of it before, and its own delay kept.
        {"late sound",
         {pictures(100), with_edits(sound, {{1000, -1}, {3000, 0}})},
         400,
         1600,
         false,
         11,
         41,
         1,
         29,
         0,
         -28800,
         400,
         1600},
        {"sound that is over",
         {pictures(200), sound},
         6000,
         6400,
         false,
         151,
         161,
         189,
         189,
         0,
         0,
         6000,
         6400},
        {"sound alone is cut by frames",
         {sound},
         500,
         1000,
         false,
         1,
         1,
         24,
         48,
         0,
         448,
         500,
         1000},
        {"picture alone", {pictures(100)}, 500, 1000, false, 11, 31, 1, 1, 0, 0, 400, 1200},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TempDir dir;
        const Bytes bytes = MovieBuilder{.tracks = c.tracks}.Build();
        std::ofstream(dir.Path("m.mp4"), std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()),
                   static_cast<std::streamsize>(bytes.size()));
        CMP4MovieRead movie;
        movie.SetPath(dir.Path("m.mp4"));
        ASSERT_EQ(movie.Open(), kMovieOk);
        uint64_t in = c.in, out = c.out;
        ASSERT_EQ(movie.SelectRange(&in, &out, c.at_end), kMovieOk);
        const MovieRange& range = movie.GetRange();
        EXPECT_EQ(range.video.first, c.video_first);
        EXPECT_EQ(range.video.end, c.video_end);
        EXPECT_EQ(range.audio.first, c.audio_first);
        EXPECT_EQ(range.audio.end, c.audio_end);
        EXPECT_EQ(range.video.startOffset, c.video_offset);
        if (c.audio_first < c.audio_end) {
            EXPECT_EQ(range.audio.startOffset, c.audio_offset);
        }
        EXPECT_EQ(in, c.actual_in);
        EXPECT_EQ(out, c.actual_out);
    }
}

}  // namespace
}  // namespace tarn

#include "movie/objects/range_selection.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "movie/objects/movie_reader.h"
#include "support/movie_builder.h"
#include "support/temp_dir.h"

namespace tarn {
namespace {

// A movie on disk, open.
struct Opened {
    explicit Opened(MovieBuilder builder) : truth(std::move(builder)) {
        const Bytes bytes = truth.Build();
        dir.Write("m.mp4", {bytes.begin(), bytes.end()});
        movie.SetPath(dir.Path("m.mp4"));
        EXPECT_EQ(movie.Open(), kMovieOk);
    }
    MovieBuilder truth;
    TempDir dir;
    CMP4MovieRead movie;
};

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

TEST(RangeSelection, CutsOnSyncSamplesWithSoundInStep) {
    const MovieTrack sound = SoundTrack(188), longer = SoundTrack(300);  // 4.0107 and 6.4 s
    const MovieTrack plain = pictures(100), reordered = pictures(100, 2), more = pictures(200);
    MovieTrack edited = reordered, late = sound;
    edited.edits = {{4000, 1000}};
    late.edits = {{1000, -1}, {3000, 0}};
    const struct {
        const char* name;
        std::vector<MovieTrack> tracks;
        uint64_t in, out;
        uint32_t samples[4];  // first and end of the picture, then of the sound
        int64_t offsets[2];   // where each starts
        uint64_t actual[2];   // in, out
    } cases[] = {
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
        {"sound over", {more, longer}, 6400, 6800, {161, 171, 301, 301}, {0, 0}, {6400, 6800}},
        {"sound alone", {sound}, 500, 1000, {1, 1, 24, 48}, {0, 448}, {500, 1000}},
        {"picture alone", {plain}, 500, 1000, {11, 31, 1, 1}, {0, 0}, {400, 1200}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Opened opened({.tracks = c.tracks});
        uint64_t in = c.in, out = c.out;
        ASSERT_EQ(opened.movie.SelectRange(&in, &out, c.out == 4010), kMovieOk);
        const TrackRange &video = opened.movie.GetRange().video,
                         &audio = opened.movie.GetRange().audio;
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

// Of samples `first` up to `end`.
uint64_t bytes_of(const MovieTrack& track, uint32_t first, uint32_t end) {
    uint64_t bytes = 0;
    for (uint32_t n = first; n < end; ++n)
        bytes += track.samples[n - 1].size;
    return bytes;
}

TEST(RangeSelection, PlacesTheCursorsAndCountsTheBytes) {
    Opened opened({.tracks = {pictures(100), SoundTrack(188)}});
    const int64_t before = opened.movie.GetSelectedBytes();
    EXPECT_GT(before, 1000) << "the movie header";
    uint64_t in = 500, out = 1000;
    ASSERT_EQ(opened.movie.SelectRange(&in, &out, false), kMovieOk);
    using Figures = std::vector<uint64_t>;
    const auto figures = [&](CMP4MovieRead::Track track) {
        const TrackCursor& c = opened.movie.GetCursor(track);
        return Figures{c.trackNumber, c.currentSample, c.endSample, c.currentTime, c.endTime};
    };
    EXPECT_EQ(figures(CMP4MovieRead::Track::kVideo), (Figures{1, 11, 31, 10000, 30000}));
    EXPECT_EQ(figures(CMP4MovieRead::Track::kAudio), (Figures{2, 19, 57, 18 * 1024, 56 * 1024}));
    const uint64_t bytes =
        bytes_of(opened.truth.tracks[0], 11, 31) + bytes_of(opened.truth.tracks[1], 19, 57);
    EXPECT_EQ(opened.movie.GetSelectedBytes() - before, static_cast<int64_t>(bytes));
    EXPECT_EQ(opened.movie.GetSelectedSampleCount(), 20u);
    EXPECT_EQ(opened.movie.GetRange().leadIn, 2500u);
    EXPECT_EQ(opened.movie.GetRange().leadOut, 5000u);
    EXPECT_EQ(opened.movie.GetRange().exactInMs, 480u) << "the picture on the screen at 500 ms";
}

TEST(RangeSelection, ALimitOfBytesKeepsWholeGroups) {
    const MovieTrack track = pictures(100);
    const auto two = static_cast<int64_t>(bytes_of(track, 1, 21));
    const std::tuple<int64_t, uint32_t, uint32_t, uint64_t> cases[] = {
        {two, 21, 39, 800},        {two - 1, 11, 20, 400}, {1, 11, 20, 400},
        {two * 9, 101, 189, 4000}, {0, 101, 191, 4000},    {-1, 101, 191, 4000}};
    for (const auto& [limit, end, sound_end, due_out] : cases) {
        SCOPED_TRACE(limit);
        Opened opened({.tracks = {track, SoundTrack(190)}});
        opened.movie.SetSizeLimit(limit);
        uint64_t in = 0, out = 4000;
        ASSERT_EQ(opened.movie.SelectRange(&in, &out, true), kMovieOk);
        EXPECT_EQ(opened.movie.GetRange().video.end, end);
        EXPECT_EQ(opened.movie.GetRange().audio.end, sound_end);
        EXPECT_EQ(out, due_out);
    }
}

TEST(RangeSelection, ATrackStartsWithTheEarliestOfThreePictures) {
    MovieTrack track = pictures(6);
    const int32_t compositions[] = {3000, 5000, 0, -3000};  // shown at 3000, 6000, 2000 and 0
    for (size_t i = 0; i < 4; ++i)
        track.samples[i].composition = compositions[i];
    track.ctts_version = uint8_t{1};
    const Opened opened({.tracks = {track}});
    int64_t start = 0;
    const MovieTrackInfo& video = opened.movie.GetInfo().video;
    ASSERT_EQ(GetPresentationStart(opened.movie.Session(), video, &start), FF4_RET_OK);
    EXPECT_EQ(start, 2000);
}

TEST(RangeSelection, RefusesWhatIsNoRange) {
    MovieTrack timeless = pictures(10);
    timeless.samples[0].duration = 0;
    const MovieTrack ten = pictures(10);
    using enum ReasonCode;
    const std::tuple<MovieTrack, uint64_t, uint64_t, MovieCode, ReasonCode> cases[] = {
        {ten, 200, 100, kMovieRange, kOutsideMovie},
        {timeless, 0, 100, movie_code(FF4_RET_FORMAT), kDamaged},
        {ten, UINT64_MAX / 2, UINT64_MAX, movie_code(FF4_RET_OVERFLOW), kNumberTooLarge},
    };
    for (const auto& [track, from, to, code, reason] : cases) {
        SCOPED_TRACE(ReasonName(reason));
        Opened opened({.tracks = {track}});
        uint64_t in = from, out = to;
        EXPECT_EQ(opened.movie.SelectRange(&in, &out, false), code);
        EXPECT_EQ(opened.movie.GetReason().code, reason);
        EXPECT_EQ(in, from);
    }
}

}  // namespace
}  // namespace tarn

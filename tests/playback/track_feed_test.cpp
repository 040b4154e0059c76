#include "playback/track_feed.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "player_rig.h"
#include "support/movie_builder.h"
#include "support/temp_dir.h"

namespace tarn {
namespace {

using enum TrackFeed::Kind;

constexpr int64_t kMs = 1'000'000, kPicture = 33'366'666;  // ns; 1001/30000 s, rounded down

// All that is given from here on.
std::vector<FeedSample> Rest(TrackFeed* feed) {
    std::vector<FeedSample> rest;
    MovieCode code = kMovieOk;
    for (FeedSample sample; (code = feed->Next(&sample)) == kMovieOk;)
        rest.push_back(sample);
    EXPECT_EQ(code, kMovieEndOfSamples);
    return rest;
}

std::vector<uint32_t> Numbers(const std::vector<FeedSample>& samples) {
    std::vector<uint32_t> numbers;
    for (const FeedSample& sample : samples)
        numbers.push_back(sample.number);
    return numbers;
}

// A movie with one track, opened.
class Feed {
public:
    explicit Feed(MovieTrack track, TrackFeed::Kind kind = kVideo) {
        const Bytes bytes = MovieBuilder{.tracks = {std::move(track)}}.Build();
        m_dir.Write("a.mp4", {bytes.begin(), bytes.end()});
        const Reason reason = feed.Open(Path(), kind);
        EXPECT_FALSE(reason) << reason;
    }
    std::string Path() const { return m_dir.Path("a.mp4"); }

    TrackFeed feed;

private:
    const TempDir m_dir;
};

TEST(TrackFeed, BeginsWhereDecodingHasTo) {
    Feed video(VideoTrack(30, 10)), sound(SoundTrack(47), kAudio);  // 1.001 s, 1.002666 s
    const struct {
        const char* name;
        Feed* clip;
        int64_t ms, endMs;
        uint32_t first;
        size_t count;
    } rows[] = {
        {"from the start", &video, 0, 5000, 1, 30},
        {"before the start", &video, -40, 5000, 1, 30},
        {"from a sync sample", &video, 500, 5000, 11, 20},
        {"the sync sample itself", &video, 334, 5000, 11, 20},
        {"right before it", &video, 333, 5000, 1, 30},
        {"the last group after the end", &video, 5000, 5000, 21, 10},
        {"what is decoded before an end", &video, 0, 200, 1, 6},
        {"sound from the start", &sound, 0, 5000, 1, 47},
        {"the second sample", &sound, 22, 5000, 1, 47},
        {"the third", &sound, 43, 5000, 1, 47},
        {"the fourth, and two to warm up", &sound, 65, 5000, 2, 46},
        {"the last", &sound, 1000, 5000, 45, 3},
        {"an end inside a sample", &sound, 0, 100, 1, 5},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        ASSERT_EQ(row.clip->feed.SeekTo(row.ms * kMs, row.endMs * kMs), kMovieOk);
        const std::vector<FeedSample> given = Rest(&row.clip->feed);
        ASSERT_EQ(given.size(), row.count);
        EXPECT_EQ(given[0].number, row.first);
        EXPECT_EQ(given.back().number, row.first + row.count - 1) << "and none is missing";
    }
    ASSERT_EQ(sound.feed.SeekTo(1003 * kMs, 5000 * kMs), kMovieOk);
    EXPECT_TRUE(Rest(&sound.feed).empty()) << "no sound is left";
}

TEST(TrackFeed, ShowsEachPictureUntilTheNext) {
    Feed clip(VideoTrack(24, 12, 2));
    int64_t sum = 0;
    const std::vector<FeedSample> pictures = Rest(&clip.feed);
    ASSERT_EQ(pictures.size(), 24u);
    for (const FeedSample& picture : pictures) {
        SCOPED_TRACE(picture.number);
        EXPECT_EQ(picture.isSync, picture.number % 12 == 1);
        EXPECT_NEAR(static_cast<double>(picture.duration), kPicture, 1);
        EXPECT_LT(picture.decoded, picture.shown + 1);
        sum += picture.duration;
    }
    EXPECT_EQ(sum, 800'800'000);
    // Decoded in the order I P B B: the second is shown fourth.
    EXPECT_EQ(pictures[0].shown, kPicture);
    EXPECT_EQ(pictures[1].shown, 133'466'666);
    EXPECT_EQ(pictures[2].shown, 66'733'333);
    EXPECT_EQ(pictures[3].shown, 100'100'000);
}

TEST(TrackFeed, ShowsTheLastPictureUntilTheMoviesEnd) {
    const struct {
        uint64_t editMs;
        int64_t lastMs;
    } rows[] = {{1000, 2000}, {5000, 4400}};  // its own length is the least
    for (const auto& row : rows) {
        SCOPED_TRACE(row.editMs);
        MovieTrack uneven = VideoTrack(3);
        uneven.timescale = 1000;
        const uint32_t durations[] = {500, 100, 2000};
        for (size_t i = 0; i < 3; ++i)
            uneven.samples[i].duration = durations[i];
        uneven.edits = {{300, -1}, {row.editMs, 0}};
        Feed late(uneven);
        const std::vector<FeedSample> given = Rest(&late.feed);
        ASSERT_EQ(given.size(), 3u);
        EXPECT_EQ(given[0].shown, 300 * kMs);
        EXPECT_EQ(given[0].duration, 500 * kMs);
        EXPECT_EQ(given[1].duration, 100 * kMs);
        EXPECT_EQ(given[2].shown, 900 * kMs);
        EXPECT_EQ(given[2].duration, row.lastMs * kMs);
    }
}

TEST(TrackFeed, TakesOnePictureForAMovie) {
    MovieTrack one = VideoTrack(1);
    one.edits = {{500, -1}, {300, 0}};
    Feed clip(one);
    const std::vector<FeedSample> given = Rest(&clip.feed);
    ASSERT_EQ(given.size(), 1u);
    EXPECT_EQ(given[0].shown, 500 * kMs);
    EXPECT_EQ(given[0].duration, 300 * kMs);
}

TEST(TrackFeed, TellsWhatLiesBeforeTheMoviesStart) {
    MovieTrack sound = SoundTrack(20);
    sound.edits = {{400, 1024}};  // an encoder's delay
    Feed clip(sound, kAudio);
    const std::vector<FeedSample> given = Rest(&clip.feed);
    ASSERT_FALSE(given.empty());
    EXPECT_EQ(given[0].shown, -21'333'334) << "rounded down";
    EXPECT_EQ(given[0].decoded, given[0].shown);
    EXPECT_EQ(given[0].duration, 0) << "the bytes tell";
    EXPECT_EQ(given[1].shown, 0);
    EXPECT_EQ(clip.feed.DurationNs(), 400 * kMs);
}

TEST(TrackFeed, HandsPcmOnInRuns) {
    MovieTrack pcm = SoundTrack(0);
    pcm.samples.assign(2600, {.size = 4, .duration = 1});
    pcm.chunks = {1500};
    pcm.size_bits = 0;
    pcm.entries = {Twos()};
    Feed clip(pcm, kAudio);
    EXPECT_TRUE(clip.feed.IsPcm());
    const std::vector<FeedSample> given = Rest(&clip.feed);
    // 1024 frames at most, and none across two chunks.
    EXPECT_EQ(Numbers(given), (std::vector<uint32_t>{1, 1025, 1501, 2525}));
    std::vector<size_t> bytes;
    for (const FeedSample& run : given)
        bytes.push_back(run.data.size());
    EXPECT_EQ(bytes, (std::vector<size_t>{4096, 1904, 4096, 304}));
    EXPECT_EQ(Bytes(given[1].data.begin(), given[1].data.begin() + 4), SampleContent(1, 1025, 4));
    ASSERT_EQ(clip.feed.SeekTo(50 * kMs, INT64_MAX), kMovieOk);
    EXPECT_EQ(Rest(&clip.feed)[0].number, 2401u) << "nothing to warm up";
}

TEST(TrackFeed, LeavesOutWhatNoOtherPictureNeeds) {
    TrackFeed feed;
    ASSERT_FALSE(feed.Open(ClipPath("cam_avc_2997_g12_b2_3s"), kVideo));
    // In the group from number 13 on, which comes at 0.4004 s, every third sample from 16 on is
    // such a picture. Within six pictures of the one that was sought they stay: a decoder learns
    // the order from them. Number 19 is shown six pictures before 0.767433 s.
    const struct {
        int64_t time;
        std::vector<uint32_t> numbers;
    } rows[] = {{735 * kMs, {13, 14, 15, 17, 18, 19, 20, 21, 22, 23}},
                {767'430'000, {13, 14, 15, 17, 18, 19, 20, 21, 22, 23}},
                {767'433'350, {13, 14, 15, 17, 18, 20, 21, 22, 23, 24}}};
    for (const auto& row : rows) {
        ASSERT_EQ(feed.SeekTo(row.time, INT64_MAX), kMovieOk);
        std::vector<uint32_t> numbers = Numbers(Rest(&feed));
        numbers.resize(row.numbers.size());
        EXPECT_EQ(numbers, row.numbers) << row.time;
    }
    ASSERT_EQ(feed.SeekTo(0, INT64_MAX), kMovieOk);
    EXPECT_EQ(Rest(&feed).size(), 90u);
}

TEST(TrackFeed, KnowsTheDescriptionOfEachSample) {
    MovieTrack track = VideoTrack(4, 1);
    track.entries = {Avc1(), Mp4v()};
    const uint32_t named[] = {2, 1, 0, 3};
    for (size_t i = 0; i < 4; ++i)
        track.samples[i].description = named[i];
    Feed clip(track);
    EXPECT_EQ(clip.feed.Format(), fourcc("avc1"));
    std::vector<uint32_t> found;
    for (const FeedSample& sample : Rest(&clip.feed))
        found.push_back(sample.description);
    EXPECT_EQ(found, (std::vector<uint32_t>{1, 0, 0, 0})) << "the first for one that isn't there";
}

TEST(TrackFeed, GivesThePicturesRate) {
    const struct {
        const char* name;
        uint32_t timescale;
        std::vector<uint32_t> durations;
        uint32_t numerator, denominator;
    } rows[] = {
        {"even", 30000, {1001, 1001, 1001}, 30000, 1001},
        {"uneven", 30000, {1000, 2000}, 20000, 1000},
        {"one a second", 1000, {500, 1500}, 1000, 1000},
        {"too slow", 1000, {2000, 3000}, 0, 1},
        {"a thousand", 1'000'000, {500, 1500}, 1'000'000, 1000},
        {"too fast", 1'000'000, {500, 1499}, 0, 1},
        {"no picture", 1000, {}, 0, 1},
        {"no length", 1000, {1, 0, 0}, 0, 1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        MovieTrack track = VideoTrack(0);
        track.timescale = row.timescale;
        for (const uint32_t duration : row.durations)
            track.samples.push_back({.size = 10, .duration = duration});
        Feed clip(track);
        uint32_t numerator = 7, denominator = 7;
        clip.feed.GetFrameRate(&numerator, &denominator);
        EXPECT_EQ(numerator, row.numerator);
        EXPECT_EQ(denominator, row.denominator);
    }
}

TEST(TrackFeed, SaysWhatIsWrong) {
    TrackFeed feed;
    EXPECT_EQ(feed.Open(ClipPath("cam_audio_only"), kVideo).code, ReasonCode::kNoVideoTrack);
    TrackFeed silent;
    EXPECT_EQ(silent.Open(std::string(TARN_TEST_DATA) + "/playback/picture_alone.mp4", kAudio).code,
              ReasonCode::kNoAudioTrack);
    TrackFeed none;
    const Reason missing = none.Open("/nowhere/a.mp4", kVideo);
    EXPECT_EQ(missing.file, "/nowhere/a.mp4");
    EXPECT_EQ(missing.side, ReasonSide::kSource);

    MovieTrack far = VideoTrack(2);
    far.version = 1;
    far.edits = {{1000, INT64_MAX / 2}};
    const Bytes bytes = MovieBuilder{.tracks = {far}}.Build();
    const TempDir dir;
    dir.Write("far.mp4", {bytes.begin(), bytes.end()});
    EXPECT_EQ(none.Open(dir.Path("far.mp4"), kVideo).code, ReasonCode::kNumberTooLarge);

    Feed clip(VideoTrack(30));
    FeedSample sample;
    std::filesystem::resize_file(clip.Path(), 300);
    MovieCode code = kMovieOk;
    while (code == kMovieOk)
        code = clip.feed.Next(&sample);
    const Reason cut = clip.feed.ReasonOf(code);
    EXPECT_EQ(cut.code, ReasonCode::kEndsEarly) << cut;
    EXPECT_EQ(cut.file, clip.Path());
}

}  // namespace
}  // namespace tarn

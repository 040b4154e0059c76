#include "playback/track_feed.h"

#include <gtest/gtest.h>

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
        opened = feed.Open(Path(), kind);
    }
    std::string Path() const { return m_dir.Path("a.mp4"); }

    TrackFeed feed;
    Reason opened;

private:
    const TempDir m_dir;
};

MovieTrack Uneven(uint32_t timescale, const std::vector<uint32_t>& durations) {
    MovieTrack track = VideoTrack(0);
    track.timescale = timescale;
    for (const uint32_t duration : durations)
        track.samples.push_back({.size = 10, .duration = duration});
    return track;
}

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
        {"the sync sample itself", &video, 334, 5000, 11, 20},
        {"the last group after the end", &video, 5000, 5000, 21, 10},
        {"what is decoded before an end", &video, 0, 200, 1, 6},
        {"sound from the start", &sound, 0, 5000, 1, 47},
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
    MovieTrack track = VideoTrack(24, 12, 2);
    track.entries = {Avc1(), Mp4v()};
    const std::vector<uint32_t> named = {2, 1, 0, 3}, found = {1, 0, 0, 0};
    for (size_t i = 0; i < 4; ++i)
        track.samples[i].description = named[i];
    Feed clip(track);
    int64_t sum = 0;
    const std::vector<FeedSample> pictures = Rest(&clip.feed);
    ASSERT_EQ(pictures.size(), 24u);
    for (const FeedSample& picture : pictures) {
        SCOPED_TRACE(picture.number);
        EXPECT_EQ(picture.isSync, picture.number % 12 == 1);
        EXPECT_NEAR(static_cast<double>(picture.duration), kPicture, 1);
        EXPECT_LT(picture.decoded, picture.shown + 1);
        sum += picture.duration;
        if (picture.number > 4) continue;
        EXPECT_EQ(picture.description, found[picture.number - 1]) << "0 for one that isn't there";
    }
    EXPECT_EQ(sum, 800'800'000);
    // Decoded in the order I P B B: the second is shown fourth.
    EXPECT_EQ(pictures[0].shown, kPicture);
    EXPECT_EQ(pictures[1].shown, 133'466'666);
    EXPECT_EQ(pictures[2].shown, 66'733'333);
    EXPECT_EQ(pictures[3].shown, 100'100'000);
}

TEST(TrackFeed, ShowsTheLastPictureUntilTheMoviesEnd) {
    using Shown = std::pair<int64_t, int64_t>;  // the time and the duration, ms
    const struct {
        std::vector<uint32_t> durations;
        std::vector<Edit> edits;
        std::vector<Shown> shown;
    } rows[] = {
        // Its own length is the least.
        {{500, 100, 2000}, {{300, -1}, {1000, 0}}, {{300, 500}, {800, 100}, {900, 2000}}},
        {{500, 100, 2000}, {{300, -1}, {5000, 0}}, {{300, 500}, {800, 100}, {900, 4400}}},
        {{33}, {{500, -1}, {300, 0}}, {{500, 300}}},
    };
    for (const auto& row : rows) {
        MovieTrack uneven = Uneven(1000, row.durations);
        uneven.edits = row.edits;
        Feed clip(uneven);
        std::vector<Shown> shown;
        for (const FeedSample& given : Rest(&clip.feed))
            shown.emplace_back(given.shown / kMs, given.duration / kMs);
        EXPECT_EQ(shown, row.shown);
    }
}

TEST(TrackFeed, TellsWhatLiesBeforeTheMoviesStart) {
    MovieTrack sound = SoundTrack(20);
    sound.edits = {{400, 1024}};  // an encoder's delay
    Feed clip(sound, kAudio);
    const std::vector<FeedSample> given = Rest(&clip.feed);
    ASSERT_FALSE(given.empty());
    EXPECT_EQ(given[0].shown, -21'333'334) << "rounded down";
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

TEST(TrackFeed, GivesThePicturesRate) {
    using Rate = std::pair<uint32_t, uint32_t>;
    const struct {
        const char* name;
        uint32_t timescale;
        std::vector<uint32_t> durations;
        Rate rate;
    } rows[] = {
        {"uneven", 30000, {1000, 2000}, {20000, 1000}},
        {"too fast", 1'000'000, {500, 1499}, {0, 1}},
        {"no length", 1000, {1, 0, 0}, {0, 1}},
    };
    for (const auto& row : rows) {
        Rate rate = {7, 7};
        Feed(Uneven(row.timescale, row.durations)).feed.GetFrameRate(&rate.first, &rate.second);
        EXPECT_EQ(rate, row.rate) << row.name;
    }
}

TEST(TrackFeed, SaysWhatIsWrong) {
    EXPECT_EQ(TrackFeed().Open(ClipPath("cam_audio_only"), kVideo).code, ReasonCode::kNoVideoTrack);
    EXPECT_EQ(TrackFeed().Open(kData + "/playback/picture_alone.mp4", kAudio).code,
              ReasonCode::kNoAudioTrack);
    MovieTrack far = VideoTrack(2);
    far.version = 1;
    far.edits = {{1000, INT64_MAX / 2}};
    EXPECT_EQ(Feed(far).opened.code, ReasonCode::kNumberTooLarge);
}

// How the kinds of samples are told to GStreamer, by what a movie says of them.

// The form, and the codec data in it by itself.
std::string TextOf(GstCapsPtr caps, Bytes* codec_data) {
    if (!caps) return "none";
    GstStructure* form = gst_caps_get_structure(caps.get(), 0);
    if (const GValue* value = gst_structure_get_value(form, "codec_data")) {
        GstBuffer* buffer = gst_value_get_buffer(value);
        codec_data->resize(gst_buffer_get_size(buffer));
        gst_buffer_extract(buffer, 0, codec_data->data(), codec_data->size());
        gst_structure_remove_field(form, "codec_data");
    }
    const std::unique_ptr<gchar, decltype(&g_free)> text(gst_caps_to_string(caps.get()), g_free);
    return text.get();
}

struct Row {
    const char* name;
    Bytes entry;
    std::string caps;
    Bytes codec_data = {};
};

void Check(const Row& row, MovieTrack track, TrackFeed::Kind kind) {
    SCOPED_TRACE(row.name);
    track.entries = {row.entry};
    Feed clip(track, kind);
    ASSERT_FALSE(clip.opened) << clip.opened;
    Bytes codec_data;
    EXPECT_EQ(TextOf(clip.feed.Caps(0), &codec_data), row.caps);
    EXPECT_EQ(codec_data, row.codec_data);
    EXPECT_EQ(clip.feed.Caps(1), nullptr) << "there is no second description";
}

TEST(TrackCaps, NameEachKindOfPicture) {
    ASSERT_TRUE(StartGst());
    const Bytes avcc = Avcc(), config(avcc.begin() + 8, avcc.end());
    const Bytes hvcc = Text("configuration of HEVC, 23 bytes and more");
    const std::string shape = ", width=(int)320, height=(int)180, framerate=(fraction)30000/1001";
    const auto visual = [](FourCC format, const Bytes& children) {
        return VisualEntry({.format = format, .children = children});
    };
    const auto pixels = [&](int64_t width, int64_t height) {
        return visual("avc1", Join(avcc, Atom("pasp", Be32({width, height}))));
    };
    const std::string avc = "video/x-h264, stream-format=(string)avc, alignment=(string)au";
    const auto hevc = [&](const std::string& kind) {
        return "video/x-h265, stream-format=(string)" + kind + ", alignment=(string)au" + shape;
    };
    const std::string mpeg4 = "video/mpeg, mpegversion=(int)4, systemstream=(boolean)false";
    const std::string rate = ", framerate=(fraction)30000/1001";
    const std::string par = avc + shape + ", pixel-aspect-ratio=(fraction)";
    const Bytes sets = {1, 2, 3};
    const Row rows[] = {
        {"AVC", Avc1(), avc + shape, config},
        {"AVC without a configuration", visual("avc1", {}), "none"},
        {"HEVC", visual("hvc1", Atom("hvcC", hvcc)), hevc("hvc1"), hvcc},
        {"its sets in samples", visual("hev1", Atom("hvcC", hvcc)), hevc("hev1"), hvcc},
        {"MPEG-4", visual("mp4v", Esds({0x20, 4, sets})), mpeg4 + shape, sets},
        {"another kind", visual("vp09", {}), "none"},
        {"wide pixels", pixels(256, 255), par + "256/255", config},
        {"pixels of no height", pixels(1, 0), avc + shape, config},
        {"pixels too large", pixels(65536, 1), avc + shape, config},
        {"half an aspect", visual("avc1", Join(avcc, Atom("pasp", Be32({1})))), avc + shape,
         config},
        {"no width", VisualEntry({.width = 0, .children = avcc}), avc + rate, config},
    };
    for (const Row& row : rows)
        Check(row, VideoTrack(3), kVideo);
    Check({"no rate", Avc1(), avc + ", width=(int)320, height=(int)180", config},
          Uneven(1000, {2000, 3000}), kVideo);
}

TEST(TrackCaps, NameEachKindOfSound) {
    ASSERT_TRUE(StartGst());
    const auto object = [](uint8_t type, const Bytes& specific) {
        return AudioEntry({.children = Esds({.object_type = type, .specific_info = specific})});
    };
    const auto pcm = [](FourCC format, uint16_t channels, uint16_t bits, uint32_t rate) {
        return AudioEntry({.format = format, .channels = channels, .bits = bits, .rate = rate});
    };
    const auto raw = [](const std::string& format, const std::string& rate, const char* channels) {
        return "audio/x-raw, format=(string)" + format +
               ", layout=(string)interleaved, rate=(int)" + rate + ", channels=(int)" + channels;
    };
    const std::string aac =
        "audio/mpeg, mpegversion=(int)4, stream-format=(string)raw, framed=(boolean)true, "
        "rate=(int)48000, channels=(int)2";
    const std::string mp3 = "audio/mpeg, mpegversion=(int)1, layer=(int)3, parsed=(boolean)true";
    const Bytes config = {0x11, 0x90};
    const Row rows[] = {
        {"AAC", Mp4a(), aac, config},
        {"MPEG-2 AAC, main", object(0x66, config), aac, config},
        {"half a configuration", object(0x40, {0x11}), "none"},
        {"MP3", object(0x6B, {}), mp3},
        {"PCM", Twos(), raw("S16BE", "48000", "2")},
        {"little-endian PCM", pcm("sowt", 2, 16, 44100), raw("S16LE", "44100", "2")},
        {"PCM of 24 bits", pcm("twos", 2, 24, 48000), "none"},
        {"PCM without a rate", pcm("twos", 2, 16, 0), "none"},
        {"another kind", pcm("alac", 2, 16, 48000), "none"},
    };
    for (const Row& row : rows)
        Check(row, SoundTrack(3), kAudio);
}

}  // namespace
}  // namespace tarn

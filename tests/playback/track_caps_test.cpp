// How the kinds of samples are told to GStreamer, by what a movie says of them.
#include <gtest/gtest.h>

#include "playback/track_source.h"
#include "player_rig.h"
#include "support/movie_builder.h"
#include "support/temp_dir.h"

namespace tarn {
namespace {

// The form without its codec data, sorted by field.
std::string TextOf(const GstCapsPtr& caps, Bytes* codecData) {
    if (!caps) return "none";
    GstStructure* form = gst_caps_get_structure(caps.get(), 0);
    if (const GValue* value = gst_structure_get_value(form, "codec_data")) {
        GstBuffer* buffer = gst_value_get_buffer(value);
        codecData->resize(gst_buffer_get_size(buffer));
        gst_buffer_extract(buffer, 0, codecData->data(), codecData->size());
        gst_structure_remove_field(form, "codec_data");
    }
    gchar* text = gst_caps_to_string(caps.get());
    const std::string result = text;
    g_free(text);
    return result;
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
    const Bytes bytes = MovieBuilder{.tracks = {track}}.Build();
    const TempDir dir;
    dir.Write("a.mp4", {bytes.begin(), bytes.end()});
    TrackFeed feed;
    const Reason reason = feed.Open(dir.Path("a.mp4"), kind);
    ASSERT_FALSE(reason) << reason;
    Bytes codec_data;
    EXPECT_EQ(TextOf(MakeTrackCaps(feed, 0), &codec_data), row.caps);
    EXPECT_EQ(codec_data, row.codec_data);
    EXPECT_EQ(MakeTrackCaps(feed, 1), nullptr) << "there is no second description";
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
    const std::string hevc = "video/x-h265, stream-format=(string)";
    const Row rows[] = {
        {"AVC", Avc1(), avc + shape, config},
        {"AVC with sets in its samples", visual("avc3", avcc), avc + shape, config},
        {"AVC without a configuration", visual("avc1", {}), "none"},
        {"HEVC", visual("hvc1", Atom("hvcC", hvcc)), hevc + "hvc1, alignment=(string)au" + shape,
         hvcc},
        {"HEVC with sets in its samples", visual("hev1", Atom("hvcC", hvcc)),
         hevc + "hev1, alignment=(string)au" + shape, hvcc},
        {"HEVC without a configuration", visual("hvc1", {}), "none"},
        {"MPEG-4",
         visual("mp4v", Esds({.object_type = 0x20, .stream_type = 4, .specific_info = {1, 2, 3}})),
         "video/mpeg, mpegversion=(int)4, systemstream=(boolean)false" + shape,
         {1, 2, 3}},
        {"another kind", visual("vp09", {}), "none"},
        {"wide pixels", pixels(256, 255), avc + shape + ", pixel-aspect-ratio=(fraction)256/255",
         config},
        {"large pixels", pixels(65535, 65534),
         avc + shape + ", pixel-aspect-ratio=(fraction)65535/65534", config},
        {"pixels of no width", pixels(0, 1), avc + shape, config},
        {"pixels of no height", pixels(1, 0), avc + shape, config},
        {"pixels too large", pixels(65536, 1), avc + shape, config},
        {"half an aspect", visual("avc1", Join(avcc, Atom("pasp", Be32({1})))), avc + shape,
         config},
        {"no width", VisualEntry({.width = 0, .children = avcc}),
         avc + ", framerate=(fraction)30000/1001", config},
        {"no height", VisualEntry({.height = 0, .children = avcc}),
         avc + ", framerate=(fraction)30000/1001", config},
    };
    for (const Row& row : rows)
        Check(row, VideoTrack(3), TrackFeed::Kind::kVideo);
    MovieTrack fast = VideoTrack(2);
    fast.timescale = 1'000'000;
    fast.samples[1].duration = 2;
    Check({"no rate", Avc1(), avc + ", width=(int)320, height=(int)180", config}, fast,
          TrackFeed::Kind::kVideo);
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
        {"MPEG-2 AAC, scalable", object(0x68, config), aac, config},
        {"before MPEG-2 AAC", object(0x65, config), "none"},
        {"AAC without a configuration", object(0x40, {}), "none"},
        {"half a configuration", object(0x40, {0x11}), "none"},
        {"MP3 of MPEG-2", object(0x69, {}), mp3},
        {"MP3", object(0x6B, {}), mp3},
        {"between them", object(0x6A, config), "none"},
        {"after them", object(0x6C, config), "none"},
        {"AC-3 in an entry of AAC", object(0xA5, config), "none"},
        {"PCM", Twos(), raw("S16BE", "48000", "2")},
        {"PCM of one channel", Twos(1), raw("S16BE", "48000", "1")},
        {"little-endian PCM", pcm("sowt", 2, 16, 44100), raw("S16LE", "44100", "2")},
        {"PCM of no channel", Twos(0), "none"},
        {"PCM of three channels", Twos(3), "none"},
        {"PCM of 24 bits", pcm("twos", 2, 24, 48000), "none"},
        {"PCM without a rate", pcm("twos", 2, 16, 0), "none"},
        {"another kind", pcm("alac", 2, 16, 48000), "none"},
    };
    for (const Row& row : rows)
        Check(row, SoundTrack(3), TrackFeed::Kind::kAudio);
}

}  // namespace
}  // namespace tarn

// Which decoder and which sound device is taken, by what a machine has.
#include "playback/decoder_bins.h"

#include <gtest/gtest.h>

#include "fake_factory.h"
#include "picture_rig.h"
#include "playback/audio_renderer.h"
#include "player_rig.h"

namespace tarn {
namespace {

constexpr char kHardware[] = "Codec/Decoder/Video/Hardware", kSoftware[] = "Codec/Decoder/Video";
constexpr char kAudioSink[] = "Sink/Audio";
constexpr char kAvc[] = "video/x-h264,stream-format=avc,alignment=au";
constexpr char kHevc[] = "video/x-h265,stream-format=hvc1,alignment=au";

GstElementPtr Decoder(const char* caps, DecoderMode mode) {
    Reason reason;
    GstElementPtr decoder =
        MakeVideoDecoder(GstCapsPtr(gst_caps_from_string(caps)).get(), mode, &reason);
    EXPECT_EQ(decoder != nullptr, !reason) << reason;
    return decoder;
}

// The sink at the end of a renderer.
GstElementPtr SinkOf(const GstElementPtr& renderer) {
    GstIterator* sinks = gst_bin_iterate_sinks(GST_BIN(renderer.get()));
    GValue item = G_VALUE_INIT;
    EXPECT_EQ(gst_iterator_next(sinks, &item), GST_ITERATOR_OK);
    GstElementPtr sink(GST_ELEMENT(g_value_dup_object(&item)));
    g_value_unset(&item);
    gst_iterator_free(sinks);
    return sink;
}

TEST(DecoderMode, IsTheSettingTheOtherWayRound) {
    EXPECT_EQ(static_cast<int>(DecoderModeFor(true)), 0);
    EXPECT_EQ(static_cast<int>(DecoderModeFor(false)), 1);
    EXPECT_EQ(PlayerDevices().decoders, DecoderMode::kSoftware);
}

TEST(VideoDecoder, IsOfTheHardwareOnlyWhenThatIsWanted) {
    const FakeFactory broken("fakehardbroken", kHardware, "video/x-h264;video/x-h265", false);
    EXPECT_FALSE(HasElementOf(Decoder(kAvc, DecoderMode::kHardware).get(), "fakehardbroken"))
        << "the processor is the fall-back";
    const FakeFactory hard("fakehard", kHardware, "video/x-h264;video/x-h265;video/mpeg", true);
    const struct {
        const char *caps, *parser;
    } rows[] = {{kAvc, "h264parse"}, {kHevc, "h265parse"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.caps);
        const HiddenFactory own(row.parser);  // where there is one
        const FakeFactory parser(row.parser, "Codec/Parser", row.caps, true);
        const GstElementPtr with = Decoder(row.caps, DecoderMode::kHardware);
        EXPECT_TRUE(HasElementOf(with.get(), "fakehard"));
        EXPECT_TRUE(HasElementOf(with.get(), row.parser)) << "it wants to know more of the samples";
        EXPECT_EQ(GST_BIN_NUMCHILDREN(with.get()), 2);
        const GstElementPtr without = Decoder(row.caps, DecoderMode::kSoftware);
        EXPECT_FALSE(HasElementOf(without.get(), "fakehard"));
        EXPECT_EQ(GST_BIN_NUMCHILDREN(without.get()), 1);
        EXPECT_STREQ(GST_OBJECT_NAME(without.get()), "Kelo AVC Decoder Light");
    }
    const GstElementPtr other = Decoder("video/mpeg,mpegversion=4", DecoderMode::kHardware);
    EXPECT_EQ(GST_BIN_NUMCHILDREN(other.get()), 1) << "no parser is known for it";
}

TEST(VideoDecoder, IsThePlatformsFavouriteThatStarts) {
    const FakeFactory first("fakesoft", kSoftware, "video/x-h264", true);
    EXPECT_TRUE(HasElementOf(Decoder(kAvc, DecoderMode::kSoftware).get(), "fakesoft"));
    EXPECT_TRUE(HasElementOf(Decoder(kAvc, DecoderMode::kHardware).get(), "fakesoft"))
        << "there is no hardware";
    EXPECT_FALSE(HasElementOf(Decoder(kHevc, DecoderMode::kSoftware).get(), "fakesoft"))
        << "takes AVC alone";
}

TEST(VideoDecoder, SaysWhatNothingDecodes) {
    ASSERT_TRUE(StartGst());
    Reason reason;
    const GstCapsPtr caps(gst_caps_from_string("video/x-tarn-unheard-of"));
    EXPECT_EQ(MakeVideoDecoder(caps.get(), DecoderMode::kHardware, &reason), nullptr);
    EXPECT_EQ(reason.code, ReasonCode::kNoPlugin);
    EXPECT_EQ(reason.side, ReasonSide::kDevice);
    // A decoder of pictures is none of sound.
    const FakeFactory picture("fakewrong", kSoftware, "audio/x-tarn", true);
    const GstCapsPtr sound(gst_caps_from_string("audio/x-tarn"));
    EXPECT_EQ(MakeAudioDecoder(sound.get(), &reason), nullptr);
    EXPECT_EQ(reason.code, ReasonCode::kNoPlugin);
    const GstCapsPtr raw(gst_caps_from_string("audio/x-raw"));
    for (const char* part : {"audioconvert", "queue"}) {
        SCOPED_TRACE(part);
        const HiddenFactory hidden(part);
        EXPECT_EQ(MakeAudioDecoder(raw.get(), &reason), nullptr);
        EXPECT_EQ(reason.code, ReasonCode::kNoGraphPart);
    }
}

TEST(AudioRenderer, TakesTheFirstDeviceThatOpens) {
    const FakeFactory choice("autofakesink", kAudioSink, "audio/x-raw", true);
    const FakeFactory gone("fakegone", kAudioSink, "audio/x-raw", false);
    {
        const GstElementPtr none = MakeAudioRenderer("");
        EXPECT_FALSE(HasElementOf(none.get(), "autofakesink")) << "hides what it finds";
        EXPECT_FALSE(HasElementOf(none.get(), "fakegone"));
    }
    const FakeFactory device("fakedevice", kAudioSink, "audio/x-raw", true);
    EXPECT_TRUE(HasElementOf(MakeAudioRenderer("").get(), "fakedevice"));
    EXPECT_FALSE(HasElementOf(MakeAudioRenderer("fakesink").get(), "fakedevice"));
    EXPECT_TRUE(HasElementOf(MakeAudioRenderer("fakegone").get(), "fakegone")) << "by its name";
    EXPECT_TRUE(HasElementOf(MakeAudioRenderer("tarnnosuchsink").get(), "fakesink"));
}

TEST(AudioRenderer, SwallowsSoundInItsOwnTimeAndNeedsItsParts) {
    ASSERT_TRUE(StartGst());
    gboolean sync = FALSE;
    g_object_get(SinkOf(MakeAudioRenderer("fakesink")).get(), "sync", &sync, nullptr);
    EXPECT_TRUE(sync);
    for (const char* part : {"audioconvert", "audioresample", "volume", "fakesink"}) {
        SCOPED_TRACE(part);
        const HiddenFactory hidden(part);
        EXPECT_EQ(MakeAudioRenderer("fakesink"), nullptr);
    }
}

TEST(AudioRenderer, KeepsTheDevicesBufferShort) {
    ASSERT_TRUE(StartGst());
    const GstElementPtr bin = MakeAudioRenderer("pulsesink");
    if (!HasElementOf(bin.get(), "pulsesink")) GTEST_SKIP() << "there is no pulsesink";
    gint64 buffer = 0, latency = 0;
    g_object_get(SinkOf(bin).get(), "buffer-time", &buffer, "latency-time", &latency, nullptr);
    EXPECT_EQ(buffer, 60'000);
    EXPECT_EQ(latency, 10'000);
}

}  // namespace
}  // namespace tarn

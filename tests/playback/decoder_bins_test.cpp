// Which decoder and which sound device is taken, by what a machine has.
#include "playback/decoder_bins.h"

#include <gtest/gtest.h>

#include "playback/audio_renderer.h"
#include "player_rig.h"

namespace tarn {
namespace {

constexpr char kHardwareKind[] = "Codec/Decoder/Video/Hardware";
constexpr char kSoftwareKind[] = "Codec/Decoder/Video";
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

TEST(VideoDecoder, IsOfTheHardwareOnlyWhenThatIsWanted) {
    using enum DecoderMode;
    const FakeFactory broken("fakehardbroken", kHardwareKind, "video/x-h264;video/x-h265", false);
    EXPECT_FALSE(ElementOf(Decoder(kAvc, kHardware), "fakehardbroken"))
        << "the processor is the fall-back";
    {
        const FakeFactory first("fakesoft", kSoftwareKind, "video/x-h264");
        EXPECT_TRUE(ElementOf(Decoder(kAvc, kHardware), "fakesoft")) << "there is no hardware";
        EXPECT_FALSE(ElementOf(Decoder(kHevc, kSoftware), "fakesoft")) << "takes AVC alone";
    }
    const FakeFactory hard("fakehard", kHardwareKind, "video/x-h264;video/x-h265;video/mpeg");
    const struct {
        const char *caps, *parser;
    } rows[] = {{kAvc, "h264parse"}, {kHevc, "h265parse"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.caps);
        const HiddenFactory own(row.parser);  // where there is one
        const FakeFactory parser(row.parser, "Codec/Parser", row.caps);
        const GstElementPtr with = Decoder(row.caps, kHardware);
        EXPECT_TRUE(ElementOf(with, "fakehard"));
        EXPECT_TRUE(ElementOf(with, row.parser)) << "it wants to know more of the samples";
        EXPECT_EQ(GST_BIN_NUMCHILDREN(with.get()), 2);
        const GstElementPtr without = Decoder(row.caps, kSoftware);
        EXPECT_FALSE(ElementOf(without, "fakehard"));
        EXPECT_EQ(GST_BIN_NUMCHILDREN(without.get()), 1);
        EXPECT_STREQ(GST_OBJECT_NAME(without.get()), "Kelo AVC Decoder Light");
    }
    const GstElementPtr other = Decoder("video/mpeg,mpegversion=4", kHardware);
    EXPECT_EQ(GST_BIN_NUMCHILDREN(other.get()), 1) << "no parser is known for it";
}

TEST(AudioDecoder, IsNoDecoderOfPictures) {
    ASSERT_TRUE(StartGst());
    Reason reason;
    const FakeFactory picture("fakewrong", kSoftwareKind, "audio/x-tarn");
    const GstCapsPtr sound(gst_caps_from_string("audio/x-tarn"));
    EXPECT_EQ(MakeAudioDecoder(sound.get(), &reason), nullptr);
    EXPECT_EQ(reason.code, ReasonCode::kNoPlugin);
    EXPECT_EQ(reason.side, ReasonSide::kDevice);
}

TEST(AudioRenderer, TakesTheFirstDeviceThatOpens) {
    const FakeFactory choice("autofakesink", kAudioSink, "audio/x-raw");
    const FakeFactory gone("fakegone", kAudioSink, "audio/x-raw", false);
    EXPECT_FALSE(ElementOf(MakeAudioRenderer(""), "autofakesink")) << "hides what it finds";
    EXPECT_FALSE(ElementOf(MakeAudioRenderer(""), "fakegone"));
    const FakeFactory device("fakedevice", kAudioSink, "audio/x-raw");
    EXPECT_TRUE(ElementOf(MakeAudioRenderer(""), "fakedevice"));
    EXPECT_FALSE(ElementOf(MakeAudioRenderer("fakesink"), "fakedevice"));
    EXPECT_TRUE(ElementOf(MakeAudioRenderer("fakegone"), "fakegone")) << "by its name";
    EXPECT_TRUE(ElementOf(MakeAudioRenderer("tarnnosuchsink"), "fakesink"));
}

}  // namespace
}  // namespace tarn

#include "playback/picture_gate.h"

#include <gst/check/gstharness.h>
#include <gtest/gtest.h>

namespace tarn {
namespace {

constexpr uint64_t kPicture = 40 * GST_MSECOND;

// Something that gives out what it takes stands for a decoder.
class PictureGateTest : public ::testing::Test {
protected:
    PictureGateTest() {
        EXPECT_TRUE(StartGst());
        m_decoder = MakeElement("identity");
        m_gate = PictureGate::Attach(m_decoder.get());
        m_harness = gst_harness_new_with_element(m_decoder.get(), "sink", "src");
        gst_harness_set_src_caps_str(m_harness, "video/x-raw");
    }
    ~PictureGateTest() override { gst_harness_teardown(m_harness); }

    // Where the segment that comes out begins.
    uint64_t Seek(uint64_t start) {
        while (GstEvent* old = gst_harness_try_pull_event(m_harness))
            gst_event_unref(old);
        GstSegment segment;
        gst_segment_init(&segment, GST_FORMAT_TIME);
        segment.start = segment.time = segment.position = start;
        EXPECT_TRUE(gst_harness_push_event(m_harness, gst_event_new_segment(&segment)));
        GstEvent* told = gst_harness_pull_event(m_harness);
        gst_event_copy_segment(told, &segment);
        gst_event_unref(told);
        return segment.start;
    }
    // The time at which it is shown, -1 where it is not.
    int64_t Push(uint64_t time) {
        GstBuffer* picture = gst_buffer_new();
        GST_BUFFER_PTS(picture) = time;
        GST_BUFFER_DURATION(picture) = kPicture;
        EXPECT_EQ(gst_harness_push(m_harness, picture), GST_FLOW_OK);
        GstBuffer* shown = gst_harness_try_pull(m_harness);
        if (!shown) return -1;
        const auto at = static_cast<int64_t>(GST_BUFFER_PTS(shown));
        gst_buffer_unref(shown);
        return at;
    }

    GstElementPtr m_decoder;
    GstHarness* m_harness = nullptr;
    std::shared_ptr<PictureGate> m_gate;
};

TEST_F(PictureGateTest, LetsOneOnTheWayPassForTheOneThatWasSought) {
    constexpr uint64_t kTarget = 10 * GST_SECOND;
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(Seek(kTarget), kTarget) << "what follows knows of nothing";
        EXPECT_EQ(Push(8 * GST_SECOND), -1);
        m_gate->Hurry();
        EXPECT_EQ(Push(9 * GST_SECOND), int64_t{kTarget});
        EXPECT_EQ(Push(9 * GST_SECOND + kPicture), -1) << "one is enough";
        EXPECT_EQ(Push(kTarget - kPicture / 4), int64_t{kTarget}) << "what is left of it";
        EXPECT_FALSE(m_gate->GoOn(GST_SECOND)) << "it is there";
        m_gate->Hurry();  // in vain, and not for the next place
        EXPECT_EQ(Push(kTarget + kPicture), int64_t{kTarget + kPicture});
    }
}

TEST_F(PictureGateTest, GoesOnTowardsAnotherPlace) {
    constexpr uint64_t kTarget = 10 * GST_SECOND;
    constexpr int64_t kBack = GST_SECOND;
    EXPECT_EQ(Seek(kTarget), kTarget);
    EXPECT_FALSE(m_gate->GoOn(-kBack)) << "nothing has come yet";
    m_gate->Hurry();
    EXPECT_EQ(Push(6 * GST_SECOND), int64_t{kTarget});
    EXPECT_FALSE(m_gate->GoOn(-4 * kBack)) << "that is over";
    EXPECT_FALSE(m_gate->GoOn(5 * kBack)) << "further than sync samples are apart";
    EXPECT_TRUE(m_gate->GoOn(-kBack));
    EXPECT_EQ(Push(9 * GST_SECOND - kPicture), -1);
    EXPECT_EQ(Push(9 * GST_SECOND), int64_t{kTarget}) << "a time that its listeners know";
    EXPECT_TRUE(m_gate->GoOn(-kBack / 2));
    EXPECT_EQ(Push(9 * GST_SECOND + kPicture), -1);
    m_gate->Hurry();
    EXPECT_EQ(Push(9 * GST_SECOND + 2 * kPicture), int64_t{kTarget});
    EXPECT_EQ(Seek(kTarget), kTarget);
    EXPECT_EQ(Push(9 * GST_SECOND), -1) << "sought anew";
}

}  // namespace
}  // namespace tarn

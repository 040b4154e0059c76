#include "playback/frame_extractor.h"

#include <gtest/gtest.h>

#include <random>

#include "player_rig.h"

namespace tarn {
namespace {

TEST(FrameExtractor, GivesThePictureOfATime) {
    const KnownPictures known("plain_vfr");
    CFrameExtractor extractor;
    ASSERT_EQ(extractor.Open(ClipPath("plain_vfr")), S_OK) << extractor.GetReason();
    int64_t duration = 0;
    ASSERT_EQ(extractor.GetDuration(&duration), S_OK);
    std::mt19937_64 random(5);
    for (int i = 0; i < 40; ++i) {
        // The first one comes from a graph that was never started; times after the end count as
        // it.
        const int64_t target =
            static_cast<int64_t>(random() % static_cast<uint64_t>(duration + duration / 20));
        StillPicture still;
        ASSERT_EQ(extractor.GetFrame(target, &still), S_OK) << extractor.GetReason();
        ASSERT_EQ(still.rgb.size(), size_t{3} * 320 * 180);
        const size_t shown = known.Nearest(
            Thumbnail(still.rgb.data(), still.width, still.height, still.width * 3, 3, 2, 0));
        EXPECT_EQ(shown, known.At(std::min(target, duration - 1) * 100)) << target;
    }
}

TEST(FrameExtractor, FitsPicturesIntoABox) {
    const struct {
        int32_t mostWidth, mostHeight, width, height;
    } cases[] = {{160, 160, 160, 90}, {320, 45, 80, 45}, {0, 0, 320, 180}, {1000, 90, 160, 90}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.mostWidth);
        CFrameExtractor extractor;
        ASSERT_EQ(extractor.Open(ClipPath("cam_texts"), c.mostWidth, c.mostHeight), S_OK);
        StillPicture still;
        ASSERT_EQ(extractor.GetFrame(0, &still), S_OK) << extractor.GetReason();
        EXPECT_EQ(still.width, c.width);
        EXPECT_EQ(still.height, c.height);
        EXPECT_EQ(still.rgb.size(), static_cast<size_t>(c.width * c.height) * 3);
    }
}

TEST(FrameExtractor, SaysWhyThereIsNone) {
    CFrameExtractor extractor;
    StillPicture still;
    EXPECT_EQ(extractor.GetFrame(0, &still), E_HANDLE);
    EXPECT_EQ(extractor.Open(ClipPath("cam_audio_only")), E_FAIL);
    EXPECT_EQ(extractor.GetReason().code, ReasonCode::kNoVideoTrack);
    EXPECT_EQ(extractor.Open("/nowhere/a.mp4"), E_FAIL);
    EXPECT_EQ(extractor.GetReason().file, "/nowhere/a.mp4");
}

}  // namespace
}  // namespace tarn

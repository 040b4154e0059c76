#include "playback/frame_extractor.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <random>

#include "player_rig.h"
#include "support/temp_dir.h"

namespace tarn {
namespace {

size_t NearestTo(const KnownPictures& known, const StillPicture& still) {
    return known.Nearest(
        Thumbnail({still.rgb.data(), still.width, still.height, still.width * 3}, 3, 2, 0));
}

TEST(FrameExtractor, GivesThePictureOfATime) {
    const KnownPictures known("plain_vfr");
    CFrameExtractor extractor;
    ASSERT_EQ(extractor.Open(ClipPath("plain_vfr")), S_OK) << extractor.GetReason();
    int64_t duration = 0;
    ASSERT_EQ(extractor.GetDuration(&duration), S_OK);
    std::mt19937_64 random(5);
    for (int i = 0; i < 40; ++i) {
        // The first one comes from a graph that was never started; the end has the last one.
        const auto target =
            static_cast<int64_t>(random() % static_cast<uint64_t>(duration + duration / 20));
        StillPicture still;
        ASSERT_EQ(extractor.GetFrame(target, &still), S_OK) << extractor.GetReason();
        ASSERT_EQ(still.rgb.size(), size_t{3} * 320 * 180);
        EXPECT_EQ(NearestTo(known, still), known.At(std::min(target, duration - 1))) << target;
    }
}

TEST(FrameExtractor, FitsPicturesIntoABox) {
    const struct {
        int32_t mostWidth, mostHeight, width, height;
    } cases[] = {{160, 160, 160, 90}, {320, 45, 80, 45}, {0, 45, 80, 45}, {160, 0, 160, 90}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.mostWidth);
        CFrameExtractor extractor;
        ASSERT_EQ(extractor.Open(ClipPath("cam_texts"), c.mostWidth, c.mostHeight), S_OK);
        StillPicture still;
        ASSERT_EQ(extractor.GetFrame(0, &still), S_OK) << extractor.GetReason();
        EXPECT_EQ(still.width, c.width);
        EXPECT_EQ(still.height, c.height);
    }
}

TEST(FrameExtractor, OpensAClipAgainAfterAPlaceWasLost) {
    const TempDir dir;
    const std::string path = dir.Path("card.mp4"), whole = ClipPath("cam_mp4v_25_g12_10s");
    std::filesystem::copy_file(whole, path);
    CFrameExtractor extractor;
    ASSERT_EQ(extractor.Open(path), S_OK) << extractor.GetReason();
    StillPicture still;
    ASSERT_EQ(extractor.GetFrame(10'000'000, &still), S_OK);
    std::filesystem::resize_file(path, 2000);
    EXPECT_EQ(extractor.GetFrame(50'000'000, &still), E_FAIL);
    EXPECT_EQ(extractor.GetReason().code, ReasonCode::kEndsEarly) << extractor.GetReason();
    EXPECT_EQ(extractor.GetReason().file, path);
    std::filesystem::copy_file(whole, path, std::filesystem::copy_options::overwrite_existing);
    ASSERT_EQ(extractor.Open(path), S_OK) << extractor.GetReason();
    EXPECT_FALSE(extractor.GetReason());
    ASSERT_EQ(extractor.GetFrame(50'000'000, &still), S_OK) << extractor.GetReason();
    const KnownPictures known("cam_mp4v_25_g12_10s");
    EXPECT_EQ(NearestTo(known, still), known.At(50'000'000));
}

TEST(FrameExtractor, SaysWhyThereIsNone) {
    CFrameExtractor extractor;
    StillPicture still;
    EXPECT_EQ(extractor.GetFrame(0, &still), E_HANDLE);
    EXPECT_EQ(extractor.Open(ClipPath("cam_audio_only")), E_FAIL);
    EXPECT_EQ(extractor.GetReason().code, ReasonCode::kNoVideoTrack);
    EXPECT_EQ(extractor.Open("/nowhere/a.mp4"), E_FAIL);
    EXPECT_EQ(extractor.GetReason().file, "/nowhere/a.mp4");
    EXPECT_EQ(extractor.GetFrame(0, &still), E_HANDLE) << "nothing is open";
    for (const char* part : {"videoconvert", "videoscale", "capsfilter", "appsink"}) {
        SCOPED_TRACE(part);
        const HiddenFactory hidden(part);
        EXPECT_EQ(extractor.Open(ClipPath("cam_texts")), E_FAIL);
        EXPECT_EQ(extractor.GetReason().code, ReasonCode::kNoGraphPart);
    }
}

}  // namespace
}  // namespace tarn

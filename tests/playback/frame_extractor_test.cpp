#include "playback/frame_extractor.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <random>

#include "player_rig.h"
#include "support/temp_dir.h"

namespace tarn {
namespace {

const std::string kFilm = ClipPath("cam_avc_2997_g12_b2_3s");

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

// Where a matrix of a track's header puts the pixel that is at x, y of a picture of that size.
TEST(FrameExtractor, TurnsThePictureAsTheTrackSays) {
    constexpr char kOne = 0, kMinus = 1, kNone = 2;
    const struct {
        const char* name;
        char a, b, c, d;
        bool swaps, fromRight, fromBottom;  // of the turned picture's first pixel, in the plain one
    } rows[] = {
        {"a quarter", kNone, kOne, kMinus, kNone, true, false, true},
        {"half", kMinus, kNone, kNone, kMinus, false, true, true},
        {"three quarters", kNone, kMinus, kOne, kNone, true, true, false},
        {"mirrored", kMinus, kNone, kNone, kOne, false, true, false},
        {"upside down", kOne, kNone, kNone, kMinus, false, false, true},
        {"both ways", kNone, kOne, kOne, kNone, true, false, false},
    };
    StillPicture plain;
    CFrameExtractor extractor;
    ASSERT_EQ(extractor.Open(kFilm), S_OK);
    ASSERT_EQ(extractor.GetFrame(0, &plain), S_OK);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const TempDir dir;
        std::filesystem::copy_file(kFilm, dir.Path("a.mp4"));
        std::string bytes = dir.Read("a.mp4");
        const std::string numbers[] = {{0, 1, 0, 0}, std::string("\xff\xff\0\0", 4), {0, 0, 0, 0}};
        const auto number = [&](char which) { return numbers[static_cast<size_t>(which)]; };
        const std::string zero = number(kNone);
        for (size_t at = bytes.find("tkhd"); at != std::string::npos;
             at = bytes.find("tkhd", at + 1))
            bytes.replace(at + 44, 20,
                          number(row.a) + number(row.b) + zero + number(row.c) + number(row.d));
        dir.Write("a.mp4", bytes);
        StillPicture turned;
        ASSERT_EQ(extractor.Open(dir.Path("a.mp4")), S_OK) << extractor.GetReason();
        ASSERT_EQ(extractor.GetFrame(0, &turned), S_OK) << extractor.GetReason();
        ASSERT_EQ(turned.width, row.swaps ? plain.height : plain.width);
        ASSERT_EQ(turned.height, row.swaps ? plain.width : plain.height);
        double difference = 0;
        for (int32_t y = 0; y < turned.height; ++y) {
            for (int32_t x = 0; x < turned.width; ++x) {
                int32_t u = row.swaps ? y : x, v = row.swaps ? x : y;
                if (row.fromRight) u = plain.width - 1 - u;
                if (row.fromBottom) v = plain.height - 1 - v;
                const auto at = static_cast<size_t>(3 * (v * plain.width + u));
                const auto now = static_cast<size_t>(3 * (y * turned.width + x));
                difference += std::abs(plain.rgb[at + 1] - turned.rgb[now + 1]);
            }
        }
        EXPECT_LT(difference / (turned.width * turned.height), 2) << "of 255, each pixel";
        TestPlayer player(dir.Path("a.mp4"), false);
        ASSERT_TRUE(player.PausesThere());
        EXPECT_EQ(player.Renderer()->ReadPicture([&](const VideoPicture& shown) {
            EXPECT_EQ(shown.width, turned.width);
            EXPECT_EQ(shown.height, turned.height);
        }),
                  S_OK);
    }
}

}  // namespace
}  // namespace tarn

#include <gst/gst.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>

#include "movie/facts/clip_info.h"
#include "picture_rig.h"
#include "playback/gst_handles.h"
#include "playback/sound_volume.h"
#include "player_rig.h"
#include "support/temp_dir.h"

namespace tarn {
namespace {

constexpr int64_t kUnit = 100;  // nanoseconds
constexpr int64_t kSecond = 10'000'000;

const std::string kData = TARN_TEST_DATA;

size_t CountFiles(const char* folder) {
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

TEST(Player, ShowsThePictureOfTheTimeThatWasSought) {
    const struct {
        const char* clip;
        size_t seeks;
    } cases[] = {{"cam_avc_2997_g12_b2_3s", 200},
                 {"cam_mp4v_25_g12_10s", 40},
                 {"plain_vfr", 60},
                 {"plain_version1", 40},
                 {"plain_hevc", 40}};
    for (const auto& [clip, seeks] : cases) {
        SCOPED_TRACE(clip);
        const KnownPictures known(clip);
        TestPlayer player;
        ASSERT_EQ(player.OpenClip(ClipPath(clip)), S_OK) << player.GetReason();
        ASSERT_GE(player.Pause(), 0);
        std::mt19937_64 random(7);
        std::vector<int64_t> targets{0, player.Duration(), 1, player.Duration() - 1};
        while (targets.size() < seeks)
            targets.push_back(
                static_cast<int64_t>(random() % static_cast<uint64_t>(player.Duration())));
        for (const int64_t target : targets) {
            ASSERT_GE(player.SeekTo(target), 0);
            ASSERT_TRUE(player.WaitForState());
            ASSERT_EQ(known.Nearest(ShownThumbnail(player)), known.At(target * kUnit)) << target;
            ASSERT_NEAR(static_cast<double>(player.Position()), static_cast<double>(target), 1);
        }
    }
}

TEST(Player, StartsWhereItWasToldWhileStopped) {
    const KnownPictures known("plain_vfr");
    TestPlayer player;
    ASSERT_EQ(player.OpenClip(ClipPath("plain_vfr")), S_OK);
    EXPECT_EQ(player.State(), kStopped);
    EXPECT_EQ(player.SeekTo(3 * kSecond), S_OK);
    EXPECT_EQ(player.Position(), 3 * kSecond);
    ASSERT_GE(player.Pause(), 0);
    ASSERT_TRUE(player.WaitForState());
    EXPECT_EQ(known.Nearest(ShownThumbnail(player)), known.At(3 * kSecond * kUnit));
    EXPECT_EQ(player.Seek(kSecond, kRelativePositioning, 0, 0), S_OK);
    EXPECT_EQ(player.Position(), 4 * kSecond);
    EXPECT_EQ(player.Seek(0, 7, 0, 0), E_INVALIDARG);
}

TEST(Player, KeepsTheLastPictureUnderSoundThatGoesOn) {
    TestPlayer player;
    ASSERT_EQ(player.OpenClip(kData + "/playback/sound_outlasts.mp4"), S_OK);
    EXPECT_EQ(player.Duration(), 2 * kSecond);
    ASSERT_GE(player.SeekTo(kSecond - kSecond / 25), 0);  // the last picture's own time
    ASSERT_GE(player.Pause(), 0);
    const std::vector<int> last = ShownThumbnail(player);
    ASSERT_GE(player.SeekTo(0), 0);
    ASSERT_NE(ShownThumbnail(player), last);
    ASSERT_GE(player.SeekTo(kSecond + kSecond / 2), 0);
    ASSERT_TRUE(player.WaitForState());
    EXPECT_EQ(ShownThumbnail(player), last);
}

TEST(Player, AgreesWithTheFactsAboutEachClip) {
    for (const auto& entry : std::filesystem::directory_iterator(kData + "/clips")) {
        if (entry.path().extension() != ".mp4") continue;
        SCOPED_TRACE(entry.path().filename().string());
        ClipInfo info;
        ASSERT_FALSE(ReadClipInfo(entry.path(), &info));
        TestPlayer player;
        ASSERT_EQ(player.OpenClip(entry.path()), S_OK) << player.GetReason();
        const int64_t length = static_cast<int64_t>(info.durationMs) * 10'000;
        EXPECT_EQ(player.Duration(), length);
        EXPECT_EQ(player.Renderer() != nullptr, info.video.has_value());
        ASSERT_GE(player.Pause(), 0);
        ASSERT_TRUE(player.WaitForState());
        // The first picture may come a little later than the clip begins.
        EXPECT_LT(player.Position(), kSecond / 10);
    }
}

TEST(Player, EndsAtTheEndAndBeginsAnew) {
    for (const std::string& path :
         {ClipPath("cam_roles"), ClipPath("cam_audio_only"), kData + "/playback/picture_alone.mp4",
          kData + "/golden/in/noise_48k.wav"}) {
        SCOPED_TRACE(path);
        TestPlayer player;
        ASSERT_EQ(player.OpenClip(path), S_OK) << player.GetReason();
        player.PlayUnpaced();
        std::vector<int32_t> heard;
        player.SetEventCallback([&](const GraphEvent& event) { heard.push_back(event.code); });
        ASSERT_GE(player.Run(), 0);
        EXPECT_EQ(player.WaitForEnd(), S_OK) << player.GetReason();
        EXPECT_EQ(heard, std::vector<int32_t>{EC_COMPLETE});
        EXPECT_EQ(player.State(), kStopped);
        EXPECT_EQ(player.Position(), player.Duration());
        EXPECT_GT(player.Duration(), 0);
    }
}

TEST(Player, PlaysAnewWhenItIsStartedAtTheEnd) {
    TestPlayer player;
    ASSERT_EQ(player.OpenClip(ClipPath("cam_roles")), S_OK);
    player.PlayUnpaced();
    ASSERT_GE(player.Run(), 0);
    ASSERT_EQ(player.WaitForEnd(), S_OK);
    const SoundCapture again(&player);
    ASSERT_GE(player.Run(), 0);
    EXPECT_EQ(player.WaitForEnd(), S_OK);
    EXPECT_EQ(again.FirstTime(), 0);
}

TEST(Player, TellsItsWindowOfTheEnd) {
    struct Window : INotifyWindow {
        void PostMessage(uint32_t message, intptr_t parameter) override {
            last = message + static_cast<uint32_t>(parameter);
        }
        std::atomic<uint32_t> last{0};
    } window;
    TestPlayer player;
    ASSERT_EQ(player.Open(kData + "/playback/picture_alone.mp4", true, &window, 0x7E8, 1, nullptr,
                          nullptr, true),
              S_OK);
    player.PlayUnpaced();
    ASSERT_GE(player.Run(), 0);
    EXPECT_TRUE(WaitFor([&] { return window.last == 0x7E9; }));
    EXPECT_EQ(player.WaitForEnd(), S_OK);
}

TEST(Player, TellsItsWindowOnceTheEventIsThere) {
    struct Window : INotifyWindow {
        void PostMessage(uint32_t, intptr_t) override { result = player.ProcessEvents(); }
        TestPlayer player;
        HRESULT result = S_FALSE;
    } window;
    TestPlayer& player = window.player;
    ASSERT_EQ(player.Open(kData + "/playback/picture_alone.mp4", true, &window, 0, 0, nullptr,
                          nullptr, true),
              S_OK);
    gst_element_post_message(player.Graph(), gst_message_new_eos(GST_OBJECT(player.Graph())));
    EXPECT_EQ(window.result, S_OK);
    player.SetNotifyWindow(nullptr, 0, 0);
}

TEST(Player, ForgetsTheEndThatASeekLeft) {
    TestPlayer player;
    ASSERT_EQ(player.OpenClip(ClipPath("cam_roles")), S_OK);
    player.PlayUnpaced();
    ASSERT_GE(player.Run(), 0);
    ASSERT_TRUE(WaitFor([&] { return player.Position() == player.Duration(); }));
    ASSERT_GE(player.Pause(), 0);
    ASSERT_GE(player.SeekTo(kSecond), 0);
    // And one that was on its way.
    gst_element_post_message(player.Graph(), gst_message_new_eos(GST_OBJECT(player.Graph())));
    EXPECT_EQ(player.ProcessEvents(), S_FALSE);
    EXPECT_EQ(player.State(), kPaused);
    EXPECT_EQ(player.Position(), kSecond);
    ASSERT_GE(player.Run(), 0);
    EXPECT_EQ(player.WaitForEnd(), S_OK);
    // The next seek shows its picture and is paused again.
    ASSERT_GE(player.SeekTo(kSecond), 0);
    EXPECT_EQ(player.State(), kPaused);
}

TEST(Player, StopsWhereASeekSays) {
    for (const bool running : {false, true}) {
        SCOPED_TRACE(running);
        TestPlayer player;
        ASSERT_EQ(player.OpenClip(ClipPath("cam_roles")), S_OK);
        player.PlayUnpaced();
        if (running) {
            ASSERT_GE(player.Pause(), 0);
        }
        const uint32_t set = kAbsolutePositioning;
        EXPECT_EQ(player.Seek(kSecond, set, kSecond - 1, set), E_INVALIDARG);
        EXPECT_GE(player.Seek(INT64_MAX, kRelativePositioning, INT64_MAX, set), 0);
        EXPECT_EQ(player.Position(), player.Duration() - 1);
        ASSERT_GE(player.Seek(0, set, kSecond, set), 0);
        ASSERT_GE(player.Run(), 0);
        EXPECT_EQ(player.WaitForEnd(), S_OK);
        EXPECT_EQ(player.Position(), kSecond);
    }
}

TEST(Player, ShowsWhatIsDecodedBehindTheEnd) {
    TestPlayer player;
    ASSERT_EQ(player.OpenClip(kData + "/playback/negative_offsets.mp4"), S_OK);
    player.PlayUnpaced();
    ASSERT_GE(player.SeekTo(kSecond + kSecond / 25), 0);
    ASSERT_GE(player.Pause(), 0);
    ASSERT_TRUE(player.WaitForState());
    const std::vector<int> last = ShownThumbnail(player);  // is decoded 1.12 seconds from the start
    ASSERT_GE(player.Seek(0, kAbsolutePositioning, kSecond * 53 / 50, kAbsolutePositioning), 0);
    ASSERT_GE(player.Run(), 0);
    ASSERT_EQ(player.WaitForEnd(), S_OK);
    EXPECT_EQ(ShownThumbnail(player), last);
}

TEST(Player, AnswersByNumber) {
    TestPlayer player;
    int64_t time = 0;
    int32_t state = 0;
    EXPECT_EQ(player.GetPosition(&time), E_HANDLE);
    EXPECT_EQ(player.GetDuration(nullptr), E_POINTER);
    EXPECT_EQ(player.Run(), E_HANDLE);
    EXPECT_EQ(player.Pause(), E_HANDLE);
    EXPECT_EQ(player.GetState(0, &state), E_HANDLE);
    EXPECT_EQ(player.SeekTo(0), E_HANDLE);
    EXPECT_EQ(player.ProcessEvents(), E_HANDLE);
    EXPECT_EQ(player.SetInPoint(0), E_HANDLE);
    EXPECT_EQ(player.OpenClip("notes.txt"), E_INVALIDARG);
    EXPECT_EQ(player.CreateGraph(), S_OK);
    EXPECT_EQ(player.CreateGraph(), E_ACCESSDENIED);
    EXPECT_EQ(player.ReleaseGraph(), S_OK);
    EXPECT_EQ(player.OpenClip(ClipPath("cam_texts"), false), S_OK);
    EXPECT_EQ(player.SetInPoint(0), S_FALSE);
    EXPECT_EQ(player.SetEffects({}), S_FALSE);
}

TEST(Player, IsAsLoudAsItsVolumeSays) {
    TestPlayer player;
    SoundVolumeController volume;
    ASSERT_EQ(player.OpenClip(kData + "/playback/picture_alone.mp4"), S_OK);
    EXPECT_EQ(volume.OpenVolume(player.SoundDevice()), E_POINTER);
    ASSERT_EQ(player.OpenClip(ClipPath("cam_roles")), S_OK);
    ASSERT_EQ(volume.OpenVolume(player.SoundDevice()), S_OK);
    EXPECT_EQ(volume.SetVolume(kMaxVolume / 2), S_OK);
    // A clip that is gone takes nothing along.
    player.ReleaseGraph();
    EXPECT_EQ(volume.SetMute(true), S_OK);
}

TEST(Player, TellsALostDeviceFromAClosedWindow) {
    const struct {
        const char* bin;
        int32_t event;
        ReasonCode code;
        ReasonSide side;
    } cases[] = {
        {"Default DirectSound Device", EC_ERRORABORT, ReasonCode::kSoundDevice,
         ReasonSide::kDevice},
        {"VMR-7", EC_USERABORT, ReasonCode::kNoScreen, ReasonSide::kDevice},
        {"Audio Decoder", EC_ERRORABORT, ReasonCode::kPlayback, ReasonSide::kSource},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.bin);
        TestPlayer player;
        ASSERT_EQ(player.OpenClip(ClipPath("cam_roles")), S_OK);
        ASSERT_GE(player.Pause(), 0);
        GraphEvent heard{};
        player.SetEventCallback([&](const GraphEvent& event) { heard = event; });
        const GstElementPtr bin(gst_bin_get_by_name(GST_BIN(player.Graph()), c.bin));
        GST_ELEMENT_ERROR(bin.get(), RESOURCE, NOT_FOUND, ("no more"), (nullptr));
        EXPECT_EQ(player.WaitForEnd(), E_ABORT);
        EXPECT_EQ(heard.code, c.event);
        EXPECT_EQ(heard.reason.code, c.code);
        EXPECT_EQ(heard.reason.side, c.side);
        EXPECT_EQ(player.GetReason(), heard.reason);
    }
}

TEST(Player, SurvivesAnyOrderOfPlayPauseAndSeek) {
    TestPlayer player;
    ASSERT_EQ(player.OpenClip(ClipPath("cam_avc_2997_g12_b2_3s")), S_OK);
    std::mt19937_64 random(11);
    const auto step = [&] {
        const auto place =
            static_cast<int64_t>(random() % static_cast<uint64_t>(player.Duration()));
        switch (random() % 4) {
            case 0:
                return player.Run();
            case 1:
                return player.Pause();
            default:
                return player.SeekTo(place);
        }
    };
    for (int i = 0; i < 50; ++i)
        ASSERT_GE(step(), 0) << player.GetReason();
    ASSERT_TRUE(player.WaitForState());
    const size_t threads = CountFiles("/proc/self/task"), files = CountFiles("/proc/self/fd");
    for (int i = 0; i < 1000; ++i)
        ASSERT_GE(step(), 0) << player.GetReason();
    EXPECT_LE(CountFiles("/proc/self/task"), threads + 2);
    EXPECT_EQ(CountFiles("/proc/self/fd"), files);
    for (int i = 0; i < 20; ++i)
        ASSERT_EQ(player.OpenClip(ClipPath(i % 2 == 0 ? "cam_texts" : "cam_audio_only")), S_OK);
    player.ReleaseGraph();
    EXPECT_LT(CountFiles("/proc/self/task"), threads);
}

TEST(Player, SaysWhatIsMissing) {
    ASSERT_EQ(TestPlayer().CreateGraph(), S_OK);  // starts GStreamer
    const std::string clip = ClipPath("cam_texts");
    const struct {
        const char *hidden, *other, *named;
        ReasonCode code;
    } cases[] = {{"avdec_h264", "openh264dec", "H.264", ReasonCode::kNoPlugin},
                 {"volume", nullptr, "volume", ReasonCode::kNoGraphPart},
                 {"videoconvert", nullptr, "picture", ReasonCode::kNoScreen}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.hidden);
        Reason reason;
        ASSERT_EQ(TarnPlayerController::CheckMovieFile(clip, true, &reason), kFileUsable);
        const HiddenFactory hidden(c.hidden), other(c.other ? c.other : "none");
        const MovieFileStatus status = TarnPlayerController::CheckMovieFile(clip, true, &reason);
        EXPECT_EQ(status, kFileNoGraph);
        EXPECT_EQ(MovieFileMessageKey(status),
                  "IDS_MSG_CANT_START_APP_BECAUSE_MODULE_FILE_IS_NOT_FOUND_OR_BROKEN");
        EXPECT_EQ(reason.code, c.code);
        EXPECT_NE(ReasonText(reason).find(c.named), std::string::npos);
        TestPlayer player;
        EXPECT_EQ(player.OpenClip(clip), E_FAIL);
        EXPECT_EQ(player.GetReason().code, c.code);
        EXPECT_EQ(player.GetReason().side, ReasonSide::kDevice);
    }
}

TEST(Player, GetsThroughBrokenClips) {
    for (const auto& entry : std::filesystem::directory_iterator(kData + "/broken")) {
        if (entry.path().extension() != ".mp4") continue;
        SCOPED_TRACE(entry.path().filename().string());
        TestPlayer player;
        if (Failed(player.OpenClip(entry.path()))) {
            EXPECT_TRUE(player.GetReason());
            continue;
        }
        player.PlayUnpaced();
        // A clip may say that it lasts for years; its end is where its samples are.
        if (Failed(player.Run())) continue;
        // What ends too soon has ended all the same: an editor waits for that.
        if (player.WaitForEnd() == S_OK) {
            EXPECT_EQ(player.Position(), player.Duration());
        }
        player.SeekTo(kSecond);
    }
}

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

TEST(Player, PlaysOnThroughDamagedSamples) {
    std::string bytes = ReadFile(ClipPath("cam_avc_2997_g12_b2_3s"));
    const size_t media = bytes.find("mdat") + 4;
    std::mt19937 random(3);
    for (size_t i = media + bytes.size() / 8; i < bytes.size() - bytes.size() / 8; i += 40)
        bytes[i] = static_cast<char>(random());
    const TempDir dir;
    dir.Write("damaged.mp4", bytes);
    TestPlayer player;
    ASSERT_EQ(player.OpenClip(dir.Path("damaged.mp4")), S_OK) << player.GetReason();
    player.PlayUnpaced();
    ASSERT_GE(player.Run(), 0);
    EXPECT_EQ(player.WaitForEnd(), S_OK) << player.GetReason();
}

TEST(Player, TakesTheLengthOfSoundFromItsBytes) {
    std::string bytes = ReadFile(kData + "/playback/pcm.mp4");
    bytes[bytes.find("mdhd") + 18] = 1;  // 24000 units a second become 448
    const TempDir dir;
    dir.Write("slow.mp4", bytes);
    TestPlayer player;
    ASSERT_EQ(player.OpenClip(dir.Path("slow.mp4")), S_OK) << player.GetReason();
    player.PlayUnpaced();
    ASSERT_GE(player.Run(), 0);
    EXPECT_EQ(player.WaitForEnd(), S_OK) << player.GetReason();
}

TEST(Player, NamesTheFileWhoseTablesLackThePlace) {
    std::string bytes = ReadFile(ClipPath("cam_audio_only"));
    bytes[bytes.find("mvhd") + 21] = 1;     // the movie lasts far longer than its samples,
    bytes[bytes.find("stts") + 12] = 0x7f;  // which claim to be more than there are
    const TempDir dir;
    dir.Write("claims.mp4", bytes);
    TestPlayer player;
    ASSERT_EQ(player.OpenClip(dir.Path("claims.mp4")), S_OK) << player.GetReason();
    ASSERT_GE(player.Pause(), 0);
    ASSERT_TRUE(player.WaitForState());
    player.SeekTo(player.Duration());
    EXPECT_EQ(player.WaitForEnd(), E_ABORT);
    EXPECT_EQ(player.GetReason().file, dir.Path("claims.mp4")) << player.GetReason();
}

TEST(Player, NamesTheFileThatCanNoLongerBeRead) {
    const TempDir dir;
    std::string bytes = ReadFile(ClipPath("cam_avc_2997_g12_b2_3s"));
    dir.Write("card.mp4", bytes);
    TestPlayer player;
    ASSERT_EQ(player.OpenClip(dir.Path("card.mp4")), S_OK);
    ASSERT_GE(player.Pause(), 0);
    std::filesystem::resize_file(dir.Path("card.mp4"), 2000);
    player.SeekTo(2 * kSecond);
    EXPECT_EQ(player.WaitForEnd(), E_ABORT);
    EXPECT_EQ(player.GetReason().file, dir.Path("card.mp4")) << player.GetReason();
    EXPECT_EQ(player.State(), kStopped);
}

}  // namespace
}  // namespace tarn

#include <gst/gst.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <random>
#include <thread>

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

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// Counts what it is told.
struct CountingWindow final : INotifyWindow {
    void PostMessage(uint32_t, intptr_t) override { ++count; }
    std::atomic<int> count{0};
};

void PostError(const TestPlayer& player, const char* bin, const char* text) {
    const GstElementPtr element(gst_bin_get_by_name(GST_BIN(player.Graph()), bin));
    GST_ELEMENT_ERROR(element.get(), RESOURCE, NOT_FOUND, ("%s", text), (nullptr));
}

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

TEST(Player, EndsAtTheEndAndStartsAgain) {
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
        if (!path.ends_with(".mp4") || !player.SoundDevice()) continue;
        const SoundCapture again(&player);
        ASSERT_GE(player.Run(), 0);
        EXPECT_EQ(player.WaitForEnd(), S_OK);
        EXPECT_EQ(again.FirstTime(), 0);
    }
}

TEST(Player, TellsItsWindowOnceTheEventIsThere) {
    struct Window : INotifyWindow {
        void PostMessage(uint32_t message, intptr_t parameter) override {
            told = message + static_cast<uint32_t>(parameter);
            result = player.ProcessEvents();
        }
        TestPlayer player;
        uint32_t told = 0;
        HRESULT result = S_FALSE;
    } window;
    TestPlayer& player = window.player;
    ASSERT_EQ(player.Open(kData + "/playback/picture_alone.mp4", true, &window, 0x7E8, 1, nullptr,
                          nullptr, true),
              S_OK);
    gst_element_post_message(player.Graph(), gst_message_new_eos(GST_OBJECT(player.Graph())));
    EXPECT_EQ(window.told, 0x7E9u);
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
        EXPECT_GE(player.Seek(INT64_MIN, kRelativePositioning, INT64_MAX, set), 0);
        EXPECT_EQ(player.Position(), 0);
        EXPECT_GE(player.Seek(kSecond / 4, set, INT64_MAX, set), 0);
        EXPECT_GE(player.Seek(0, kNoPositioning, kSecond, set), 0) << "the stop alone";
        EXPECT_EQ(player.Position(), kSecond / 4);
        EXPECT_EQ(player.Seek(0, set, 0, 2), E_INVALIDARG);
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
    EXPECT_EQ(player.GetReason().code, ReasonCode::kUnexpected);
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
        PostError(player, c.bin, "no more");
        EXPECT_EQ(player.WaitForEnd(), E_ABORT);
        EXPECT_EQ(heard.code, c.event);
        EXPECT_EQ(heard.reason.code, c.code);
        EXPECT_EQ(heard.reason.side, c.side);
        EXPECT_EQ(player.GetReason(), heard.reason);
    }
}

TEST(Player, RemembersNothingOfTheClipBefore) {
    const std::string clip = ClipPath("cam_roles");
    CountingWindow window;
    TestPlayer player;
    // A place to start, a place to stop, an error that nobody has heard of, a window.
    ASSERT_EQ(player.Open(clip, true, &window, 0, 0, nullptr, nullptr, false), S_OK);
    ASSERT_GE(player.Seek(kSecond / 2, kAbsolutePositioning, kSecond, kAbsolutePositioning), 0);
    PostError(player, "Audio Decoder", "old");
    EXPECT_EQ(window.count, 1);
    ASSERT_EQ(player.OpenClip(clip), S_OK);
    EXPECT_EQ(player.Position(), 0);
    EXPECT_EQ(player.ProcessEvents(), S_FALSE);
    EXPECT_FALSE(player.GetReason()) << player.GetReason();
    player.PlayUnpaced();
    const SoundCapture sound(&player);
    ASSERT_GE(player.Run(), 0);
    ASSERT_EQ(player.WaitForEnd(), S_OK);
    EXPECT_EQ(sound.FirstTime(), 0);
    EXPECT_EQ(player.Position(), player.Duration());
    PostError(player, "Audio Decoder", "new");
    EXPECT_EQ(player.ProcessEvents(), E_ABORT);
    EXPECT_EQ(player.GetReason().arguments, std::vector<ReasonArgument>{std::string("new")});
    EXPECT_EQ(window.count, 1);

    // At its end, and with a seek's stop: neither counts for the next one.
    ASSERT_EQ(player.OpenClip(clip), S_OK);
    EXPECT_EQ(player.State(), kStopped);
    ASSERT_GE(player.Pause(), 0);
    EXPECT_EQ(player.State(), kPaused);
    EXPECT_LT(player.Position(), kSecond / 10);
    EXPECT_EQ(player.ProcessEvents(), S_FALSE);
}

TEST(Player, IsNotOpenAfterAnOpenThatFailed) {
    const std::string text = kData + "/clips/cam_roles.json";
    const struct {
        std::string path;
        ReasonCode code;
        HRESULT result;
    } rows[] = {
        {"/nowhere/a.mp4", ReasonCode::kCantOpen, E_FAIL},
        {"/nowhere/a.wav", ReasonCode::kCantOpen, E_FAIL},
        {text, ReasonCode::kNotMovieOrWave, E_INVALIDARG},
    };
    TestPlayer player;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.path);
        ASSERT_EQ(player.OpenClip(ClipPath("cam_texts")), S_OK);
        EXPECT_EQ(player.OpenClip(row.path), row.result);
        EXPECT_EQ(player.GetReason().code, row.code) << player.GetReason();
        EXPECT_EQ(player.GetReason().side, ReasonSide::kSource);
        EXPECT_EQ(player.GetReason().file, row.path);
        EXPECT_EQ(player.Graph(), nullptr);
        EXPECT_EQ(player.Renderer(), nullptr);
        EXPECT_EQ(player.SoundDevice(), nullptr);
        EXPECT_EQ(player.Run(), E_HANDLE);
    }
    ASSERT_EQ(player.CreateGraph(), S_OK) << "nothing is in the way";
    EXPECT_FALSE(player.GetReason());
}

TEST(Player, TellsOneErrorUntilTheNextSeek) {
    TestPlayer player;
    ASSERT_EQ(player.OpenClip(ClipPath("cam_roles")), S_OK);
    ASSERT_GE(player.Pause(), 0);
    ASSERT_TRUE(player.WaitForState());
    PostError(player, "Audio Decoder", "first");
    PostError(player, "Audio Decoder", "its echo");
    EXPECT_EQ(player.ProcessEvents(), E_ABORT);
    EXPECT_EQ(player.State(), kStopped);
    EXPECT_EQ(player.ProcessEvents(), S_FALSE);
    EXPECT_EQ(player.GetReason().arguments, std::vector<ReasonArgument>{std::string("first")});
    ASSERT_GE(player.SeekTo(0), 0);
    // The window may let go of the clip as soon as it hears.
    player.SetEventCallback([&](const GraphEvent&) { player.ReleaseGraph(); });
    PostError(player, "Audio Decoder", "second");
    EXPECT_EQ(player.ProcessEvents(), E_ABORT);
    EXPECT_EQ(player.Graph(), nullptr);
}

TEST(Player, EndsItsCallsBeforeAWindowGoes) {
    // Takes the window away from another thread, in the middle of a call.
    struct Window : INotifyWindow {
        void PostMessage(uint32_t, intptr_t) override {
            meanwhile.Run([this] { player.SetNotifyWindow(nullptr, 0, 0); });
        }
        TestPlayer player;
        Meanwhile meanwhile;
    } window;
    ASSERT_EQ(window.player.OpenClip(ClipPath("cam_roles")), S_OK);
    window.player.SetNotifyWindow(&window, 0, 0);
    PostError(window.player, "Audio Decoder", "now");
    EXPECT_FALSE(window.meanwhile.CameBackEarly());
}

TEST(Player, TakesMessagesFromManyThreads) {
    constexpr int kThreads = 4, kEach = 5000;
    CountingWindow window;
    TestPlayer player;
    ASSERT_EQ(player.Open(ClipPath("cam_roles"), true, &window, 0, 0, nullptr, nullptr, false),
              S_OK);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back([&] {
            GstObject* graph = GST_OBJECT(player.Graph());
            for (int k = 0; k < kEach; ++k)
                gst_element_post_message(player.Graph(), gst_message_new_eos(graph));
        });
    int ends = 0;
    while (window.count < kThreads * kEach)
        ends += player.ProcessEvents() == S_OK ? 1 : 0;
    for (std::thread& thread : threads)
        thread.join();
    while (player.ProcessEvents() == S_OK)
        ++ends;
    EXPECT_EQ(ends, kThreads * kEach);
}

TEST(Player, SaysThatItIsOnItsWay) {
    TestPlayer player;
    ASSERT_EQ(player.OpenClip(ClipPath("cam_texts")), S_OK);
    const GstElementPtr decoder(
        gst_bin_get_by_name(GST_BIN(player.Graph()), "Kelo AVC Decoder Light"));
    const GstPadPtr out(gst_element_get_static_pad(decoder.get(), "src"));
    const gulong block = gst_pad_add_probe(
        out.get(), GST_PAD_PROBE_TYPE_BLOCK_DOWNSTREAM,
        [](GstPad*, GstPadProbeInfo*, gpointer) { return GST_PAD_PROBE_OK; }, nullptr, nullptr);
    EXPECT_EQ(player.Pause(), VFW_S_STATE_INTERMEDIATE);
    EXPECT_EQ(player.State(), kPaused);
    gst_pad_remove_probe(out.get(), block);
    EXPECT_TRUE(player.WaitForState());
    EXPECT_EQ(player.State(), kPaused);
}

TEST(Player, PutsTheEffectInAndTakesItOut) {
    TestPlayer player;
    EXPECT_EQ(player.InsertSoundFilter(), E_HANDLE);
    EXPECT_EQ(player.RemoveSoundFilter(), E_HANDLE);
    ASSERT_EQ(player.OpenClip(ClipPath("cam_roles"), false), S_OK);
    const auto has_effect = [&] {
        return GstElementPtr(gst_bin_get_by_name(GST_BIN(player.Graph()), "Sound Effect")) !=
               nullptr;
    };
    EXPECT_EQ(player.RemoveSoundFilter(), S_FALSE);
    EXPECT_EQ(player.InsertSoundFilter(), S_OK);
    EXPECT_EQ(player.InsertSoundFilter(), S_FALSE);
    EXPECT_TRUE(has_effect());
    EXPECT_EQ(player.SetInPoint(0), S_OK);
    EXPECT_EQ(player.SetInPoint(-1), E_INVALIDARG);
    EXPECT_EQ(player.GetReason().code, ReasonCode::kUnexpected);
    EXPECT_EQ(player.RemoveSoundFilter(), S_OK);
    EXPECT_FALSE(has_effect());
    player.PlayUnpaced();
    const SoundCapture sound(&player);
    ASSERT_GE(player.Run(), 0);
    EXPECT_EQ(player.WaitForEnd(), S_OK) << player.GetReason();
    EXPECT_GT(sound.Samples().size(), 2 * 90000u) << "the way is whole again";
    ASSERT_EQ(player.OpenClip(kData + "/playback/picture_alone.mp4"), S_OK);
    EXPECT_EQ(player.InsertSoundFilter(), E_FAIL);
    EXPECT_EQ(player.GetReason().code, ReasonCode::kNoAudioTrack);
}

TEST(Player, OpensAsItsCallerWants) {
    const std::string wave = kData + "/golden/in/noise_48k.wav", clip = ClipPath("cam_texts");
    std::string bytes = ReadFile(wave);
    bytes[22] = 1, bytes[32] = 2;     // channels, bytes a frame
    bytes[29] = 0x77, bytes[30] = 1;  // bytes a second
    const TempDir dir;
    dir.Write("mono.wav", bytes);
    const std::string mono = dir.Path("mono.wav");
    const struct {
        const char* name;
        std::string path;
        bool withSound, strict;
        HRESULT opened, effect;
    } rows[] = {
        {"with effects", clip, true, true, S_OK, S_OK},
        {"as it is", clip, false, true, S_OK, S_FALSE},
        {"a WAV file", wave, true, true, S_OK, S_OK},
        {"mono", mono, true, false, S_OK, S_OK},
        {"mono, to be edited", mono, true, true, E_FAIL, E_HANDLE},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        TestWindow window;
        TestPlayer player;
        EXPECT_EQ(player.Open(row.path, row.withSound, nullptr, 0, 0, &window, nullptr, row.strict),
                  row.opened);
        EXPECT_EQ(player.GetReason().code == ReasonCode::kNone, row.opened == S_OK);
        EXPECT_EQ(player.SetEffects({}), row.effect);
        if (row.opened != S_OK) continue;
        EXPECT_EQ(player.Renderer() != nullptr, row.path == clip) << "a WAV file has no picture";
        ASSERT_GE(player.Pause(), 0) << player.GetReason();
        ASSERT_TRUE(player.WaitForState());
        EXPECT_TRUE(row.path != clip || window.WaitForChanges(1));
    }
    // The short form is without effects and not strict.
    TestPlayer player;
    PlayerController& base = player;
    EXPECT_EQ(base.Open(mono, nullptr, 0, 0, nullptr, nullptr), S_OK);
    EXPECT_EQ(player.SetEffects({}), S_FALSE);
}

TEST(Player, LoadsAnotherWaveFileIntoItsSource) {
    TestPlayer player;
    ASSERT_EQ(player.CreateGraph(), S_OK);
    ASSERT_EQ(player.RenderFile(kData + "/golden/in/impulse_48k.wav", false), S_OK);
    EXPECT_EQ(player.Duration(), kSecond);
    ASSERT_EQ(player.RenderFile(kData + "/golden/in/range_10s_8k.wav", false), S_OK);
    EXPECT_EQ(player.Duration(), 10 * kSecond);
    player.PlayUnpaced();
    const SoundCapture sound(&player);
    ASSERT_GE(player.Run(), 0);
    EXPECT_EQ(player.WaitForEnd(), S_OK) << player.GetReason();
    EXPECT_EQ(sound.Samples().size(), 2 * 80000u);
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

// A clip that is changed before it is opened.
struct ChangedClip {
    ChangedClip(const std::string& clip, const std::function<void(std::string*)>& change) {
        std::string bytes = ReadFile(clip);
        change(&bytes);
        dir.Write("a.mp4", bytes);
        EXPECT_EQ(player.OpenClip(path), S_OK) << player.GetReason();
    }
    const TempDir dir;
    const std::string path = dir.Path("a.mp4");
    TestPlayer player;
};

TEST(Player, PlaysOnThroughDamagedSamples) {
    ChangedClip damaged(ClipPath("cam_avc_2997_g12_b2_3s"), [](std::string* bytes) {
        std::mt19937 random(3);
        const size_t eighth = bytes->size() / 8;
        for (size_t i = bytes->find("mdat") + 4 + eighth; i < bytes->size() - eighth; i += 40)
            (*bytes)[i] = static_cast<char>(random());
    });
    // 24000 units a second become 448: the bytes tell how long the sound is.
    ChangedClip slow(kData + "/playback/pcm.mp4",
                     [](std::string* bytes) { (*bytes)[bytes->find("mdhd") + 18] = 1; });
    for (TestPlayer* player : {&damaged.player, &slow.player}) {
        player->PlayUnpaced();
        ASSERT_GE(player->Run(), 0);
        EXPECT_EQ(player->WaitForEnd(), S_OK) << player->GetReason();
    }
}

TEST(Player, NamesTheFileThatLacksThePlace) {
    ChangedClip claims(ClipPath("cam_audio_only"), [](std::string* bytes) {
        (*bytes)[bytes->find("mvhd") + 21] = 1;     // far longer than its samples,
        (*bytes)[bytes->find("stts") + 12] = 0x7f;  // which claim to be more than there are
    });
    ChangedClip cut(ClipPath("cam_avc_2997_g12_b2_3s"), [](std::string*) {});
    for (ChangedClip* clip : {&claims, &cut}) {
        TestPlayer& player = clip->player;
        ASSERT_GE(player.Pause(), 0);
        ASSERT_TRUE(player.WaitForState());
        if (clip == &cut) std::filesystem::resize_file(clip->path, 2000);
        player.SeekTo(player.Duration());
        EXPECT_EQ(player.WaitForEnd(), E_ABORT);
        EXPECT_EQ(player.GetReason().file, clip->path) << player.GetReason();
        EXPECT_EQ(player.State(), kStopped);
    }
}

}  // namespace
}  // namespace tarn

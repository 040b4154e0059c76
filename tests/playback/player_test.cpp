#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <iterator>
#include <random>

#include "movie/facts/clip_info.h"
#include "playback/source_splitter.h"
#include "player_rig.h"
#include "support/temp_dir.h"
#include "support/wave_builder.h"

namespace tarn {
namespace {

constexpr int64_t kSecond = 10'000'000;
constexpr uint32_t kSet = kAbsolutePositioning;
const std::string kRoles = ClipPath("cam_roles"), kTexts = ClipPath("cam_texts");
const std::string kFilm = ClipPath("cam_avc_2997_g12_b2_3s");
const std::string kMute = kData + "/playback/picture_alone.mp4";

// Counts what it is told.
struct CountingWindow final : INotifyWindow {
    void PostMessage(uint32_t, intptr_t) override { ++count; }
    std::atomic<int> count{0};
};

void PostError(const TestPlayer& player, const char* bin, const char* text) {
    GST_ELEMENT_ERROR(player.Element(bin).get(), RESOURCE, NOT_FOUND, ("%s", text), (nullptr));
}

size_t CountFiles(const char* folder) {
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

TEST(Player, ShowsThePictureOfTheTimeThatWasSought) {
    const std::pair<const char*, size_t> cases[] = {{"cam_avc_2997_g12_b2_3s", 200},
                                                    {"cam_mp4v_25_g12_10s", 40},
                                                    {"plain_vfr", 60},
                                                    {"plain_hevc", 40}};
    for (const auto& [clip, seeks] : cases) {
        SCOPED_TRACE(clip);
        const KnownPictures known(clip);
        TestPlayer player(ClipPath(clip));
        const int64_t length = player.Duration();
        std::mt19937_64 random(7);
        std::vector<int64_t> targets{length / 2, 0, length, 1, length - 1};
        ASSERT_EQ(player.SeekTo(targets[0]), S_OK) << "while it is stopped";
        EXPECT_EQ(player.Position(), targets[0]);
        ASSERT_TRUE(player.PausesThere());
        EXPECT_EQ(known.Nearest(ShownThumbnail(player)), known.At(targets[0]));
        while (targets.size() < seeks)
            targets.push_back(static_cast<int64_t>(random() % static_cast<uint64_t>(length)));
        for (const int64_t target : targets) {
            ASSERT_GE(player.SeekTo(target), 0);
            ASSERT_TRUE(player.WaitForState());
            ASSERT_EQ(known.Nearest(ShownThumbnail(player)), known.At(target)) << target;
            ASSERT_NEAR(static_cast<double>(player.Position()), static_cast<double>(target), 1);
        }
    }
}

TEST(Player, KeepsTheLastPictureUnderSoundThatGoesOn) {
    TestPlayer player(kData + "/playback/sound_outlasts.mp4");
    EXPECT_EQ(player.Duration(), 2 * kSecond);
    ASSERT_GE(player.SeekTo(kSecond - kSecond / 25), 0);  // the last picture's own time
    ASSERT_TRUE(player.PausesThere());
    const std::vector<int> last = ShownThumbnail(player);
    ASSERT_GE(player.SeekTo(0), 0);
    ASSERT_TRUE(player.WaitForState());
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
        TestPlayer player(entry.path());
        const int64_t length = static_cast<int64_t>(info.durationMs) * 10'000;
        EXPECT_EQ(player.Duration(), length);
        EXPECT_EQ(player.Renderer() != nullptr, info.video.has_value());
        ASSERT_TRUE(player.PausesThere());
        // The first picture may come a little later than the clip begins.
        EXPECT_LT(player.Position(), kSecond / 10);
    }
}

TEST(Player, EndsAtTheEndAndStartsAgain) {
    for (const std::string& path :
         {kRoles, ClipPath("cam_audio_only"), kMute, kData + "/golden/in/noise_48k.wav"}) {
        SCOPED_TRACE(path);
        TestPlayer player(path);
        std::vector<int32_t> heard;
        player.SetEventCallback([&](const GraphEvent& event) { heard.push_back(event.code); });
        EXPECT_EQ(player.PlayToEnd(), S_OK) << player.GetReason();
        EXPECT_EQ(std::erase(heard, EC_SEEK_COMPLETE), 1u);
        EXPECT_EQ(heard, std::vector<int32_t>{EC_COMPLETE});
        EXPECT_EQ(player.State(), kStopped);
        EXPECT_EQ(player.Position(), player.Duration());
        if (!player.SoundDevice()) continue;
        const SoundCapture again(&player);
        EXPECT_EQ(player.PlayToEnd(), S_OK);
        EXPECT_EQ(again.FirstTime(), 0);
    }
}

TEST(Player, TellsItsWindowOnceTheEventIsThereAndBeforeItGoes) {
    struct Window : INotifyWindow {
        void PostMessage(uint32_t message, intptr_t parameter) override {
            if (told != 0) return;  // what the pause at the end brings
            told = 16 * message + static_cast<uint32_t>(parameter);
            result = player.ProcessEvents();
            // From another thread, in the middle of the call.
            meanwhile.Run([this] { player.SetNotifyWindow(nullptr, 0, 0); });
        }
        TestPlayer player;
        uint32_t told = 0;
        HRESULT result = S_FALSE;
        Meanwhile meanwhile;
    } window;
    TestPlayer& player = window.player;
    ASSERT_EQ(player.Open(kMute, true, &window, 0x7E8, 1, nullptr, nullptr, true), S_OK);
    gst_element_post_message(player.Graph(), gst_message_new_eos(GST_OBJECT(player.Graph())));
    EXPECT_FALSE(window.meanwhile.CameBackEarly());
    EXPECT_EQ(window.told, 0x7E81u);
    EXPECT_EQ(window.result, S_OK);
}

TEST(Player, ForgetsTheEndThatASeekLeft) {
    TestPlayer player(kRoles);
    Unpace(player.Graph());
    ASSERT_GE(player.Run(), 0);
    ASSERT_TRUE(WaitFor([&] { return player.Position() == player.Duration(); }));
    ASSERT_GE(player.Pause(), 0);
    GstMessage* on_its_way = gst_message_new_eos(GST_OBJECT(player.Graph()));
    ASSERT_GE(player.SeekTo(kSecond), 0);
    gst_element_post_message(player.Graph(), on_its_way);
    EXPECT_EQ(player.ProcessEvents(), S_FALSE);
    EXPECT_EQ(player.State(), kPaused);
    EXPECT_EQ(player.Position(), kSecond);
    EXPECT_EQ(player.PlayToEnd(), S_OK);
    // The next seek shows its picture and is paused again.
    ASSERT_GE(player.SeekTo(kSecond), 0);
    EXPECT_EQ(player.State(), kPaused);
}

TEST(Player, StopsWhereASeekSays) {
    for (const bool running : {false, true}) {
        SCOPED_TRACE(running);
        TestPlayer player(kRoles);
        if (running) {
            ASSERT_GE(player.Pause(), 0);
        }
        EXPECT_EQ(player.Seek(kSecond, kSet, kSecond - 1, kSet), E_INVALIDARG);
        EXPECT_GE(player.Seek(INT64_MAX, kRelativePositioning, INT64_MAX, kSet), 0);
        EXPECT_EQ(player.Position(), player.Duration() - 1);
        EXPECT_GE(player.Seek(INT64_MIN, kRelativePositioning, INT64_MAX, kSet), 0);
        EXPECT_EQ(player.Position(), 0);
        EXPECT_GE(player.Seek(kSecond / 4, kSet, INT64_MAX, kSet), 0);
        EXPECT_GE(player.Seek(0, kNoPositioning, kSecond, kSet), 0) << "the stop alone";
        EXPECT_EQ(player.Position(), kSecond / 4);
        EXPECT_GE(player.Seek(kSecond / 4, kRelativePositioning, 0, kNoPositioning), 0);
        EXPECT_EQ(player.Position(), kSecond / 2);
        EXPECT_EQ(player.Seek(0, kSet, 0, 2), E_INVALIDARG);
        ASSERT_GE(player.Seek(0, kSet, kSecond, kSet), 0);
        EXPECT_EQ(player.PlayToEnd(), S_OK);
        EXPECT_EQ(player.Position(), kSecond);
    }
}

TEST(Player, ShowsWhatIsDecodedBehindTheEnd) {
    TestPlayer player(kData + "/playback/negative_offsets.mp4");
    ASSERT_GE(player.SeekTo(kSecond + kSecond / 25), 0);
    ASSERT_TRUE(player.PausesThere());
    const std::vector<int> last = ShownThumbnail(player);  // is decoded 1.12 seconds from the start
    ASSERT_GE(player.Seek(0, kSet, kSecond * 53 / 50, kSet), 0);
    ASSERT_EQ(player.PlayToEnd(), S_OK);
    EXPECT_EQ(ShownThumbnail(player), last);
}

TEST(Player, TellsALostDeviceFromAClosedWindow) {
    using enum ReasonSide;
    const struct {
        const char* bin;
        int32_t event;
        ReasonCode code;
        ReasonSide side;
    } cases[] = {
        {"Default DirectSound Device", EC_ERRORABORT, ReasonCode::kSoundDevice, kDevice},
        {"VMR-7", EC_USERABORT, ReasonCode::kNoScreen, kDevice},
        {"Audio Decoder", EC_ERRORABORT, ReasonCode::kPlayback, kSource},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.bin);
        TestPlayer player(kRoles);
        ASSERT_TRUE(player.PausesThere());
        ASSERT_EQ(player.ProcessEvents(), S_FALSE);
        GraphEvent heard{};
        player.SetEventCallback([&](const GraphEvent& event) { heard = event; });
        PostError(player, c.bin, "no more");
        PostError(player, c.bin, "its echo");
        EXPECT_EQ(player.WaitForEnd(), E_ABORT);
        EXPECT_EQ(player.ProcessEvents(), S_FALSE) << "told once";
        EXPECT_EQ(player.State(), kStopped);
        EXPECT_EQ(heard.code, c.event);
        EXPECT_EQ(heard.reason.code, c.code);
        EXPECT_EQ(heard.reason.side, c.side);
        EXPECT_EQ(player.GetReason(), heard.reason);
        ASSERT_GE(player.SeekTo(0), 0);
        // The window may let go of the clip as soon as it hears.
        player.SetEventCallback([&](const GraphEvent&) { player.ReleaseGraph(); });
        PostError(player, c.bin, "second");
        EXPECT_EQ(player.ProcessEvents(), E_ABORT);
        EXPECT_EQ(player.Graph(), nullptr);
    }
}

TEST(Player, RemembersNothingOfTheClipBefore) {
    CountingWindow window;
    TestPlayer player;
    // A place to start, a place to stop, an error that nobody has heard of, a window.
    ASSERT_EQ(player.Open(kRoles, true, &window, 0, 0, nullptr, nullptr, false), S_OK);
    ASSERT_GE(player.Seek(kSecond / 2, kSet, kSecond, kSet), 0);
    PostError(player, "Audio Decoder", "old");
    EXPECT_EQ(window.count, 1);
    ASSERT_EQ(player.OpenClip(kRoles), S_OK);
    EXPECT_EQ(player.Position(), 0);
    EXPECT_EQ(player.ProcessEvents(), S_FALSE);
    EXPECT_FALSE(player.GetReason()) << player.GetReason();
    const SoundCapture sound(&player);
    ASSERT_EQ(player.PlayToEnd(), S_OK);
    EXPECT_EQ(sound.FirstTime(), 0);
    EXPECT_EQ(player.Position(), player.Duration());
    PostError(player, "Audio Decoder", "new");
    EXPECT_EQ(player.ProcessEvents(), E_ABORT);
    EXPECT_EQ(player.GetReason().arguments, std::vector<ReasonArgument>{std::string("new")});
    EXPECT_EQ(window.count, 1);
}

TEST(Player, IsNotOpenAfterAnOpenThatFailed) {
    const struct {
        std::string path;
        ReasonCode code;
        HRESULT result;
    } rows[] = {
        {"/nowhere/a.mp4", ReasonCode::kCantOpen, E_FAIL},
        {"/nowhere/a.wav", ReasonCode::kCantOpen, E_FAIL},
        {kData + "/clips/cam_roles.json", ReasonCode::kNotMovieOrWave, E_INVALIDARG},
    };
    TestPlayer player;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.path);
        ASSERT_EQ(player.OpenClip(kTexts), S_OK);
        EXPECT_EQ(player.OpenClip(row.path), row.result);
        EXPECT_EQ(player.GetReason().code, row.code) << player.GetReason();
        EXPECT_EQ(player.GetReason().side, ReasonSide::kSource);
        EXPECT_EQ(player.GetReason().file, row.path);
        EXPECT_EQ(player.Graph(), nullptr);
        EXPECT_EQ(player.Renderer(), nullptr);
        EXPECT_EQ(player.SoundDevice(), nullptr);
        int64_t time = 0;
        for (const HRESULT result :
             {player.GetPosition(&time), player.Run(), player.Pause(), player.SeekTo(0),
              player.ProcessEvents(), player.InsertSoundFilter(), player.SetInPoint(0)})
            EXPECT_EQ(result, E_HANDLE);
    }
    ASSERT_EQ(player.CreateGraph(), S_OK) << "nothing is in the way";
    EXPECT_FALSE(player.GetReason());
    EXPECT_EQ(player.CreateGraph(), E_ACCESSDENIED);
    ASSERT_EQ(player.RenderFile(kData + "/golden/in/impulse_48k.wav", false), S_OK);
    EXPECT_EQ(player.Duration(), kSecond);
    ASSERT_EQ(player.RenderFile(kData + "/golden/in/range_10s_8k.wav", false), S_OK);
    const SoundCapture sound(&player);
    EXPECT_EQ(player.PlayToEnd(), S_OK) << player.GetReason();
    EXPECT_EQ(sound.Samples().size(), 2 * 80000u);
}

TEST(Player, OpensAsItsCallerWants) {
    const TempDir dir;
    dir.Write("mono.wav", WaveFile({.rate = 48000, .channels = 1}, std::string(96000, '\1')));
    const std::string wave = kData + "/golden/in/noise_48k.wav", mono = dir.Path("mono.wav");
    const std::string misnamed = dir.Path("movie.wav");
    std::filesystem::copy_file(kTexts, misnamed);
    const struct {
        const char* name;
        std::string path;
        bool withSound, strict;
        HRESULT opened, effect;
    } rows[] = {
        {"with effects", kTexts, true, true, S_OK, S_OK},
        {"as it is", kTexts, false, true, S_OK, S_FALSE},
        {"a WAV file", wave, true, true, S_OK, S_OK},
        {"a movie that is called one", misnamed, true, true, S_OK, S_OK},
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
        const bool movie = row.path == kTexts || row.path == misnamed;
        EXPECT_EQ(player.Renderer() != nullptr, movie) << "a WAV file has no picture";
        ASSERT_TRUE(player.PausesThere()) << player.GetReason();
        EXPECT_TRUE(!movie || window.WaitForChanges(1));
    }
    // The short form is without effects and not strict.
    TestPlayer player;
    PlayerController& base = player;
    EXPECT_EQ(base.Open(mono, nullptr, 0, 0, nullptr, nullptr), S_OK);
    EXPECT_EQ(player.SetEffects({}), S_FALSE);
    EXPECT_EQ(player.RemoveSoundFilter(), S_FALSE);
    EXPECT_EQ(player.InsertSoundFilter(), S_OK);
    EXPECT_EQ(player.InsertSoundFilter(), S_FALSE);
    EXPECT_EQ(player.SetInPoint(-1), E_INVALIDARG);
    EXPECT_EQ(player.RemoveSoundFilter(), S_OK);
    EXPECT_FALSE(player.Element("Sound Effect"));
    const SoundCapture sound(&player);
    EXPECT_EQ(player.PlayToEnd(), S_OK) << player.GetReason();
    EXPECT_EQ(sound.Samples().size(), 48000u) << "the way is whole again";
    ASSERT_EQ(player.OpenClip(kMute), S_OK);
    EXPECT_EQ(player.InsertSoundFilter(), E_FAIL);
    EXPECT_EQ(player.GetReason().code, ReasonCode::kNoAudioTrack);
}

TEST(Player, KnowsHowLongAnyWaveFileIs) {
    const TempDir dir;
    const std::string sound(96000, '\1');
    const struct {
        const char* name;
        WaveShape shape;
        int64_t length;  // 0: refused
    } rows[] = {
        {"mono", {.rate = 48000, .channels = 1}, kSecond},
        {"24 bits", {.rate = 48000, .bits = 24}, kSecond / 3},
        {"a longer format", {.rate = 24000, .format_size = 18, .chunks = Le(0, 2)}, kSecond},
        {"not padded", {.rate = 24000, .chunks = "LIST" + Le(3) + "abc"}, kSecond},
        {"eight speakers", {.rate = 6000, .channels = 8}, kSecond},
        {"odd chunk before", {.rate = 24000, .chunks = "junk" + Le(3) + "abc" + Le(0, 1)}, kSecond},
        {"claims more", {.rate = 24000, .claimed = 192000}, kSecond},
        {"slowest", {.rate = 1000}, 24 * kSecond},
        {"fastest", {.rate = 384000}, kSecond / 16},
        {"no rate", {.rate = 0}, 0},
        {"too slow", {.rate = 999}, 0},
        {"too fast", {.rate = 384001}, 0},
        {"far too fast", {.rate = UINT32_MAX}, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        dir.Write("a.mp4", WaveFile(row.shape, sound));  // its content tells
        TestPlayer player;
        EXPECT_EQ(player.OpenClip(dir.Path("a.mp4")), row.length > 0 ? S_OK : E_FAIL);
        EXPECT_EQ(player.GetReason().code,
                  row.length > 0 ? ReasonCode::kNone : ReasonCode::kWaveRate);
        if (row.length == 0) continue;
        EXPECT_EQ(player.Duration(), row.length);
        EXPECT_EQ(player.PlayToEnd(), S_OK) << player.GetReason();
        EXPECT_EQ(player.Position(), row.length);
    }
}

TEST(Player, SurvivesAnyOrderOfPlayPauseAndSeek) {
    TestPlayer player(kFilm);
    std::mt19937_64 random(11);
    std::uniform_int_distribution<int64_t> place(0, player.Duration() - 1);
    const auto step = [&] {
        const uint64_t kind = random() % 4;
        return kind == 0 ? player.Run() : kind == 1 ? player.Pause() : player.SeekTo(place(random));
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
        ASSERT_EQ(player.OpenClip(i % 2 == 0 ? kTexts : ClipPath("cam_audio_only")), S_OK);
    player.ReleaseGraph();
    ASSERT_TRUE(WaitFor([] { return DShowHelper::GraphsLeftBehind() == 0; }));
    EXPECT_LT(CountFiles("/proc/self/task"), threads);
}

TEST(Player, GoesWhereItWasAskedToGoLast) {
    const KnownPictures known("cam_avc_2997_g12_b2_3s");
    TestWindow window;
    TestPlayer player;
    ASSERT_EQ(player.Open(kFilm, true, nullptr, 0, 0, &window, nullptr, false), S_OK);
    std::vector<uint64_t> told;
    player.SetEventCallback([&](const GraphEvent& event) {
        EXPECT_EQ(event.code, EC_SEEK_COMPLETE);
        told.push_back(event.request);
    });
    ASSERT_TRUE(player.PausesThere());
    ASSERT_EQ(player.ProcessEvents(), S_FALSE);
    EXPECT_EQ(told, std::vector<uint64_t>{player.LastRequest()});
    SlowMedium medium(player, kVideoPin);
    const int shown = window.changes;
    ASSERT_GE(player.SeekTo(player.Duration()), 0);
    ASSERT_TRUE(medium.WaitUntilItHolds());
    for (int64_t i = 50; i > 0; --i)  // each replaces the one before
        ASSERT_EQ(player.SeekTo(i * kSecond / 25), VFW_S_STATE_INTERMEDIATE);
    EXPECT_EQ(player.Position(), kSecond / 25) << "as if it were there";
    medium.LetAllGo();
    ASSERT_TRUE(WaitFor([&] { return player.ProcessEvents() != S_FALSE || told.size() > 1; }));
    EXPECT_EQ(told, (std::vector<uint64_t>{told[0], player.LastRequest()}));
    EXPECT_EQ(known.Nearest(ShownThumbnail(player)), known.At(kSecond / 25));
    EXPECT_EQ(window.changes, shown + 2) << "none was thrown away";
}

TEST(Player, LeavesBehindWhatDoesNotAnswer) {
    for (const std::string& path : {kFilm, kData + "/golden/in/noise_48k.wav"}) {
        SCOPED_TRACE(path);
        TestWindow window;
        TestPlayer player;
        ASSERT_EQ(player.Open(path, true, nullptr, 0, 0, &window, nullptr, false), S_OK);
        SlowMedium medium(player, path == kFilm ? kVideoPin : kAudioPin);
        ASSERT_GE(player.Run(), 0);
        ASSERT_TRUE(medium.WaitUntilItHolds());
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(player.SeekTo(kSecond / 2 + i), VFW_S_STATE_INTERMEDIATE);
            EXPECT_GE(player.Pause(), 0);
            EXPECT_GE(player.Position(), 0);
        }
        EXPECT_EQ(player.ReleaseGraph(), S_OK);
        EXPECT_EQ(DShowHelper::GraphsLeftBehind(), 1);
        ASSERT_EQ(player.OpenClip(kTexts), S_OK) << "another one plays meanwhile";
        EXPECT_EQ(player.PlayToEnd(), S_OK);
        EXPECT_EQ(window.changes, 0);
        medium.LetAllGo();
        EXPECT_TRUE(WaitFor([] { return DShowHelper::GraphsLeftBehind() == 0; }));
    }
}

TEST(Player, SaysWhatIsMissing) {
    ASSERT_EQ(TestPlayer().CreateGraph(), S_OK);  // starts GStreamer
    const struct {
        const char *hidden, *other, *named;
        ReasonCode code;
    } cases[] = {{"avdec_h264", "openh264dec", "H.264", ReasonCode::kNoPlugin},
                 {"volume", nullptr, "volume", ReasonCode::kNoGraphPart},
                 {"audioconvert", nullptr, "audioconvert", ReasonCode::kNoGraphPart},
                 {"audioresample", nullptr, "audioresample", ReasonCode::kNoGraphPart},
                 {"queue", nullptr, "queue", ReasonCode::kNoGraphPart},
                 {"videoconvert", nullptr, "picture", ReasonCode::kNoScreen}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.hidden);
        Reason reason;
        ASSERT_EQ(TarnPlayerController::CheckMovieFile(kTexts, true, &reason), kFileUsable);
        const HiddenFactory hidden(c.hidden), other(c.other ? c.other : "none");
        const MovieFileStatus status = TarnPlayerController::CheckMovieFile(kTexts, true, &reason);
        EXPECT_EQ(status, kFileNoGraph);
        EXPECT_EQ(MovieFileMessageKey(status),
                  "IDS_MSG_CANT_START_APP_BECAUSE_MODULE_FILE_IS_NOT_FOUND_OR_BROKEN");
        EXPECT_EQ(reason.code, c.code);
        EXPECT_NE(ReasonText(reason).find(c.named), std::string::npos);
        TestPlayer player;
        EXPECT_EQ(player.OpenClip(kTexts), E_FAIL);
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
        // A clip may say that it lasts for years; its end is where its samples are. What ends too
        // soon has ended all the same: an editor waits for that.
        if (player.PlayToEnd() == S_OK) {
            EXPECT_EQ(player.Position(), player.Duration());
        }
        player.SeekTo(kSecond);
    }
}

// A clip that is changed before it is opened.
struct ChangedClip {
    ChangedClip(const std::string& clip, const std::function<void(std::string*)>& change) {
        std::filesystem::copy_file(clip, path);
        std::string bytes = dir.Read("a.mp4");
        change(&bytes);
        dir.Write("a.mp4", bytes);
        EXPECT_EQ(player.OpenClip(path), S_OK) << player.GetReason();
    }
    const TempDir dir;
    const std::string path = dir.Path("a.mp4");
    TestPlayer player;
};

TEST(Player, PlaysOnThroughDamagedSamples) {
    ChangedClip damaged(kFilm, [](std::string* bytes) {
        std::mt19937 random(3);
        const size_t eighth = bytes->size() / 8;
        for (size_t i = bytes->find("mdat") + 4 + eighth; i < bytes->size() - eighth; i += 40)
            (*bytes)[i] = static_cast<char>(random());
    });
    // 24000 units a second become 448: the bytes tell how long the sound is.
    ChangedClip slow(kData + "/playback/pcm.mp4",
                     [](std::string* bytes) { (*bytes)[bytes->find("mdhd") + 18] = 1; });
    for (TestPlayer* player : {&damaged.player, &slow.player})
        EXPECT_EQ(player->PlayToEnd(), S_OK) << player->GetReason();
}

TEST(Player, NamesTheFileThatLacksThePlace) {
    ChangedClip clip(kFilm, [](std::string*) {});
    TestPlayer& player = clip.player;
    ASSERT_TRUE(player.PausesThere());
    std::filesystem::resize_file(clip.path, 2000);
    player.SeekTo(player.Duration());
    EXPECT_EQ(player.WaitForEnd(), E_ABORT);
    EXPECT_EQ(player.GetReason().file, clip.path) << player.GetReason();
    EXPECT_EQ(player.State(), kStopped);
}

}  // namespace
}  // namespace tarn

// What is heard in the preview and what a save writes, sample by sample.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "../cli/run_tarn.h"
#include "playback/save_points.h"
#include "player_rig.h"
#include "support/temp_dir.h"

namespace tarn {
namespace {

constexpr size_t kWaveHead = 44;  // of a WAV file that a save wrote

using Sound = std::vector<int16_t>;

Sound Saved(const std::string& clip, std::vector<std::string> options) {
    const TempDir dir;
    std::vector<std::string> arguments{"export", clip, dir.Path("out.wav"), "--wav"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    EXPECT_EQ(RunTarn(arguments).status, 0);
    const std::string bytes = dir.Read("out.wav");
    Sound sound((bytes.size() - kWaveHead) / 2);
    std::memcpy(sound.data(), bytes.data() + kWaveHead, sound.size() * 2);
    return sound;
}

struct Heard {
    Sound sound;
    int64_t from;  // nanoseconds
};

// Plays to the end, from `seekMs` on where that is not negative.
Heard Preview(const std::string& clip, const AMPEffectSettings& settings, int32_t outMs,
              int64_t seekMs = -1) {
    TestPlayer player(clip);
    const SoundCapture capture(&player);
    EXPECT_EQ(player.SetEffects(settings), S_OK);
    EXPECT_EQ(player.SetInPoint(0), S_OK);
    EXPECT_EQ(player.SetOutPoint(outMs), S_OK);
    EXPECT_GE(player.Pause(), 0);
    if (seekMs >= 0) {
        EXPECT_GE(player.SeekTo(seekMs * 10'000), 0);
    }
    EXPECT_EQ(player.PlayToEnd(), S_OK) << player.GetReason();
    return {capture.Samples(), capture.FirstTime()};
}

// The first place where they differ, in frames, or -1; what is longer is cut.
int64_t FirstDifference(const Sound& a, const Sound& b) {
    for (size_t i = 0; i < std::min(a.size(), b.size()); ++i)
        if (a[i] != b[i]) return static_cast<int64_t>(i / 2);
    return -1;
}

TEST(PreviewAndSave, TreatTheSameSoundAlike) {
    const AMPEffectSettings all = {0, -20, 30, 5, 4, 2, 0, 0.5f};
    using Options = std::vector<std::string>;
    const Options fade_options{"--fade", "--out", "8000"};
    const Options all_options{"--bass",       "30", "--treble",    "-20", "--reverb", "5",
                              "--compressor", "4",  "--normalize", "2",   "--peak",   "0.5"};
    const struct {
        const char* name;
        std::string clip;
        AMPEffectSettings settings;
        Options options;
        int32_t outMs;
        size_t least;  // frames
    } cases[] = {
        {"AAC with an edit", ClipPath("cam_avc_2997_g12_b2_3s"), all, all_options, 3003, 143000},
        {"PCM", kData + "/playback/pcm.mp4", all, all_options, 0, 24000},
        {"fades", ClipPath("cam_audio_only"), {.fade = 1}, fade_options, 8000, 480000},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const Sound saved = Saved(c.clip, c.options);
        const Heard heard = Preview(c.clip, c.settings, c.outMs);
        EXPECT_EQ(heard.from, 0);
        EXPECT_GE(heard.sound.size() / 2, c.least);
        EXPECT_GE(saved.size() / 2, std::min<size_t>(c.least, 384000));
        EXPECT_EQ(FirstDifference(heard.sound, saved), -1);
    }
}

TEST(PreviewAndSave, GoOnAlikeBehindASeek) {
    constexpr int64_t kRate = 48000;
    const std::string clip = ClipPath("cam_audio_only");
    const Sound saved = Saved(clip, {});
    const Sound treated = Saved(clip, {"--bass", "30"});
    for (const int64_t ms : {0, 1, 30, 1000, 3500, 7777}) {
        SCOPED_TRACE(ms);
        // The decoder is warm: not one sample is wrong.
        const Heard plain = Preview(clip, {}, 0, ms);
        const auto start =
            static_cast<ptrdiff_t>((plain.from * kRate + 500'000'000) / 1'000'000'000);
        EXPECT_NEAR(static_cast<double>(plain.from), static_cast<double>(ms * 1'000'000), 30'000);
        EXPECT_EQ(FirstDifference(plain.sound, {saved.begin() + 2 * start, saved.end()}), -1);
        // The equaliser has forgotten its past and finds back to it.
        constexpr ptrdiff_t kForgotten = 16384;
        const Heard heard = Preview(clip, {.bass = 30}, 0, ms);
        EXPECT_EQ(FirstDifference({heard.sound.begin() + 2 * kForgotten, heard.sound.end()},
                                  {treated.begin() + 2 * (start + kForgotten), treated.end()}),
                  -1);
    }
}

TEST(PreviewAndSave, FadeAtTheSamePoints) {
    const std::string clip = ClipPath("cam_avc_2997_g12_b2_3s");
    for (const bool exact : {false, true}) {
        SCOPED_TRACE(exact);
        const TempDir dir;
        std::vector<std::string> arguments{
            "export", clip, dir.Path("out.mp4"), "--in", "1000", "--out", "2000", "--json"};
        if (exact) arguments.emplace_back("--exact");
        const nlohmann::json answer = nlohmann::json::parse(RunTarn(arguments).out);
        const nlohmann::json& saved = answer["actual"];
        const ClipPoints asked = {1000, 2000, exact}, found = FindSavePoints(clip, asked);
        EXPECT_EQ(found.in, saved["in_ms"]);
        EXPECT_EQ(found.out, exact ? nlohmann::json(2000) : saved["out_ms"]);
        const auto play = [&](const ClipPoints& points) {
            TestPlayer player(clip);
            const SoundCapture capture(&player);
            EXPECT_EQ(player.SetEffects({.fade = 1}), S_OK);
            EXPECT_EQ(player.SetInPoint(points.in), S_OK);
            EXPECT_EQ(player.SetOutPoint(points.out), S_OK);
            EXPECT_EQ(player.SetExactPoints(points.exact), S_OK);
            EXPECT_EQ(player.PlayToEnd(), S_OK);
            return capture.Samples();
        };
        EXPECT_EQ(FirstDifference(play(asked), play({found.in, found.out, true})), -1);
    }
}

TEST(PreviewAndSave, LeaveTheSamePlacesSilent) {
    const TempDir dir;
    const std::string clip = ClipPath("cam_audio_only"), hurt = dir.Path("hurt.mp4");
    std::filesystem::copy_file(clip, hurt);
    std::fstream file(hurt, std::ios::in | std::ios::out | std::ios::binary);
    const struct {
        size_t first;  // frame
        int64_t offset;
        size_t size;
        char fill;
    } damage[] = {{99 * 1024, 25620, 254, '\xE0'}, {199 * 1024, 51370, 301, '\xFF'}};
    for (const auto& d : damage)
        file.seekp(d.offset) << std::string(d.size, d.fill);
    file.close();
    const Sound saved = Saved(hurt, {}), heard = Preview(hurt, {}, 0).sound;
    EXPECT_EQ(heard.size(), Preview(clip, {}, 0).sound.size());
    for (const auto& d : damage)
        for (const Sound* sound : {&saved, &heard})
            EXPECT_EQ(
                std::count(sound->begin() + 2 * d.first, sound->begin() + 2 * (d.first + 1024), 0),
                2048);
    // What overlaps with a frame that could not be decoded is the decoder's affair.
    constexpr ptrdiff_t kBefore = 2 * 199 * 1024, kAfter = 2 * 202 * 1024;
    EXPECT_EQ(FirstDifference({saved.begin(), saved.begin() + kBefore}, heard), -1);
    EXPECT_EQ(FirstDifference({saved.begin() + kAfter, saved.end()},
                              {heard.begin() + kAfter, heard.end()}),
              -1);
}

// Where the sound bears no times the effects go by what the player tells them.
TEST(PreviewAndSave, FadeFromThePlaceThatWasSought) {
    const auto play = [&](bool timed) {
        TestPlayer player(ClipPath("cam_audio_only"));
        const GstPadPtr out(
            gst_element_get_static_pad(player.Element("Audio Decoder").get(), "src"));
        const auto strip = [](GstPad*, GstPadProbeInfo* info, gpointer) {
            info->data = gst_buffer_make_writable(GST_PAD_PROBE_INFO_BUFFER(info));
            GST_BUFFER_PTS(GST_PAD_PROBE_INFO_BUFFER(info)) = GST_CLOCK_TIME_NONE;
            return GST_PAD_PROBE_OK;
        };
        if (!timed)
            gst_pad_add_probe(out.get(), GST_PAD_PROBE_TYPE_BUFFER, strip, nullptr, nullptr);
        const SoundCapture capture(&player);
        EXPECT_EQ(player.SetEffects({.fade = 1}), S_OK);
        EXPECT_EQ(player.SetInPoint(4000), S_OK);
        EXPECT_EQ(player.SetOutPoint(9000), S_OK);
        EXPECT_GE(player.SeekTo(50'000'000), 0);
        EXPECT_EQ(player.PlayToEnd(), S_OK) << player.GetReason();
        return capture.Samples();
    };
    const Sound timed = play(true);
    EXPECT_GT(timed.size(), 2 * 48000u);
    EXPECT_EQ(FirstDifference(timed, play(false)), -1);
}

}  // namespace
}  // namespace tarn

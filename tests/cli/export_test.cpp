#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "cli/run_tarn.h"
#include "cli/times.h"
#include "support/temp_dir.h"
#include "support/wave_builder.h"

namespace tarn {
namespace {

TEST(Times, AreMillisecondsOrAClock) {
    const std::pair<const char*, uint32_t> cases[] = {
        {"0", 0},           {"12500", 12500},     {"4294967295", 4294967295},
        {"00:12.5", 12500}, {"0:01", 1000},       {"59:59", 3599000},
        {"90:00", 5400000}, {"1:59:00", 7140000}, {"1:02:03.004", 3723004},
    };
    uint32_t ms = 0;
    for (const auto& [text, expected] : cases) {
        EXPECT_TRUE(ParseTime(text, &ms)) << text;
        EXPECT_EQ(ms, expected) << text;
    }
    for (const char* bad :
         {"4294967296", "1:60", "1:60:00", "1:00:00:00", "99999999999:00", "4294967295:59:59", "",
          ":", "1:", "1:00.", "1:00.1234", "12.5", "-1", "1: 5", "5s"})
        EXPECT_FALSE(ParseTime(bad, &ms)) << bad;
}

const std::string kGolden = TARN_TEST_DATA "/golden/", kClips = TARN_TEST_DATA "/clips/";

std::string Content(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST(ExportCommand, TakesNamesAndNumbers) {
    const std::tuple<std::string, std::vector<std::string>, std::string> cases[] = {
        {"impulse_48k", {"--reverb", "5"}, "impulse-reverb5"},
        {"impulse_48k", {"--reverb", "Club-Mid"}, "impulse-reverb5"},
        {"noise_48k", {"--normalize", "-3dB", "--peak", "0.25"}, "noise-normalize2"},
        {"threshold_48k", {"--compressor=heavy"}, "threshold-compressor4"},
        {"noise_48k", {"--treble", "-63", "--bass", "41"}, "noise-eq"},
        {"range_10s_8k", {"--in", "500", "--out", "0:09.5", "--fade"}, "range-fade"},
        {"extremes_48k", {"--bypass", "--reverb", "3"}, "extremes-bypass"},
    };
    const auto treat = [](const std::string& input, const std::vector<std::string>& options) {
        const TempDir output;
        std::vector<std::string> arguments = {"export", kGolden + "in/" + input + ".wav"};
        arguments.push_back(output.Path("out.wav"));
        arguments.insert(arguments.end(), options.begin(), options.end());
        const TarnRun run = RunTarn(arguments);
        EXPECT_EQ(run.out + run.err, "") << "quiet where there is no terminal";
        return output.Read("out.wav");
    };
    for (const auto& [input, options, golden] : cases)
        EXPECT_TRUE(treat(input, options) == Content(kGolden + "out/" + golden + ".wav")) << golden;
    // A peak that was not given is measured: the loudest of the overview's points is 47.
    EXPECT_TRUE(treat("range_10s_8k", {"--normalize=1"}) ==
                treat("range_10s_8k", {"--normalize=1", "--peak", "0.3671875"}));
}

// Whether a program has a file of the folder open that is not called `source`, named or not.
bool Writes(int pid, const TempDir& dir, const std::string& source) {
    std::error_code ignored;
    const std::string files = "/proc/" + std::to_string(pid) + "/fd";
    for (const auto& entry : std::filesystem::directory_iterator(files, ignored)) {
        const std::string file = std::filesystem::read_symlink(entry, ignored).string();
        if (file.starts_with(dir.Path("")) && file != dir.Path(source)) return true;
    }
    return false;
}

TEST(ExportCommand, StopsCleanlyWhenItIsTold) {
    // The second signal ends it at once, and no less cleanly.
    for (const auto& [number, times] :
         {std::pair{SIGINT, 1}, {SIGTERM, 1}, {SIGHUP, 1}, {SIGTERM, 2}, {SIGKILL, 1}}) {
        SCOPED_TRACE(number);
        int sent = 0;
        TempDir dir;
        dir.Write("in.wav", WaveFile({.rate = 48000, .claimed = 2000000000}, ""));
        std::filesystem::resize_file(dir.Path("in.wav"), 2000000044);  // silence, as a hole
        const TarnRun run = RunTarn(
            {"export", dir.Path("in.wav"), dir.Path("out.wav"), "--reverb", "9"}, [&](int pid) {
                while (sent < times && Writes(pid, dir, "in.wav")) {
                    kill(pid, number);
                    ++sent;
                }
            });
        EXPECT_FALSE(std::filesystem::exists(dir.Path("out.wav")));
        EXPECT_EQ(std::filesystem::file_size(dir.Path("in.wav")), 2000000044u);
        if (number == SIGKILL) continue;  // without nameless files the next export cleans up
        EXPECT_EQ(run.status, 1);
        EXPECT_NE(run.err.find("cancelled"), std::string::npos);
        EXPECT_EQ(dir.FileCount(), 1u);
    }
}

TEST(ExportCommand, SavesMovies) {
    TempDir dir;
    const TarnRun one =
        RunTarn({"export", kClips + "cam_texts.mp4", dir.Path("one.mp4"), "--verify", "--json",
                 "--normalize", "0dB", "--reverb=club-low", "--in=500", "--out", "0:01.500"});
    ASSERT_EQ(one.status, 0) << one.err;
    const auto said = nlohmann::json::parse(one.out);
    EXPECT_EQ(said["requested"]["in_ms"], 500);
    // The first picture of a clip without an edit list is shown two pictures late.
    EXPECT_EQ(said["actual"]["in_ms"], 67);
    EXPECT_EQ(said["verified"], said["video"]["samples"]);
    EXPECT_EQ(said["bytes"], dir.Read("one.mp4").size());

    // Effects without sound to put them on are no reason to refuse the pictures.
    std::string silent = Content(kClips + "cam_texts.mp4");
    silent.replace(silent.rfind("soun"), 4, "text");
    dir.Write("silent.mp4", silent);
    const TarnRun note =
        RunTarn({"export", dir.Path("silent.mp4"), dir.Path("pictures.mp4"), "--normalize", "1"});
    EXPECT_EQ(note.status, 0);
    const std::string all = ": 0:00:00.000 to 0:00:02.005, ";
    EXPECT_EQ(note.out, dir.Path("pictures.mp4") + all +
                            "60 pictures kept as they were, 0 sound samples re-encoded\n");
    const TarnRun wav = RunTarn({"export", kClips + "cam_texts.mp4", dir.Path("sound.wav")});
    EXPECT_EQ(wav.out, dir.Path("sound.wav") + all + "96256 sound frames re-encoded\n");
    EXPECT_NE(note.err.find("has no sound: the effects"), std::string::npos) << note.err;
}

TEST(ExportCommand, SavesAHurtRecordingUnlessStrict) {
    const TempDir dir;
    const std::string hurt = TARN_TEST_DATA "/hurt/cut_short.mp4";
    const auto save = [&](std::vector<std::string> options) {
        std::vector<std::string> arguments = {"export", hurt, dir.Path("out.mp4"), "--json"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        const TarnRun run = RunTarn(arguments);
        std::filesystem::remove(dir.Path("out.mp4"));
        return std::pair(run.status, nlohmann::json::parse(run.out));
    };
    const auto [done, said] = save({"--normalize", "1"});
    EXPECT_EQ(done, 0);
    EXPECT_EQ(said["notes"][0]["code"], "SAMPLES_MISSING");
    EXPECT_EQ(said["damaged_sound_samples"], 0);
    EXPECT_EQ(said["actual"]["out_ms"], 6443);
    // The same beginning; but its peak can't be known where the rest counts as damaged.
    EXPECT_EQ(save({"--strict", "--out", "1000"}).first, 0);
    EXPECT_EQ(save({"--strict", "--out", "1000", "--normalize", "1"}).second["error"]["code"],
              "DAMAGED_SAMPLE");
    EXPECT_EQ(dir.FileCount(), 0u);
}

TEST(ExportCommand, BatchesGoOnAndTellOfEveryInput) {
    TempDir dir;
    dir.Write("cam_roles.wav", "keep me");
    const std::vector<std::string> inputs = {dir.Path("none.mp4"), kClips + "cam_texts.mp4",
                                             kClips + "cam_roles.mp4", kClips + "plain_hevc.mp4"};
    std::vector<std::string> arguments = {"export", "--to", dir.Path(""), "--wav"};
    arguments.insert(arguments.end(), inputs.begin(), inputs.end());
    const TarnRun words = RunTarn(arguments);
    EXPECT_EQ(words.status, 1);
    EXPECT_NE(words.out.find("2 of 4 clips saved"), std::string::npos) << words.out;
    EXPECT_NE(words.err.find("cam_roles.wav: already exists"), std::string::npos) << words.err;
    EXPECT_EQ(dir.Read("cam_roles.wav"), "keep me");
    std::filesystem::remove(dir.Path("cam_texts.wav"));
    arguments.emplace_back("--json");
    const auto said = nlohmann::json::parse(RunTarn(arguments).out);
    EXPECT_EQ(said["done"], 1);
    EXPECT_EQ(said["failed"], 3);
    const std::vector<std::string> errors = {"CANT_OPEN", "", "EXISTS", "EXISTS"};
    ASSERT_EQ(said["results"].size(), inputs.size());
    for (size_t i = 0; i < inputs.size(); ++i) {
        const auto& result = said["results"][i];
        EXPECT_EQ(result["input"], inputs[i]);
        EXPECT_EQ(result.contains("error") ? result["error"]["code"] : "", errors[i]);
        EXPECT_EQ(result.contains("bytes"), errors[i].empty());
    }
    EXPECT_EQ(dir.FileCount(), 3u);
}

}  // namespace
}  // namespace tarn

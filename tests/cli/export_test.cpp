#include <gtest/gtest.h>

#include <sys/resource.h>
#include <nlohmann/json.hpp>

#include <csignal>
#include <filesystem>

#include "cli/run_tarn.h"
#include "support/temp_dir.h"

namespace tarn {
namespace {

std::string Golden(const std::string& name) {
    return std::string(TARN_TEST_DATA) + "/golden/" + name;
}

std::string Content(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST(ExportCommand, TakesNamesAndNumbers) {
    TempDir dir;
    const struct {
        const char* name;
        const char* input;
        std::vector<std::string> options;
        const char* golden;
    } cases[] = {
        {"number", "impulse_48k", {"--reverb", "5"}, "impulse-reverb5"},
        {"name", "impulse_48k", {"--reverb", "Club-Mid"}, "impulse-reverb5"},
        {"name with a dash first",
         "noise_48k",
         {"--normalize", "-3dB", "--peak", "0.25"},
         "noise-normalize2"},
        {"equals sign", "threshold_48k", {"--compressor=heavy"}, "threshold-compressor4"},
        {"negative number", "noise_48k", {"--treble", "-63", "--bass", "41"}, "noise-eq"},
        {"range", "range_10s_8k", {"--in", "500", "--out", "0:09.5", "--fade"}, "range-fade"},
        {"out after the end", "noise_48k", {"--fade", "--out", "1:00:00"}, "noise-fade"},
        {"bypass", "extremes_48k", {"--bypass", "--reverb", "3"}, "extremes-bypass"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string output = dir.Path(std::string(c.name) + ".wav");
        std::vector<std::string> arguments = {"export", Golden("in/") + c.input + ".wav", output};
        arguments.insert(arguments.end(), c.options.begin(), c.options.end());
        const TarnRun run = RunTarn(arguments);
        EXPECT_EQ(run.status, 0) << run.err;
        EXPECT_EQ(run.out + run.err, "") << "quiet where there is no terminal";
        EXPECT_TRUE(Content(output) == Content(Golden("out/") + c.golden + ".wav"));
    }
}

TEST(ExportCommand, MeasuresThePeakThatWasNotGiven) {
    TempDir dir;
    const std::string input = Golden("in/range_10s_8k.wav");
    const auto normalize = [&](const std::string& output, const char* peak) {
        std::vector<std::string> arguments = {"export", input, dir.Path(output), "--normalize=1"};
        if (peak) arguments.insert(arguments.end(), {"--peak", peak});
        EXPECT_EQ(RunTarn(arguments).status, 0);
        return dir.Read(output);
    };
    // The loudest of the overview's points is 47.
    EXPECT_TRUE(normalize("measured.wav", nullptr) == normalize("given.wav", "0.3671875"));
}

TEST(ExportCommand, SaysWhatIsWrong) {
    TempDir dir;
    dir.Write("there.wav", "keep me");
    dir.Write("there.mp4", "");
    const std::string in = Golden("in/noise_48k.wav"), out = dir.Path("out.wav");
    const std::string clip = TARN_TEST_DATA "/clips/cam_texts.mp4", movie = dir.Path("out.mp4");
    const std::string there = dir.Path("there.wav"), none = dir.Path("none.wav");
    const struct {
        std::vector<std::string> arguments;
        const char *code, *side;
        std::string file;
        const char* text;
    } cases[] = {
        {{none, out}, "CANT_OPEN", "source", none, "can't be opened: No such"},
        {{dir.Path(""), out}, "CANT_OPEN", "source", dir.Path(""), "Is a directory"},
        {{"/dev/zero", out}, "NOT_A_FILE", "source", "/dev/zero", "not an ordinary file"},
        {{Golden("in/fmt18.wav"), out}, "WAVE_FORMAT", "source", Golden("in/fmt18.wav"), "16-bit"},
        {{there, out}, "NOT_A_MOVIE", "source", there, "not an MP4 file"},
        {{dir.Path("there.mp4"), movie}, "EMPTY_FILE", "source", dir.Path("there.mp4"), "is empty"},
        {{in, there}, "EXISTS", "target", there, "already exists"},
        {{clip, there}, "EXISTS", "target", there, "already exists"},
        {{clip, dir.Path("there.mp4")}, "EXISTS", "target", dir.Path("there.mp4"), "exists"},
        {{in, in}, "SAME_FILE", "target", in, "the output is the input itself"},
        {{in, dir.Path("no/a.wav")}, "CANT_WRITE", "target", dir.Path("no/a.wav"), "No such"},
        {{clip, dir.Path("no/a.mp4")}, "CANT_WRITE", "target", dir.Path("no/a.mp4"), "No such"},
        {{in, dir.Path(std::string(250, 'n') + ".wav")},
         "LONG_PATH",
         "target",
         dir.Path(std::string(250, 'n') + ".wav"),
         "256 characters"},
        {{in, dir.Path("a.mp3")}, "NOT_MOVIE_OR_WAVE", "target", dir.Path("a.mp3"), "neither"},
        {{in, out, "--in", "0:01"}, "IN_PAST_END_AT", "source", in, "0:00:01.000 is not before"},
        {{clip, out, "--in", "0:09"}, "IN_PAST_END", "source", clip, "after the end, 0:00:02"},
        {{in, movie}, "WAVE_AS_MOVIE", "target", movie, "can only"},
        {{in, "--to", dir.Path("no")}, "NOT_A_FOLDER", "target", dir.Path("no"), "not a folder"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file + " " + c.code);
        std::vector<std::string> arguments = {"export", "--json"};
        arguments.insert(arguments.end(), c.arguments.begin(), c.arguments.end());
        const TarnRun run = RunTarn(arguments);
        EXPECT_EQ(run.status, 1);
        const auto error = nlohmann::json::parse(run.out, nullptr, false)["error"];
        EXPECT_EQ(error["code"], c.code);
        EXPECT_EQ(error["side"], c.side);
        EXPECT_EQ(error["file"], c.file);
        const std::string text = error.value("text", "");
        EXPECT_NE(text.find(c.text), std::string::npos) << text;
        EXPECT_EQ(run.err, "tarn: " + c.file + ": " + text + "\n");
        EXPECT_EQ(dir.FileCount(), 2u);
        EXPECT_EQ(dir.Read("there.wav"), "keep me");
    }
}

TEST(ExportCommand, RefusesWrongUsage) {
    const struct {
        std::vector<std::string> arguments;
        const char* says;
    } cases[] = {
        {{"out.wav", "--in", "9", "--out", "9"}, "must lie before --out"},
        {{}, "give an input and an output"},
        {{"out.wav", "--loud"}, "--loud"},
        {{"out.wav", "--in", "1:75"}, "'1:75' is no time"},
        {{"out.wav", "--bass", "101"}, "not in range -100 to 100"},
        {{"out.wav", "--treble", "5.5"}, "--treble"},
        {{"out.wav", "--reverb", "10"}, "10 is none of: off, room-low"},
        {{"out.wav", "--normalize", "-9dB"}, "-9dB is none of"},
        {{"out.wav", "--peak", "nan"}, "between 0 and 1"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.says);
        std::vector<std::string> arguments = {"export", "in.wav"};
        arguments.insert(arguments.end(), c.arguments.begin(), c.arguments.end());
        const TarnRun run = RunTarn(arguments);
        EXPECT_EQ(run.status, 2);
        EXPECT_NE((run.err + run.out).find(c.says), std::string::npos) << run.err;
    }
}

// A WAV file of `size` bytes of silence, as a hole.
void WriteLongWave(const TempDir& dir, uint32_t size) {
    std::string head = Content(Golden("in/noise_48k.wav")).substr(0, 44);
    for (size_t i = 0; i < 4; ++i)
        head[40 + i] = static_cast<char>(size >> (8 * i));
    dir.Write("in.wav", head);
    std::filesystem::resize_file(dir.Path("in.wav"), 44 + uint64_t{size});
}

TEST(ExportCommand, StopsCleanlyWhenItIsTold) {
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGKILL}) {
        SCOPED_TRACE(number);
        TempDir dir;
        WriteLongWave(dir, 2000000000);
        const TarnRun run = RunTarn(
            {"export", dir.Path("in.wav"), dir.Path("out.wav"), "--reverb", "9"}, [&](int pid) {
                if (dir.FileCount() > 1) kill(pid, number);
            });
        EXPECT_FALSE(std::filesystem::exists(dir.Path("out.wav")));
        EXPECT_EQ(std::filesystem::file_size(dir.Path("in.wav")), 2000000044u);
        if (number == SIGKILL) continue;  // its hidden file stays for the next export to remove
        EXPECT_EQ(run.status, 1);
        EXPECT_NE(run.err.find("cancelled"), std::string::npos);
        EXPECT_EQ(dir.FileCount(), 1u);
    }
}

TEST(ExportCommand, LeavesNothingOnAFullDisk) {
    TempDir dir;
    WriteLongWave(dir, 8000000);
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const rlimit small{3000000, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);  // the program inherits it
    const TarnRun run = RunTarn({"export", dir.Path("in.wav"), dir.Path("out.wav")});
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.err.find("out.wav: no room for the output"), std::string::npos);
    EXPECT_EQ(dir.FileCount(), 1u);
}

TEST(ExportCommand, SavesMovies) {
    TempDir dir;
    const std::string clips = TARN_TEST_DATA "/clips/";
    const TarnRun one =
        RunTarn({"export", clips + "cam_texts.mp4", dir.Path("one.mp4"), "--verify", "--json",
                 "--normalize", "0dB", "--reverb=club-low", "--in=500", "--out", "0:01.500"});
    ASSERT_EQ(one.status, 0) << one.err;
    const auto said = nlohmann::json::parse(one.out);
    EXPECT_EQ(said["requested"]["in_ms"], 500);
    // The first picture of a clip without an edit list is shown two pictures late.
    EXPECT_EQ(said["actual"]["in_ms"], 67);
    EXPECT_EQ(said["verified"], said["video"]["samples"]);
    EXPECT_EQ(said["bytes"], dir.Read("one.mp4").size());

    // Effects without sound to put them on are no reason to refuse the pictures.
    std::string silent = Content(clips + "cam_texts.mp4");
    silent.replace(silent.rfind("soun"), 4, "text");
    dir.Write("silent.mp4", silent);
    const TarnRun note =
        RunTarn({"export", dir.Path("silent.mp4"), dir.Path("pictures.mp4"), "--normalize", "1"});
    EXPECT_EQ(note.status, 0);
    EXPECT_NE(note.err.find("has no sound: the effects"), std::string::npos) << note.err;
}

TEST(ExportCommand, BatchesGoOnAndTellOfEveryInput) {
    TempDir dir;
    const std::string clips = TARN_TEST_DATA "/clips/";
    dir.Write("cam_roles.wav", "keep me");
    const std::vector<std::string> inputs = {dir.Path("none.mp4"), clips + "cam_texts.mp4",
                                             clips + "cam_roles.mp4", clips + "plain_hevc.mp4"};
    std::vector<std::string> arguments = {"export", "--to", dir.Path(""), "--wav"};
    arguments.insert(arguments.end(), inputs.begin(), inputs.end());
    const TarnRun words = RunTarn(arguments);
    EXPECT_EQ(words.status, 1);
    EXPECT_NE(words.out.find("2 of 4 clips saved"), std::string::npos) << words.out;
    EXPECT_NE(words.err.find("none.mp4: can't be opened: No such"), std::string::npos);
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

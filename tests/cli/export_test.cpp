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
        {"out behind the end", "noise_48k", {"--fade", "--out", "1:00:00"}, "noise-fade"},
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
    const std::string in = Golden("in/noise_48k.wav"), out = dir.Path("out.wav");
    const struct {
        const char* name;
        std::vector<std::string> arguments;
        int status;
        std::string says;
    } cases[] = {
        {"missing input", {dir.Path("none.wav"), out}, 1, "none.wav: can't be opened: No such"},
        {"folder", {dir.Path(""), out}, 1, "Is a directory"},
        {"device", {"/dev/zero", out}, 1, "/dev/zero: not an ordinary file"},
        {"wrong format", {Golden("in/fmt18.wav"), out}, 1, "fmt18.wav: not a WAV file of 16-bit"},
        {"neither sound nor movie", {dir.Path("there.wav"), out}, 1, "there.wav: not an MP4 file"},
        {"existing output", {in, dir.Path("there.wav")}, 1, "there.wav: already exists"},
        {"output is the input", {in, in}, 1, "the output is the input itself"},
        {"folder that is missing", {in, dir.Path("no/out.wav")}, 1, "no/out.wav: can't be written"},
        {"long path", {in, dir.Path(std::string(250, 'n') + ".wav")}, 1, "256 characters"},
        {"other extension",
         {in, dir.Path("out.mp3")},
         1,
         "out.mp3: an output is an .mp4 or a .wav"},
        {"in behind the end", {in, out, "--in", "0:01"}, 1, "0:00:01.000 is not before the end"},
        {"in behind out", {in, out, "--in", "9", "--out", "9"}, 2, "must lie before --out"},
        {"no output", {in}, 2, "give an input and an output"},
        {"WAV as a movie", {in, dir.Path("out.mp4")}, 1, "out.mp4: a WAV file can only"},
        {"batch into no folder", {in, "--to", dir.Path("no")}, 1, "no: is not a folder"},
        {"unknown option", {in, out, "--loud"}, 2, "--loud"},
        {"no time", {in, out, "--in", "1:75"}, 2, "'1:75' is no time"},
        {"bass", {in, out, "--bass", "101"}, 2, "not in range -100 to 100"},
        {"treble", {in, out, "--treble", "5.5"}, 2, "--treble"},
        {"reverb", {in, out, "--reverb", "10"}, 2, "10 is none of: off, room-low"},
        {"normalize", {in, out, "--normalize", "-9dB"}, 2, "-9dB is none of"},
        {"peak", {in, out, "--peak", "nan"}, 2, "between 0 and 1"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<std::string> arguments = {"export"};
        arguments.insert(arguments.end(), c.arguments.begin(), c.arguments.end());
        const TarnRun run = RunTarn(arguments);
        EXPECT_EQ(run.status, c.status);
        EXPECT_NE((run.err + run.out).find(c.says), std::string::npos) << run.err;
        if (c.status == 1) {
            EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1);
        }
        EXPECT_EQ(dir.FileCount(), 1u);
        EXPECT_EQ(dir.Read("there.wav"), "keep me");
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

TEST(ExportCommand, SavesMoviesOneByOneAndAsABatch) {
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

    // One bad clip does not stop the others; what is there is not replaced.
    const TarnRun batch = RunTarn({"export", clips + "cam_texts.mp4", clips + "plain_hevc.mp4",
                                   clips + "cam_roles.mp4", clips + "cam_texts.mp4", "--to",
                                   dir.Path(""), "--wav", "--jobs", "1"});
    EXPECT_EQ(batch.status, 1);
    EXPECT_NE(batch.out.find("3 of 4 clips saved"), std::string::npos) << batch.out;
    EXPECT_NE(batch.err.find("cam_texts.wav: already exists"), std::string::npos) << batch.err;
    EXPECT_EQ(dir.FileCount(), 6u);
}

}  // namespace
}  // namespace tarn

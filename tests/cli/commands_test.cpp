// What every reading command answers on every clip, against the answers in tests/data/commands.
#include <gtest/gtest.h>
#include <png.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>

#include "cli/run_tarn.h"
#include "support/temp_dir.h"
#include "support/wave_builder.h"

namespace tarn {
namespace {

using Json = nlohmann::ordered_json;

const std::string kData = TARN_TEST_DATA "/";
constexpr size_t kLineRoom = 100, kLongList = 1200;  // characters

std::string Digest(const std::string& text) {  // FNV-1a
    uint64_t hash = 0xCBF29CE484222325;
    for (const char c : text)
        hash = (hash ^ static_cast<uint8_t>(c)) * 0x100000001B3;
    std::ostringstream hex;
    hex << std::hex << hash;
    return hex.str();
}

// A long list is told by its length, its digest and its ends.
Json Shortened(const Json& full) {
    const bool list = full.is_array() && full.size() > 2 && full.dump().size() > kLongList;
    if (list)
        return {{"count", full.size()},
                {"digest", Digest(full.dump())},
                {"first", Shortened(full.front())},
                {"last", Shortened(full.back())}};
    if (!full.is_structured()) return full;
    Json result = full;
    for (Json& part : result)
        part = Shortened(part);
    return result;
}

// What fits on a line stands on one.
std::string Pretty(const Json& json, const std::string& indent = "\n") {
    const std::string line = json.dump();
    if (!json.is_structured() || line.size() + indent.size() <= kLineRoom) return line;
    std::string text;
    for (const auto& [key, part] : json.items()) {
        text += (text.empty() ? "" : ",") + indent + " ";
        if (json.is_object()) text += Json(key).dump() + ": ";
        text += Pretty(part, indent + " ");
    }
    return (json.is_object() ? "{" : "[") + text + indent + (json.is_object() ? "}" : "]");
}

Json Lines(const std::string& text) {
    Json lines = Json::array();
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

std::vector<std::string> Words(const std::string& text) {
    std::istringstream words(text);
    return {std::istream_iterator<std::string>(words), {}};
}

// "info --json" of clips/cam_texts.mp4, without the place where the test data lie.
Json Answer(const std::string& clip, const std::string& command) {
    std::vector<std::string> arguments = Words(command);
    arguments.insert(arguments.begin() + 1, kData + clip);
    TarnRun run = RunTarn(arguments);
    for (size_t at; (at = run.out.find(kData)) != std::string::npos;)
        run.out.erase(at, kData.size());
    EXPECT_TRUE(run.status == 0 || !run.err.empty()) << "failed without a word";

    const bool document = command.find("--json") != std::string::npos && !run.out.empty();
    const Json out = Shortened(document ? Json::parse(run.out, nullptr, false) : Lines(run.out));
    EXPECT_FALSE(out.is_discarded()) << run.out;
    return run.status == 0 ? out : Json{{"status", run.status}, {"out", out}};
}

// With TARN_RENEW set the answers are replaced; such a run never passes.
void ExpectStored(const std::string& clip, const std::vector<std::string>& commands) {
    SCOPED_TRACE(clip);
    const std::string path =
        kData + "commands/" + std::filesystem::path(clip).stem().string() + ".json";
    std::ifstream in(path);
    const Json stored = in ? Json::parse(in, nullptr, false) : Json::object();
    ASSERT_FALSE(stored.is_discarded());
    Json answers = Json::object();
    for (const std::string& command : commands) {
        answers[command] = Answer(clip, command);
        const Json expected = stored.value(command, Json());
        if (std::getenv("TARN_RENEW")) continue;
        EXPECT_EQ(Pretty(answers[command]), Pretty(expected)) << command;
    }
    if (!std::getenv("TARN_RENEW")) return;
    ASSERT_FALSE(std::getenv("CI")) << "answers are not renewed where they are tested";
    std::ofstream(path) << Pretty(answers) << '\n';
    ADD_FAILURE() << "renewed: read what changed, then run again without TARN_RENEW";
}

TEST(Commands, AnswerOnEveryClip) {
    size_t clips = 0;
    for (const auto& entry : std::filesystem::directory_iterator(kData + "clips")) {
        if (entry.path().extension() != ".mp4") continue;
        ++clips;
        ExpectStored(
            "clips/" + entry.path().filename().string(),
            {"check", "tree", "tree --json", "info", "info --json", "samples --track video --json",
             "samples --track audio --json", "samples --track 1 --from 5 --count 3",
             "samples --track 2 --json --from 2 --count 2", "samples --track video --at 0:00:01.5",
             "samples --track audio --at 1500 --json", "samples --track video --next-sync 2",
             "samples --track audio --next-sync 4294967295 --json", "peaks --columns 3",
             "peaks --columns 4 --json", "peaks --columns 2 --raw --json",
             "peaks --columns 3 --compressor high --json",
             "peaks --columns 3 --normalize -3dB --json"});
    }
    EXPECT_EQ(clips, 12u);
}

TEST(Commands, AnswerOnBrokenFiles) {
    for (const char* name : {"asz_sample2_zero", "count_stsz_7fffffff", "eight", "frag_moof_tail",
                             "mehd_7", "no_moov", "no_stts", "prof_bad_entry", "size_ftyp_ffffffff",
                             "stss_zero", "text", "trunc_front_01", "ts0_video", "uuid_top_lici"}) {
        ExpectStored("broken/" + std::string(name) + ".mp4",
                     {"check", "tree", "tree --json", "info --json",
                      "samples --track video --from 2 --count 2 --json",
                      "samples --track audio --from 2 --count 1", "peaks --columns 2 --json"});
    }
    ExpectStored("hurt/cut_short.mp4", {"check", "info --json", "peaks --columns 2 --json"});
}

TEST(Commands, AnswerOnWaveFiles) {
    for (const char* name : {"noise_48k", "fmt18"})
        ExpectStored("golden/in/" + std::string(name) + ".wav",
                     {"check", "peaks --columns 2 --json", "tree", "info"});
}

TEST(Commands, ListEveryFileAndWhatFailedInIt) {
    const std::string clip = kData + "clips/cam_roles.mp4", hurt = kData + "broken/count_aco_0.mp4";
    const TarnRun info = RunTarn({"info", clip, "none.mp4", hurt, "--json"});
    EXPECT_EQ(info.status, 1);
    const Json list = Json::parse(info.out);
    ASSERT_EQ(list.size(), 3u);
    EXPECT_EQ(list[0]["path"], clip);
    EXPECT_EQ(list[1], (Json{{"path", "none.mp4"},
                             {"error",
                              {{"code", "CANT_OPEN"},
                               {"side", "source"},
                               {"file", "none.mp4"},
                               {"text", "can't be opened: No such file or directory"}}}}));
    EXPECT_EQ(list[2]["path"], hurt);

    // A failure among the rows is the last of them.
    const TarnRun samples = RunTarn({"samples", hurt, "--track", "2", "--json"});
    EXPECT_EQ(samples.status, 1);
    const Json rows = Json::parse(samples.out);
    EXPECT_EQ(rows.back()["error"]["code"], "DAMAGED_SAMPLE");
    EXPECT_EQ(samples.err, "tarn: " + hurt + ": sample 1 is damaged\n");
}

TEST(Commands, StartLightAndSayWhenNobodyCanHearThem) {
    const std::string tarn = "'" TARN_BINARY "'", clip = kData + "clips/cam_roles.mp4";
    EXPECT_NE(std::system(("ldd " + tarn + " | grep -q libavcodec").c_str()), 0);
    const TempDir dir;
    for (const std::string words : {"info --json", "samples", "tree", "peaks --raw --json"}) {
        const std::string command = tarn + " " + words + " '" + clip + "' > /dev/full 2> '";
        const int status = std::system((command + dir.Path("err") + "'").c_str());
        EXPECT_EQ(WEXITSTATUS(status), 1) << words;
        EXPECT_EQ(dir.Read("err"),
                  "tarn: standard output: can't be written: No space left on device\n");
    }
    EXPECT_EQ(RunTarn({"samples", clip}).out, RunTarn({"samples", clip, "--track", "video"}).out);
}

TEST(Commands, TellHowTheyAreUsed) {
    const TarnRun help = RunTarn({"--help"});
    EXPECT_EQ(help.status, 0);
    for (const char* command : {"check", "export", "info", "peaks", "samples", "tree"}) {
        EXPECT_NE(help.out.find(std::string("\n  ") + command + " "), std::string::npos) << command;
        EXPECT_EQ(RunTarn({command, "--help"}).status, 0) << command;
        EXPECT_EQ(RunTarn({command}).status, 2) << command;
    }
    const TarnRun version = RunTarn({"--version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.out, "tarn " TARN_VERSION "\n");

    const std::pair<const char*, const char*> wrong[] = {
        {"", "subcommand is required"},
        {"--json info a.mp4", "not expected: --json"},
        {"export a.mp4 b.wav --verify", "--verify: means nothing"},
        {"export a.mp4 --to . --wav --verify", "--verify: means nothing"},
        {"samples a.mp4 --track text", "'text' is neither video, audio"},
        {"samples a.mp4 --track 1x", "'1x' is neither video, audio"},
        {"samples a.mp4 --track 1 --from 0", "--from: Value 0 not in range"},
        {"samples a.mp4 --track 1 --at 1:75", "'1:75' is no time"},
        {"samples a.mp4 --track 1 --at 1 --next-sync 1", "--at excludes --next-sync"},
        {"peaks a.mp4 --columns 0", "--columns"},
        {"peaks a.mp4 --normalize 4", "--normalize"},
        {"export a.wav", "give an input and an output"},
        {"export a.wav b.wav --in 9 --out 9", "must lie before --out"},
        {"export a.wav b.wav --in 1:75", "'1:75' is no time"},
        {"export a.wav b.wav --bass 101", "not in range -100 to 100"},
        {"export a.wav b.wav --reverb 10", "10 is none of: off, room-low"},
        {"export a.wav b.wav --normalize -9dB", "-9dB is none of"},
        {"export a.wav b.wav --peak nan", "between 0 and 1"},
    };
    for (const auto& [words, says] : wrong) {
        const TarnRun run = RunTarn(Words(words));
        EXPECT_EQ(run.status, 2) << words;
        EXPECT_EQ(run.out, "");
        EXPECT_NE(run.err.find(says), std::string::npos) << run.err;
        EXPECT_LE(std::count(run.err.begin(), run.err.end(), '\n'), 2);
        EXPECT_NE(run.err.find("\nsee tarn "), std::string::npos) << run.err;
    }
}

TEST(Commands, SayWhatIsWrong) {
    const TempDir dir;
    dir.Write("there.wav", "keep me");
    dir.Write("there.mp4", "");
    dir.Write("riff.bin", "RIFF");
    const auto at = [&](const std::string& name) { return dir.Path(name); };
    const std::string in = kData + "golden/in/noise_48k.wav", clip = kData + "clips/cam_texts.mp4",
                      fmt18 = kData + "golden/in/fmt18.wav", out = at("out.wav"),
                      movie = at("out.mp4"), wave = at("there.wav"), empty = at("there.mp4"),
                      none = at("none.wav"), no_wave = at("no/a.wav"), no_movie = at("no/a.mp4"),
                      no_png = at("no/a.png"), riff = at("riff.bin"), mp3 = at("a.mp3"),
                      longest = at(std::string(250, 'n') + ".wav");
    const std::string s = "source", t = "target";
    using Text = std::string;
    const std::tuple<std::vector<Text>, Text, Text, Text, Text> cases[] = {
        {{"peaks", none}, "CANT_OPEN", s, none, "No such file"},
        {{"peaks", riff}, "NOT_MOVIE_OR_WAVE", s, riff, "neither"},
        {{"peaks", clip, "--png", no_png}, "CANT_WRITE", t, no_png, "can't be written: No such"},
        {{"export", none, out}, "CANT_OPEN", s, none, "can't be opened: No such"},
        {{"export", at(""), out}, "CANT_OPEN", s, at(""), "Is a directory"},
        {{"export", "/dev/zero", out}, "NOT_A_FILE", s, "/dev/zero", "not an ordinary file"},
        {{"export", fmt18, out}, "WAVE_FORMAT", s, fmt18, "16-bit"},
        {{"export", wave, out}, "NOT_MOVIE_OR_WAVE", s, wave, "neither"},
        {{"export", empty, movie}, "EMPTY_FILE", s, empty, "is empty"},
        {{"export", in, wave}, "EXISTS", t, wave, "already exists"},
        {{"export", clip, wave}, "EXISTS", t, wave, "already exists"},
        {{"export", clip, empty}, "EXISTS", t, empty, "exists"},
        {{"export", in, in}, "SAME_FILE", t, in, "the output is the input itself"},
        {{"export", in, no_wave}, "CANT_WRITE", t, no_wave, "No such"},
        {{"export", clip, no_movie}, "CANT_WRITE", t, no_movie, "No such"},
        {{"export", in, longest}, "LONG_PATH", t, longest, "256 characters"},
        {{"export", in, mp3}, "NOT_MOVIE_OR_WAVE", t, mp3, "neither"},
        {{"export", in, out, "--in=1000"}, "IN_PAST_END_AT", s, in, "0:00:01.000 is not before"},
        {{"export", clip, out, "--in=0:09"}, "IN_PAST_END", s, clip, "after the end, 0:00:02"},
        {{"export", in, movie}, "WAVE_AS_MOVIE", t, movie, "can only"},
        {{"export", in, "--to", at("no")}, "NOT_A_FOLDER", t, at("no"), "not a folder"},
        {{"export", in, "--to", longest + "nn"},
         "CANT_WRITE",
         t,
         longest + "nn",
         "File name too long"},
    };
    for (auto [arguments, code, side, file, text] : cases) {
        SCOPED_TRACE(testing::PrintToString(arguments));
        arguments.emplace_back("--json");
        const TarnRun run = RunTarn(arguments);
        EXPECT_EQ(run.status, 1);
        const Json error = Json::parse(run.out, nullptr, false)["error"];
        EXPECT_EQ(error["code"], code);
        EXPECT_EQ(error["side"], side);
        EXPECT_EQ(error["file"], file);
        EXPECT_NE(error.value("text", "").find(text), std::string::npos) << error;
        EXPECT_EQ(run.err, "tarn: " + file + ": " + error.value("text", "") + "\n");
        EXPECT_EQ(dir.FileCount(), 3u);
        EXPECT_EQ(dir.Read("there.wav"), "keep me");
    }
}

// Content decides, not the name; and every command has the same reason for the same file.
TEST(Commands, TakeAFileForWhatIsInIt) {
    const TempDir dir;
    const auto run = [&](const std::string& command, const std::string& name) {
        std::filesystem::remove(dir.Path("out.wav"));
        if (command == "export")
            return RunTarn(
                {command, dir.Path(name), dir.Path("out.wav"), "--normalize=1", "--json"});
        if (command == "peaks") return RunTarn({command, dir.Path(name), "--json"});
        return RunTarn({command, dir.Path(name)});
    };
    const std::string sound(8000, '\1');
    std::ifstream clip(kData + "clips/cam_texts.mp4", std::ios::binary);
    const std::string movie{std::istreambuf_iterator<char>(clip), {}};
    for (const auto& [name, content] : {std::pair{"movie.wav", movie},
                                        {"movie.mov", movie},
                                        {"wave.mp4", WaveFile({}, sound)},
                                        {"wave", WaveFile({.claimed = 9000}, sound)}}) {
        dir.Write(name, content);
        for (const char* command : {"check", "peaks", "export"})
            EXPECT_EQ(run(command, name).status, 0) << command << " " << name;
    }
    EXPECT_EQ(run("check", "wave").out, "3 usable: the file ends before its sound does\n");
    const TarnRun cut = run("export", "wave");
    EXPECT_EQ(Json::parse(cut.out)["source_ends_early_ms"], 1785);
    EXPECT_NE(cut.err.find("what is there was saved, up to 0:00:01.785"), std::string::npos);
    EXPECT_EQ(dir.Read("out.wav").size(), 8044u);

    const std::tuple<const char*, std::string, Json> refused[] = {
        {"a.wav", "", "EMPTY_FILE"},
        {"b.wav", WaveFile({.rate = 0}, sound), "WAVE_RATE"},
        {"c.wav", WaveFile({.rate = 999}, sound), "WAVE_RATE"},
        {"d.wav", WaveFile({.rate = 384001}, sound), "WAVE_RATE"},
        {"e.wav", WaveFile({.channels = 1}, sound), "SOUND_MONO"},
        {"f.mp4", WaveFile({.bits = 24}, sound), "SOUND_BITS"},
    };
    for (const auto& [name, content, code] : refused) {
        dir.Write(name, content);
        const TarnRun saved = run("export", name);
        EXPECT_EQ(Json::parse(saved.out)["error"]["code"], code) << name;
        for (const char* command : {"check", "peaks"})
            EXPECT_EQ(run(command, name).err, saved.err) << command;
    }
    // As a save refuses one of 4 GiB, whose sound may be short.
    std::filesystem::resize_file(dir.Path("wave.mp4"), uint64_t{1} << 32);
    EXPECT_EQ(run("check", "wave.mp4").out,
              "2 not usable: WAV files of 4 GiB or more can't be treated\n");
}

TEST(Commands, DrawAPictureOnce) {
    TempDir dir;
    // 1202 frames, each a point of the waveform: left half up and full down in turn, right silent.
    std::vector<int> tone;
    for (int i = 0; i < 1202; i += 2)
        tone.insert(tone.end(), {0x4000, 0, -0x8000, 0});
    dir.Write("in.wav", WaveFile({}, WaveSound(tone)));
    const std::string path = dir.Path("wave.png");
    const TarnRun run = RunTarn({"peaks", dir.Path("in.wav"), "--columns", "640", "--png", path});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, "");

    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    ASSERT_TRUE(png_image_begin_read_from_file(&image, path.c_str()));
    image.format = PNG_FORMAT_RGB;
    ASSERT_EQ(image.width, 640u);
    ASSERT_EQ(image.height, 434u);
    std::vector<uint8_t> rgb(PNG_IMAGE_SIZE(image));
    ASSERT_TRUE(png_image_finish_read(&image, nullptr, rgb.data(), 0, nullptr));

    constexpr int kBack = 0x141519, kLane = 0x1B1D23, kPeak = 0xFFB866, kLoud = 0xC86A2B,
                  kGrid = 0x292C35, kText = 0x8C909C;
    // Margin, above the sound, half up; loudness ends, full down, below the sound; last column,
    // after it, silence; the grid at a fifth of a second, just before; label, colon, no label.
    const std::array<int, 3> pixels[] = {
        {15, 100, kBack},  {17, 60, kLane},  {16, 68, kPeak},     {16, 195, kLoud},
        {16, 199, kLoud},  {17, 203, kLane}, {16, 111, 0xB78955}, {623, 100, kPeak},
        {624, 100, kBack}, {20, 300, kLane}, {129, 210, kGrid},   {128, 210, kBack},
        {21, 413, kText},  {28, 414, kText}, {587, 413, kBack},
    };
    for (const auto& [x, y, colour] : pixels) {
        const uint8_t* at = rgb.data() + 3 * (y * 640 + x);
        EXPECT_EQ(at[0] << 16 | at[1] << 8 | at[2], colour) << x << " " << y;
    }
    const std::string drawn = dir.Read("wave.png");
    EXPECT_EQ(RunTarn({"peaks", dir.Path("in.wav"), "--png", path}).status, 1);
    EXPECT_TRUE(dir.Read("wave.png") == drawn);
    EXPECT_EQ(dir.FileCount(), 2u);
}

}  // namespace
}  // namespace tarn

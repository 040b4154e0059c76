#include "effects/wave_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "effects/wave_peak.h"
#include "support/temp_dir.h"
#include "support/wave_builder.h"

namespace tarn {
namespace {

// Rising samples.
std::string Sound(uint32_t frames) {
    std::string sound;
    for (uint32_t i = 0; i < frames; ++i)
        sound += Le(i % 30000, 2) + Le(1000, 2);
    return sound;
}

std::string Wave(uint32_t frames) {
    return WaveFile({.rate = 8000}, Sound(frames));
}

int Rewrite(const TempDir& dir, uint32_t start = 0, uint32_t end = 0) {
    return AMPEffectProcessWaveFile(dir.Path("out.wav"), dir.Path("in.wav"), {}, start, end,
                                    nullptr);
}

TEST(WaveFile, WritesTheChosenRange) {
    TempDir dir;
    const uint32_t cases[][4] = {
        // in and out in ms; the first frame and their number at 8 kHz
        {0, 0, 0, 16001},          {500, 0, 4000, 12001},  {0, 1, 0, 8},
        {1500, 2000, 12000, 4000}, {1500, 1500, 12000, 0},
    };
    dir.Write("in.wav",
              WaveFile({.rate = 8000, .chunks = "LIST" + Le(3) + "xyz"}, Sound(16001)) + "LIST");
    for (const auto& [start, end, first, frames] : cases) {
        ASSERT_EQ(Rewrite(dir, start, end), kWaveDone);
        EXPECT_TRUE(dir.Read("out.wav") ==
                    WaveFile({.rate = 8000}, Sound(16001).substr(4 * first, 4 * frames)))
            << start;
    }
}

TEST(WaveFile, RefusesWhatItCannotTreat) {
    using enum ReasonCode;
    const std::tuple<const char*, std::string, uint32_t, uint32_t, ReasonCode> cases[] = {
        {"empty file", "", 0, 0, kEmptyFile},
        {"mono", WaveFile({.channels = 1}, Sound(2)), 0, 0, kSoundMono},
        {"24 bits", WaveFile({.bits = 24}, Sound(3)), 0, 0, kSoundBits},
        {"no sound", Wave(1).substr(0, 36) + "LIST" + Le(UINT32_MAX), 0, 0, kWaveNoSound},
        {"half a chunk head", Wave(1).substr(0, 41), 0, 0, kWaveNoSound},
        {"rate too low", WaveFile({.rate = 999}, Sound(2)), 0, 0, kWaveRate},
        {"rate too high", WaveFile({.rate = UINT32_MAX}, Sound(2)), 0, 0, kWaveRate},
        {"rate just too high", WaveFile({.rate = 384001}, Sound(2)), 0, 0, kWaveRate},
        {"start at the end", Wave(8000), 1000, 0, kWaveRange},
        {"end after the sound", Wave(8000), 0, 1001, kWaveRange},
        {"end before start", Wave(8000), 500, 400, kWaveRange},
        {"largest points", Wave(8000), UINT32_MAX, UINT32_MAX, kWaveRange},
    };
    for (const auto& [name, content, start, end, code] : cases) {
        SCOPED_TRACE(name);
        TempDir dir;
        const std::string in = dir.Path("in.wav");
        dir.Write("in.wav", content);
        AMPWaveSource source;
        Reason reason = AMPOpenWaveSource(in, &source);
        if (!reason)
            reason = AMPRewriteWaveFile(&source, {dir.Path("out.wav"), {}, start, end}, nullptr);
        EXPECT_EQ(reason.code, code);
        EXPECT_EQ(reason.side, ReasonSide::kSource);
        EXPECT_EQ(reason.file, in);
        EXPECT_EQ(Rewrite(dir, start, end), kWaveReadFailed);
        EXPECT_EQ(dir.FileCount(), 1u);
    }
    TempDir dir;
    EXPECT_EQ(Rewrite(dir), kWaveSourceFailed);
    // 4 GiB and more, as a hole.
    dir.Write("in.wav", Wave(50));
    std::filesystem::resize_file(dir.Path("in.wav"), uint64_t{1} << 32);
    EXPECT_EQ(Rewrite(dir, 0, 6), kWaveReadFailed);
}

// What is there of a file that ends before its sound does.
TEST(WaveFile, EndsWithItsFile) {
    for (const uint32_t claimed : {400u, 0xFFFFFFF0u}) {
        TempDir dir;
        dir.Write("in.wav", WaveFile({.rate = 8000, .claimed = claimed}, Sound(50) + "hal"));
        EXPECT_EQ(Rewrite(dir), kWaveDone);
        EXPECT_TRUE(dir.Read("out.wav") == WaveFile({.rate = 8000}, Sound(50)));
        EXPECT_EQ(Rewrite(dir, 0, 7), kWaveReadFailed) << "after the end";
    }
}

// Another program cuts, writes over or removes the source while it is read.
TEST(WaveFile, TellsOfASourceThatChanges) {
    for (const std::string what : {"cut", "written", "removed"}) {
        TempDir dir;
        const std::string in = dir.Path("in.wav");
        dir.Write("in.wav", Wave(600000));
        const auto change = [&](uint32_t block, uint32_t) {
            if (block != 2) return true;
            if (what == "cut") std::filesystem::resize_file(in, 2200000);
            if (what == "removed") std::filesystem::remove(in);
            const timespec old[2] = {{1000, 0}, {1000, 0}};
            if (what == "written") utimensat(AT_FDCWD, in.c_str(), old, 0);
            return true;
        };
        AMPWaveSource source;
        ASSERT_FALSE(AMPOpenWaveSource(in, &source));
        const Reason reason = AMPRewriteWaveFile(&source, {.target = dir.Path("out.wav")}, change);
        EXPECT_EQ(reason, (Reason{ReasonCode::kChanged, ReasonSide::kSource, in, {}})) << what;
        EXPECT_FALSE(std::filesystem::exists(dir.Path("out.wav")));
    }
}

TEST(WaveFile, KeepsSourceAndTargetWholeInEveryFailure) {
    TempDir dir;
    const std::string source = Wave(600000), old = "what was there before";
    dir.Write("in.wav", source);
    dir.Write("out.wav", old);
    const auto untouched = [&](size_t files) {
        return dir.Read("in.wav") == source && dir.Read("out.wav") == old &&
               dir.FileCount() == files;
    };
    const std::string in = dir.Path("in.wav"), out = dir.Path("out.wav");
    const auto expect_failure = [&](const std::string& target, ReasonCode code, size_t files) {
        AMPWaveSource opened;
        ASSERT_FALSE(AMPOpenWaveSource(in, &opened));
        const Reason reason =
            AMPRewriteWaveFile(&opened, {.target = target, .replace_target = false}, nullptr);
        EXPECT_EQ(reason.code, code);
        EXPECT_EQ(reason.side, ReasonSide::kTarget);
        EXPECT_EQ(reason.file, target);
        EXPECT_TRUE(untouched(files));
    };
    for (const uint32_t last : {1u, 2u}) {
        EXPECT_EQ(AMPEffectProcessWaveFile(out, in, {}, 0, 0,
                                           [&](uint32_t block, uint32_t) { return block < last; }),
                  kWaveCancelled);
        EXPECT_TRUE(untouched(2));
    }
    using enum ReasonCode;
    expect_failure(out, kExists, 2);
    expect_failure(in, kSameFile, 2);
    expect_failure(dir.Path("none/out.wav"), kCantWrite, 2);
    expect_failure(dir.Path(std::string(257 - dir.Path("").size(), 'n')), kLongPath, 2);
    ASSERT_EQ(link(in.c_str(), dir.Path("same.wav").c_str()), 0);
    expect_failure(dir.Path("same.wav"), kSameFile, 3);

    // A full disk, as a limit on the size of a file.
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    const rlimit small{1500000, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    const int result = Rewrite(dir);
    expect_failure(dir.Path("new.wav"), kNoRoom, 3);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
    std::signal(SIGXFSZ, handler);
    EXPECT_EQ(result, kWaveWriteFailed);

    EXPECT_EQ(Rewrite(dir), kWaveDone);
    EXPECT_TRUE(dir.Read("in.wav") == source);
    EXPECT_EQ(dir.Read("out.wav").size(), source.size());
}

// Three full blocks, told as four; the third begins at 65.536 s, the fade-out at 94.304 s.
TEST(WaveFile, FadesAcrossItsBlocks) {
    TempDir dir;
    std::string sound, calls;
    for (int i = 0; i < 786432; ++i)
        sound += Le(16000, 2) + Le(static_cast<uint32_t>(-16000), 2);
    dir.Write("in.wav", WaveFile({.rate = 8000}, sound));
    const auto note = [&](uint32_t block, uint32_t blocks) {
        calls += std::to_string(block) + "/" + std::to_string(blocks) + " ";
        return !std::filesystem::exists(dir.Path("out.wav"));
    };
    ASSERT_EQ(
        AMPEffectProcessWaveFile(dir.Path("out.wav"), dir.Path("in.wav"), {.fade = 1}, 0, 0, note),
        kWaveDone);
    EXPECT_EQ(calls, "1/4 2/4 3/4 ");
    const std::string output = dir.Read("out.wav");
    const uint32_t expected[][2] = {{7999, 0},       {16000, 1000},  {24000, 16000},
                                    {754000, 16000}, {766432, 1000}, {778432, 0}};
    for (const auto& [frame, sample] : expected)
        EXPECT_EQ(output.substr(44 + 4 * frame, 4), Le(sample, 2) + Le(-sample, 2)) << frame;
}

TEST(WavePeak, IsTheLargestPointOfTheOverview) {
    // At 1120 Hz each frame is a point. Left and right in turn.
    const std::pair<std::vector<int>, float> cases[] = {
        {{0, 0, 0, 0}, 0},
        {{0, 64 * 256 - 128, 0, 0}, 0.5f},
        {{0, 64 * 256 - 129, 0, 0}, 63 / 128.0f},
        {{-32512, 0, 100, 0}, 127 / 128.0f},
        {{-32768, 0, 256, 0, 512, 0}, 2 / 128.0f},  // full scale is forgotten
        {{256, 0, 32767, 0}, -1},
        {{300, -32768, 0, 0}, 1 / 128.0f},  // right before left
    };
    const TempDir dir;
    for (const auto& [samples, expected] : cases) {
        dir.Write("in.wav", WaveFile({}, WaveSound(samples)));
        float peak = 9;
        AMPWaveSource source;
        ASSERT_FALSE(AMPOpenWaveSource(dir.Path("in.wav"), &source));
        EXPECT_FALSE(AMPMeasureWavePeak(&source, &peak));
        EXPECT_EQ(peak, expected) << testing::PrintToString(samples);
    }
}

}  // namespace
}  // namespace tarn

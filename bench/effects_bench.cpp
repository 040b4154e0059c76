// effects_bench.cpp - the effects with everything on, against SoX on the same file in the same run.
//
// Prints one line a figure. Runs alternate and the fastest of each counts, so that a busy moment of
// the machine doesn't decide.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "effects/effect_chain.h"

namespace {

using namespace tarn;
using Sound = std::vector<int16_t>;

constexpr uint32_t kRate = 48000;
constexpr uint32_t kBlock = 262144;  // frames, as the rewriting of WAV files has them
constexpr int kRounds = 5;

double Seconds(const std::function<void()>& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Chords with a beat, some noise, a loud passage every few seconds.
Sound MakeMusic(uint32_t seconds) {
    std::mt19937 random(1);
    Sound sound(size_t{2} * kRate * seconds);
    const size_t period = size_t{2} * kRate * 8;  // made once, then repeated
    for (size_t i = 0; i < std::min(period, sound.size()); i += 2) {
        const size_t frame = i / 2;
        const double t = static_cast<double>(frame) / kRate;
        const double beat = 0.15 + 0.85 * std::exp(-4 * std::fmod(t, 0.5));
        const double noise = static_cast<double>(random() % 2001) - 1000.0;
        const double chord = std::sin(2 * M_PI * 110 * t) + std::sin(2 * M_PI * 277.2 * t) +
                             0.5 * std::sin(2 * M_PI * 1318.5 * t);
        sound[i] = static_cast<int16_t>(beat * (11000 * chord + noise));
        sound[i + 1] = static_cast<int16_t>(beat * (9000 * chord - noise));
    }
    for (size_t i = period; i < sound.size(); ++i)
        sound[i] = sound[i - period];
    return sound;
}

AMPEffectSettings Everything() {
    AMPEffectSettings s;
    s.bass = 60;
    s.treble = 35;
    s.reverb = 8;
    s.compressor = 4;
    s.normalize = 1;
    s.fade = 1;
    s.peak = 0.8f;
    return s;
}

double TimeChain(const AMPEffectSettings& settings, const Sound& input, Sound* output) {
    const AMPEffectChainPtr chain(AMPEffectCreate(kRate));
    const auto frames = static_cast<uint32_t>(input.size() / 2);
    if (!chain || !AMPEffectSetParameters(chain.get(), settings)) std::abort();
    AMPEffectSetRange(chain.get(), 0, static_cast<uint32_t>(uint64_t{frames} * 1000 / kRate));
    return Seconds([&] {
        for (uint32_t done = 0; done < frames;) {
            const uint32_t size = std::min(kBlock, frames - done);
            AMPEffectProcess(chain.get(), output->data() + size_t{2} * done,
                             input.data() + size_t{2} * done, size,
                             static_cast<uint32_t>(uint64_t{done} * 1000 / kRate));
            done += size;
        }
    });
}

void WriteWave(const std::string& path, const Sound& sound) {
    const auto size = static_cast<uint32_t>(sound.size() * 2);
    const uint32_t words[] = {0x46464952, size + 36, 0x45564157,  // RIFF, WAVE
                              0x20746D66, 16,        0x20001,     // fmt
                              kRate,      kRate * 4, 0x100004,    // 4 bytes a frame, 16 bits
                              0x61746164, size};                  // data
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(words), sizeof words);
    file.write(reinterpret_cast<const char*>(sound.data()), size);
}

double TimeCommand(const std::string& command) {
    return Seconds([&] {
        if (std::system((command + " 2>/dev/null").c_str()) != 0)
            std::printf("  failed: %s\n", command.c_str());
    });
}

void CompareWithSox(const Sound& music) {
    if (std::system("sox --version >/dev/null 2>&1") != 0) {
        std::printf("no sox here, no comparison\n");
        return;
    }
    std::string folder = std::filesystem::temp_directory_path() / "tarn-bench-XXXXXX";
    if (!mkdtemp(folder.data())) return;
    const std::string in = folder + "/in.wav", out = folder + "/out.wav";
    WriteWave(in, music);
    const std::string files = ' ' + in + ' ' + out;
    std::string theirs = "sox" + files;
    theirs += " gain -6 bass 6 treble 4 reverb 50 compand 0.05,0.2 -60,-60,-12,-6,0,-3 0 -90 0.1";
    theirs += " gain -1 fade 3 " + std::to_string(music.size() / 2 / kRate) + " 4";
    std::string ours = TARN_BINARY " export" + files;
    ours += " --bass 60 --treble 35 --reverb hall-mid --compressor heavy --normalize 0dB --fade";
    double sox = std::numeric_limits<double>::max(), tarn = sox;
    for (int round = 0; round < kRounds; ++round) {
        sox = std::min(sox, TimeCommand(theirs));
        std::filesystem::remove(out);
        tarn = std::min(tarn, TimeCommand(ours));
        std::filesystem::remove(out);
    }
    std::filesystem::remove_all(folder);
    std::printf("sox, file to file                %8.3f s\n", sox);
    std::printf("tarn export, file to file        %8.3f s   sox / tarn %.1f\n", tarn, sox / tarn);
}

void CompareWithSilence(Sound* output) {
    const Sound music = MakeMusic(120);
    Sound silence = music;
    silence.resize(music.size() * 2);
    AMPEffectSettings settings = Everything();
    settings.fade = 0;
    settings.compressor = 0;  // does less for quiet sound
    output->resize(silence.size());
    double loud = std::numeric_limits<double>::max(), both = loud;
    for (int round = 0; round < kRounds; ++round) {
        loud = std::min(loud, TimeChain(settings, music, output));
        both = std::min(both, TimeChain(settings, silence, output));
    }
    std::printf("two minutes of music             %8.3f s\n", loud);
    std::printf("the silence of two after them    %8.3f s   silence / music %.2f\n", both - loud,
                (both - loud) / loud);
}

}  // namespace

int main() {
    const Sound music = MakeMusic(600);
    Sound output(music.size());
    std::printf(
        "10 minutes of 48 kHz stereo: bass, treble, hall, heavy compression, normalise, fade\n");
    double all = std::numeric_limits<double>::max();
    for (int round = 0; round < kRounds; ++round)
        all = std::min(all, TimeChain(Everything(), music, &output));
    std::printf("chain alone, in memory           %8.3f s   %.0f times real time\n", all,
                600 / all);
    CompareWithSox(music);
    CompareWithSilence(&output);
    return 0;
}

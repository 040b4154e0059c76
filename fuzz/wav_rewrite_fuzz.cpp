// wav_rewrite_fuzz.cpp - any bytes as a WAV file, with any settings and any range.
//
// The first bytes are a settings record and two times, the rest is the file. What is written must
// be as long as its header says, and nothing but source and target may lie in the folder.
#include <stdlib.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "effects/wave_file.h"
#include "effects/wave_peak.h"

namespace {

struct Folder {
    // In memory where that is possible: every output is synced.
    Folder() {
        const std::filesystem::path memory = "/dev/shm";
        std::error_code none;
        path =
            (std::filesystem::is_directory(memory, none) ? memory
                                                         : std::filesystem::temp_directory_path()) /
            "tarn-fuzz-XXXXXX";
        if (!mkdtemp(path.data())) abort();
    }
    ~Folder() { std::filesystem::remove_all(path); }
    std::string path;
};

void check(bool holds) {
    if (!holds) abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace tarn;
    static const Folder folder;
    const std::string source = folder.path + "/in.wav", target = folder.path + "/out.wav";
    AMPEffectSettings settings;
    uint32_t range[2];
    if (size < sizeof settings + sizeof range) return 0;
    std::memcpy(&settings, data, sizeof settings);
    std::memcpy(range, data + sizeof settings, sizeof range);
    data += sizeof settings + sizeof range, size -= sizeof settings + sizeof range;
    std::ofstream(source, std::ios::binary)
        .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));

    float peak = 0;
    if (!AMPMeasureWavePeak(source, &peak)) check(peak >= -1 && peak < 1);
    const int result =
        AMPEffectProcessWaveFile(target, source, settings, range[0], range[1], nullptr);
    check(result == kWaveDone || result == kWaveReadFailed);
    check(std::filesystem::exists(target) == (result == kWaveDone));
    if (result == kWaveDone) {
        std::ifstream written(target, std::ios::binary);
        char head[44];
        uint32_t bytes = 0;
        check(written.read(head, sizeof head).good());
        std::memcpy(&bytes, head + 40, sizeof bytes);
        check(std::filesystem::file_size(target) == bytes + sizeof head && bytes <= size);
        std::filesystem::remove(target);
    }
    for (const auto& entry : std::filesystem::directory_iterator(folder.path))
        check(entry.path().filename() == "in.wav");
    return 0;
}

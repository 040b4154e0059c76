// wav_rewrite_fuzz.cpp - any bytes as a WAV file, with any settings and any range.
//
// The first bytes are a settings record and two times, the rest is the file. What is written must
// be as long as its header says, and nothing but source and target may lie in the folder.
#include <cstring>
#include <filesystem>

#include "effects/wave_file.h"
#include "effects/wave_peak.h"
#include "fuzz_movie.h"
#include "support/temp_dir.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace tarn;
    constexpr size_t kHead = 44;
    static const TempDir folder;
    const std::string source = folder.Path("in.wav"), target = folder.Path("out.wav");
    AMPEffectSettings settings;
    uint32_t range[2];
    if (size < sizeof settings + sizeof range) return 0;
    std::memcpy(&settings, data, sizeof settings);
    std::memcpy(range, data + sizeof settings, sizeof range);
    data += sizeof settings + sizeof range, size -= sizeof settings + sizeof range;
    folder.Write("in.wav", {data, data + size});

    float peak = 0;
    AMPWaveSource wave;
    if (!AMPOpenWaveSource(source, &wave) && !AMPMeasureWavePeak(&wave, &peak))
        Check(peak >= -1 && peak < 1);
    const int result =
        AMPEffectProcessWaveFile(target, source, settings, range[0], range[1], nullptr);
    Check(result == kWaveDone || result == kWaveReadFailed);
    Check(std::filesystem::exists(target) == (result == kWaveDone));
    if (result == kWaveDone) {
        const std::string written = folder.Read("out.wav");
        uint32_t bytes = 0;
        Check(written.size() >= kHead);
        std::memcpy(&bytes, written.data() + kHead - sizeof bytes, sizeof bytes);
        Check(written.size() == bytes + kHead && bytes <= size);
        std::filesystem::remove(target);
    }
    Check(folder.FileCount() == 1);  // the source
    return 0;
}

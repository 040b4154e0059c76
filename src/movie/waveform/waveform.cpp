#include "movie/waveform/waveform.h"

#include "effects/wave_header.h"
#include "movie/waveform/wave_reader.h"
#include "movie/waveform/waveform_movie.h"

namespace tarn {

bool WFFileReader::Open(const std::string&, uint32_t) {
    return false;
}

std::unique_ptr<WFFileReader> WFFileReader::ForFile(const std::string& path) {
    XpFile file;
    bool is_wave = false;
    // A file that can't be opened is told by whoever opens it next.
    static_cast<void>(OpenAndLookForWave(path, &file, &is_wave));
    if (is_wave) return std::make_unique<WFWaveReader>();
    return std::make_unique<WFMP4Reader>();
}

std::unique_ptr<WFFileReader> WFFileReader::Create(const std::string& path,
                                                   uint32_t pointsPerSecond) {
    std::unique_ptr<WFFileReader> reader = ForFile(path);
    if (!reader->Open(path, pointsPerSecond)) reader.reset();
    return reader;
}

}  // namespace tarn

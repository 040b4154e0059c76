#include "movie/waveform/waveform.h"

#include <strings.h>

#include "movie/waveform/wave_reader.h"
#include "movie/waveform/waveform_movie.h"

namespace tarn {
namespace {

bool ends_with(const std::string& path, const char (&extension)[5]) {
    return path.size() >= 4 && strcasecmp(path.c_str() + path.size() - 4, extension) == 0;
}

}  // namespace

bool WFFileReader::Open(const std::string&, uint32_t) {
    return false;
}

std::unique_ptr<WFFileReader> WFFileReader::Create(const std::string& path,
                                                   uint32_t pointsPerSecond) {
    std::unique_ptr<WFFileReader> reader;
    if (ends_with(path, ".wav")) reader = std::make_unique<WFWaveReader>();
    if (ends_with(path, ".mp4")) reader = std::make_unique<WFMP4Reader>();
    if (reader && !reader->Open(path, pointsPerSecond)) reader.reset();
    return reader;
}

}  // namespace tarn

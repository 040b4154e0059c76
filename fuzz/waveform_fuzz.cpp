// Any bytes as a movie file: whatever is in it, the rows match, and they are no longer than the
// shortest coded frames could make them.
#include <cstdlib>

#include "movie/waveform/peaks.h"
#include "movie/waveform/waveform_movie.h"
#include "support/memory_path.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace tarn;
    const MemoryPath file(data, size);
    WFMP4Reader reader;
    if (!reader.Open(file.Path(), PeakSource::PointsPerSecond())) abort();
    const bool failed = reader.Fault() != WaveformFault::kNone;
    if (failed != static_cast<bool>(reader.GetReason())) abort();
    const bool empty =
        reader.Fault() == WaveformFault::kFile || reader.Fault() == WaveformFault::kNoSound;
    if (empty && reader.GetCount() != 0) abort();
    constexpr size_t kMostAByte = 313;  // 2048 frames of 7350 Hz in a sample of one byte
    if (reader.GetCount() > size * kMostAByte) abort();
    const auto peaks = PeakSource::Create(&reader, 10);
    if (peaks->GetRaw(0).size() != peaks->GetRaw(1).size()) abort();
    return 0;
}

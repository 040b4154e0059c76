// Any bytes as a WAV file: the rows match, and hold no more points than the file has bytes.
#include <cstdlib>

#include "movie/waveform/wave_reader.h"
#include "support/memory_path.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace tarn;
    const MemoryPath file(data, size);
    WFWaveReader reader;
    const bool opened = reader.Open(file.Path(), 1120);
    if (opened != (reader.Fault() == WaveformFault::kNone)) abort();
    if (opened == static_cast<bool>(reader.GetReason())) abort();
    if (reader.GetCount() > size || (!opened && reader.GetCount() != 0)) abort();
    const WaveformPoints points = reader.TakePoints();
    if (points.left.size() != points.right.size()) abort();
    return 0;
}

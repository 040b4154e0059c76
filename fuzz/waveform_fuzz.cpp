// Any bytes as a movie and as a WAV file: whatever is in it, the rows match, and they are no longer
// than the shortest coded frames, or the bytes of a WAV file, could make them.
#include "fuzz_movie.h"
#include "movie/waveform/peaks.h"
#include "movie/waveform/wave_reader.h"
#include "movie/waveform/waveform_movie.h"
#include "support/memory_path.h"

namespace {

using namespace tarn;

void Read(WFFileReader&& reader, const std::string& path, size_t most, bool always_opens) {
    const bool opened = reader.Open(path, PeakSource::PointsPerSecond());
    const WaveformFault fault = reader.Fault();
    Check(opened == (always_opens || fault == WaveformFault::kNone));
    Check((fault != WaveformFault::kNone) == static_cast<bool>(reader.GetReason()));
    if (!opened || fault == WaveformFault::kFile || fault == WaveformFault::kNoSound) most = 0;
    Check(reader.GetCount() <= most);
    const auto peaks = PeakSource::Create(&reader, 10);
    Check(peaks->GetRaw(0).size() == peaks->GetRaw(1).size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr size_t kMostAByte = 313;  // 2048 frames of 7350 Hz in a sample of one byte
    const MemoryPath file(data, size);
    Read(WFMP4Reader(), file.Path(), size * kMostAByte, true);
    Read(WFWaveReader(), file.Path(), size, false);
    return 0;
}

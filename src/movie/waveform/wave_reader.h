// wave_reader.h - the waveform of a WAV file of two channels at 16 bits.
#pragma once

#include <string>

#include "effects/wave_header.h"
#include "movie/waveform/waveform.h"

namespace tarn {

class WFWaveReader final : public WFFileReader {
public:
    // False for any other file and where a read fails. The sound that is in the file counts, not
    // the length that its header claims.
    bool Open(const std::string& path, uint32_t pointsPerSecond) override;

private:
    bool Fail(const Reason& reason);
    Reason ReadPoints(XpFile* file, const WaveHeader& header, uint32_t pointsPerSecond);
};

}  // namespace tarn

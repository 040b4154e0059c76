// wave_header.h - finds the sound in a WAV file of 16-bit stereo, and begins a new one.
//
// Only the plain header is known: "RIFF", a size, "WAVE", "fmt " of 16 bytes with two channels of
// 16 bits at a rate that the effects take. Format code and RIFF size are not looked at. A chunk
// counts as the sound if any one of the four letters of its name stands where "data" has it; that
// loose test is intended. Sound that is longer than its file ends with it.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "base/reason.h"
#include "base/xp_file.h"

namespace tarn {

constexpr uint64_t kWaveFrameSize = 4;  // bytes: left and right sample, 16 bits each

// A file's first bytes, up to the end of the format.
using WaveHead = std::array<uint8_t, 36>;

struct WaveHeader {
    WaveHead head;
    uint32_t sample_rate;
    uint64_t data_offset;     // in the file
    uint32_t data_size;       // bytes, as the chunk says
    uint64_t data_available;  // bytes of it that are in the file

    uint64_t Frames() const { return data_available / kWaveFrameSize; }
    uint64_t EndMs() const { return Frames() * 1000 / sample_rate; }
    // Whether the file ends before the sound that it claims.
    bool IsCutShort() const { return data_available < data_size; }
};

// What is wrong, without the file's name.
[[nodiscard]] Reason ReadWaveHeader(XpFile* file, WaveHeader* header);

// Opens a file and looks whether it is a WAV: its first bytes decide, not its name.
[[nodiscard]] Reason OpenAndLookForWave(const std::string& path, XpFile* file, bool* is_wave);

// All before the sound of a new file.
using WaveStart = std::array<uint8_t, 44>;
WaveStart MakeWaveStart(uint32_t sample_rate, uint32_t data_size);
// With the head of another file, its RIFF size too.
WaveStart MakeWaveStart(const WaveHead& head, uint32_t data_size);

}  // namespace tarn

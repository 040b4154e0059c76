// wave_points.h - the overview of a WAV file: single samples at even steps, rounded to 8 bits.
//
// Nothing is held of the file but a small buffer. What lies between two points isn't seen.
#pragma once

#include <array>
#include <cstdint>

#include "effects/wave_header.h"

namespace tarn {

class AMPWavePoints {
public:
    // The header is the file's own, its rate not 0. The file must outlive the object.
    AMPWavePoints(XpFile* file, const WaveHeader& header, uint32_t points_per_second);

    // Points of the whole overview, of the sound that is there. The last ones may lack a sample:
    // they are 0.
    uint64_t Count() const { return m_count; }
    // The next point. False after the last that has a sample, and at a failed read.
    bool Next(int8_t* left, int8_t* right);
    // Of a failed read, without the file's name.
    const Reason& GetReason() const { return m_reason; }

private:
    bool NextBlock();
    bool Refill(uint64_t frame);

    static constexpr uint64_t kBufferFrames = 1 << 13;

    XpFile* m_file;
    uint64_t m_offset, m_frames;  // of the sound in the file
    uint64_t m_rate, m_pointsPerSecond, m_count;
    uint64_t m_blockStart = 0, m_blockEnd = 0;  // frames
    uint64_t m_point = 0, m_blockPoints = 0;    // within the block
    std::array<int16_t, 2 * kBufferFrames> m_buffer;
    uint64_t m_first = 0, m_held = 0;  // frames in the buffer
    Reason m_reason;
};

}  // namespace tarn

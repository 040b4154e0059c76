#include "effects/wave_peak.h"

#include <algorithm>
#include <array>
#include <cstdlib>

namespace tarn {
namespace {

constexpr uint64_t kPointsPerSecond = 1120;
// Point positions start afresh in each of these, so the last points of one may not line up.
constexpr uint64_t kOverviewBlock = 0x6400000;  // bytes
constexpr uint64_t kBufferFrames = 1 << 13;

// Frames of a file by number, asked for in rising order.
class FrameReader {
public:
    FrameReader(XpFile* file, uint64_t offset, uint64_t frames)
        : m_file(file), m_offset(offset), m_frames(frames) {}

    // Null at a failed read.
    const int16_t* At(uint64_t frame) {
        if (frame >= m_first + m_held && !Refill(frame)) return nullptr;
        return m_buffer.data() + 2 * (frame - m_first);
    }
    int Error() const { return m_error; }  // 0: the file got shorter

private:
    bool Refill(uint64_t frame) {
        const uint64_t size = std::min(kBufferFrames, m_frames - frame) * kWaveFrameSize;
        uint64_t done = 0;
        m_error = m_file->ReadAt(m_offset + frame * kWaveFrameSize, m_buffer.data(), size, &done);
        m_first = frame;
        m_held = done / kWaveFrameSize;
        return m_error == 0 && m_held > 0;
    }

    XpFile* m_file;
    uint64_t m_offset, m_frames;
    std::array<int16_t, 2 * kBufferFrames> m_buffer;
    uint64_t m_first = 0, m_held = 0;
    int m_error = 0;
};

// Rounded, in 32 bits; the top wraps to -128.
int8_t to_point(int16_t sample) {
    return static_cast<int8_t>((sample + 0x80) >> 8);
}

}  // namespace

void AMPPeakMeter::Add(int8_t point) {
    const int size = std::abs(int{point});
    if (size > m_maximum) m_maximum = static_cast<int8_t>(size);
}

int AMPMeasureWavePeak(const std::string& source, float* peak, AMPWaveFailure* failure) {
    XpFile file;
    WaveHeader header;
    if (const int result = AMPOpenWaveFile(source, &file, &header, failure); result != kWaveDone)
        return result;
    const uint64_t rate = header.sample_rate;
    const uint64_t frames = header.data_available / kWaveFrameSize;
    const uint64_t all_points = frames * kPointsPerSecond / rate;
    FrameReader reader(&file, header.data_offset, frames);
    AMPPeakMeter meter;
    uint64_t points = 0;
    for (uint64_t first = 0; first < frames; first += kOverviewBlock / kWaveFrameSize) {
        const uint64_t block = std::min(kOverviewBlock / kWaveFrameSize, frames - first);
        const uint64_t block_points = block * kPointsPerSecond / rate;
        for (uint64_t j = 0; j < block_points; ++j, ++points) {
            const int16_t* const frame = reader.At(first + j * rate / kPointsPerSecond);
            if (!frame) {
                *failure = {reader.Error() != 0 ? AMPWaveFault::kSystem : AMPWaveFault::kCutShort,
                            reader.Error()};
                return kWaveReadFailed;
            }
            meter.Add(to_point(frame[1]));
            meter.Add(to_point(frame[0]));
        }
    }
    if (points < all_points) meter.Add(0);  // the rest of the overview stays 0
    *peak = meter.Peak();
    return kWaveDone;
}

}  // namespace tarn

#include "effects/wave_points.h"

#include <algorithm>

namespace tarn {
namespace {

// Positions start afresh in each of these, so the last points of one may not line up. Intended.
constexpr uint64_t kBlockFrames = 0x6400000 / kWaveFrameSize;

// Rounded, in 32 bits; the top wraps to -128.
int8_t to_point(int16_t sample) {
    return static_cast<int8_t>((sample + 0x80) >> 8);
}

}  // namespace

AMPWavePoints::AMPWavePoints(XpFile* file, const WaveHeader& header, uint32_t points_per_second)
    : m_file(file),
      m_offset(header.data_offset),
      m_frames(header.data_available / kWaveFrameSize),
      m_rate(header.sample_rate),
      m_pointsPerSecond(points_per_second),
      m_count(m_frames * m_pointsPerSecond / m_rate) {}

bool AMPWavePoints::Next(int8_t* left, int8_t* right) {
    while (m_point == m_blockPoints)
        if (m_reason || !NextBlock()) return false;
    const uint64_t frame = m_blockStart + m_point * m_rate / m_pointsPerSecond;
    if (frame >= m_first + m_held && !Refill(frame)) {
        m_point = m_blockPoints;
        return false;
    }
    const int16_t* const samples = m_buffer.data() + 2 * (frame - m_first);
    *left = to_point(samples[0]);
    *right = to_point(samples[1]);
    ++m_point;
    return true;
}

bool AMPWavePoints::NextBlock() {
    if (m_blockEnd == m_frames) return false;
    m_blockStart = m_blockEnd;
    m_blockEnd = std::min(m_blockStart + kBlockFrames, m_frames);
    m_point = 0;
    m_blockPoints = (m_blockEnd - m_blockStart) * m_pointsPerSecond / m_rate;
    return true;
}

bool AMPWavePoints::Refill(uint64_t frame) {
    const uint64_t size = std::min(kBufferFrames, m_frames - frame) * kWaveFrameSize;
    uint64_t done = 0;
    const int error =
        m_file->ReadAt(m_offset + frame * kWaveFrameSize, m_buffer.data(), size, &done);
    m_first = frame;
    m_held = done / kWaveFrameSize;
    if (error != 0)
        m_reason = SystemReason(ReasonCode::kCantRead, ReasonSide::kSource, {}, error);
    else if (m_held == 0)
        m_reason = {ReasonCode::kWaveShrank, ReasonSide::kSource, {}, {}};
    return !m_reason;
}

}  // namespace tarn

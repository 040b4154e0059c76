// waveform_picker.h - which frames of a sound become points, and where these go.
#pragma once

#include <cstdint>
#include <utility>

#include "movie/waveform/waveform.h"
#include "mp4format/time_math.h"

namespace tarn {

// Point p stands at frame p * rate / pointsPerSecond. The rows are all 0 before.
class WaveformPicker {
public:
    WaveformPicker(WaveformPoints* rows, uint32_t pointsPerSecond, WaveformProgress progress)
        : m_rows(rows), m_pointsPerSecond(pointsPerSecond), m_progress(std::move(progress)) {}

    void SetRate(uint32_t rate) { m_rate = rate; }  // hertz
    bool Full() const { return m_point == m_rows->left.size(); }
    // The frame of the next point. 64 bits hold the product of any two figures.
    uint64_t NextFrame() const { return uint64_t{m_point} * m_rate / m_pointsPerSecond; }
    void Put(int8_t left, int8_t right) {
        if (left != 0) m_rows->left[m_point] = left;  // memory for silence is not asked for
        if (right != 0) m_rows->right[m_point] = right;
        ++m_point;
    }
    // Leaves the points before `frame` at 0.
    void SkipTo(uint64_t frame) {
        if (Full() || NextFrame() >= frame) return;
        const uint64_t point = mp4_mul_div_or(frame, m_pointsPerSecond, m_rate, UINT64_MAX);
        const uint64_t count = m_rows->left.size();
        if (point >= count) {
            m_point = static_cast<uint32_t>(count);
        } else if (point > m_point) {
            m_point = static_cast<uint32_t>(point);
        }
        if (!Full() && NextFrame() < frame) ++m_point;
    }
    // False when reading is to stop. Cheap enough for every sample.
    bool Report() {
        if (!m_progress || m_point < m_nextReport) return true;
        m_nextReport = m_point + kReportStep;
        return m_progress(m_point, static_cast<uint32_t>(m_rows->left.size()));
    }

private:
    static constexpr uint64_t kReportStep = 1 << 13;  // points

    WaveformPoints* m_rows;
    uint32_t m_pointsPerSecond;
    WaveformProgress m_progress;
    uint32_t m_rate = 1;
    uint32_t m_point = 0;
    uint64_t m_nextReport = 0;
};

}  // namespace tarn

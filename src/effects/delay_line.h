// delay_line.h - the last samples of a stream, in a ring.
//
// The filters work on runs: stretches of the ring that don't wrap, so that no sample costs a
// remainder. A ring of the filter's own delay needs no second position: what is about to be
// overwritten is the sample that is due.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

namespace tarn {

class AMPDelayLine {
public:
    // Silent, holding the last `length` samples; at least one.
    explicit AMPDelayLine(uint32_t length) : m_samples(length, 0.0f) {}

    // The sample written `-offset` writes before the newest: 0 the newest, 1 - length the oldest.
    float Read(int32_t offset) const {
        const int64_t at = int64_t{m_oldest} - 1 + offset;
        return m_samples[static_cast<size_t>(at < 0 ? at + Length() : at)];
    }
    void Clear();

    // The oldest samples in order, RunLength() of them. The caller reads each and puts the new
    // sample in its place, then moves on by what it has replaced.
    float* Run() { return m_samples.data() + m_oldest; }
    uint32_t RunLength() const { return Length() - m_oldest; }
    void Advance(uint32_t count) {
        m_oldest += count;
        if (m_oldest == Length()) m_oldest = 0;
    }

private:
    uint32_t Length() const { return static_cast<uint32_t>(m_samples.size()); }

    std::vector<float> m_samples;
    uint32_t m_oldest = 0;
};

inline void AMPDelayLine::Clear() {
    std::fill(m_samples.begin(), m_samples.end(), 0.0f);
    m_oldest = 0;
}

}  // namespace tarn

// fade.h - shapes the start and the end of a range by position in time.
//
// After the start a second of silence, then a rise over two; before the end a fall over three and
// a second of silence, held from there on. Both curves are fourth powers of a straight line.
// No history: a block's gains follow from its position alone.
#pragma once

#include <cstdint>

namespace tarn {

class AMPFade {
public:
    // What a block needs: made once for the block, then applied to its parts.
    struct Plan {
        uint64_t in_frames;  // from the block's first on, that the fade-in touches
        uint64_t in_first;   // distance of the block's first frame from the start, in frames
        uint64_t out_frame;  // of the block, where the fade-out begins; past the block for none
        uint64_t out_left;   // frames from there to the end
    };

    explicit AMPFade(uint32_t sample_rate) : m_sampleRate(sample_rate) {}

    // Milliseconds, in the time base of the positions. End 0: no fade-out. A fade-out also needs an
    // end of at least four seconds, and a block that begins before the start gets no fade-in.
    void SetStartTime(uint32_t ms) { m_start = ms; }
    void SetEndTime(uint32_t ms) { m_end = ms; }

    // In place. `position`: milliseconds of the block's first frame.
    void Process(float* left, float* right, uint32_t count, uint32_t position) const;

    Plan MakePlan(uint32_t count, uint32_t position) const;
    // The part of a planned block that begins at its frame `first`.
    void Apply(const Plan& plan, float* left, float* right, uint32_t first, uint32_t count) const;

private:
    uint64_t Frames(uint32_t ms) const { return uint64_t{ms} * m_sampleRate / 1000; }

    uint32_t m_start = 0, m_end = 0;
    uint32_t m_sampleRate;
};

}  // namespace tarn

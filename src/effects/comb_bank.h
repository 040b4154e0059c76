// comb_bank.h - the twelve combs of a reverb, six a channel, and the mix across the channels.
//
// Gives exactly the samples of twelve AMPCombLPFFilter. The two channels have equal delays and the
// damping term looks two frames back, so two frames of both channels fill one register; the six
// pairs are independent of each other and hide each other's latency. All six combs of a channel
// hear the same input and share its history.
#pragma once

#include <cstdint>
#include <vector>

#include "effects/vector4.h"

namespace tarn {

constexpr int kCombCount = 6;
// Frames that the reverb treats at a time, so that its scratch arrays stay in the nearest cache.
constexpr uint32_t kReverbSlice = 256;

struct AMPCombSettings {
    uint32_t delay;  // samples, at least 2
    float feedback;
    float damping;
    float cross_mix;  // gain of this comb in the other channel
};

// C1 to C6 are the left combs, D1 to D6 the right ones, k1 to k6 the cross mix. The arrays have
// room for the second half of an odd pair; it means nothing.
struct AMPCombMix {
    static constexpr uint32_t kLength = kReverbSlice + 1;
    float left[kLength];                   // C1 + ... + C6 + k1 D1 + ... + k6 D6
    float right[kLength];                  // D1 + ... + D6
    float cross[kCombCount - 2][kLength];  // k3 C3 to k6 C6, for the right channel
};

class AMPCombBank {
public:
    explicit AMPCombBank(const AMPCombSettings (&settings)[kCombCount]);

    // `count` is at most kReverbSlice.
    void Process(const float* left, const float* right, uint32_t count, AMPCombMix* mix);
    // Back to silence.
    void Reset();

private:
    struct Comb {
        explicit Comb(const AMPCombSettings& settings);
        uint32_t delay;
        Float4 feedback, damping, cross_mix;
        std::vector<float> past;  // the last `delay` frames of output, left and right in turn
        uint32_t oldest = 0;      // frame of the ring that is replaced next
        Float4 before{};          // the last two frames of output
    };

    uint32_t AppendInput(const float* left, const float* right, uint32_t count);
    uint32_t ShortestRun(uint32_t count) const;
    void ProcessRun(uint32_t input, uint32_t first, uint32_t count, AMPCombMix* mix);

    std::vector<Comb> m_combs;
    uint32_t m_longest = 0;      // frames of input that the longest comb looks back
    std::vector<float> m_input;  // left and right in turn, contiguous; moved down when it is full
    uint32_t m_inputEnd = 0;     // frames of it in use
};

}  // namespace tarn

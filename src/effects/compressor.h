// compressor.h - the two compressors: a static curve with a soft knee, and a hard knee whose ratio
// ramps in. Neither looks ahead; both contain their make-up gain. Levels are on the 16-bit scale.
#pragma once

#include <cstdint>
#include <vector>

namespace tarn {

struct AMPCompressorCurve {
    float threshold;
    float knee;   // half its width
    float ratio;  // slope above the knee
    float gain;   // make-up
};

// Soft, mid, high, heavy. The last serves only the preview: AMPRampCompressor treats the samples.
constexpr int kCompressorCurveCount = 4;
const AMPCompressorCurve& AMPGetCompressorCurve(int setting);  // 1 to 4

// Each sample by itself: no envelope, no attack, no release, no link between the channels.
class AMPSoftKneeCompressor {
public:
    explicit AMPSoftKneeCompressor(const AMPCompressorCurve& curve) : m_curve(curve) {}
    void SetCurve(const AMPCompressorCurve& curve) { m_curve = curve; }
    void Process(float* left, float* right, uint32_t count) const;

private:
    AMPCompressorCurve m_curve;
};

// Says for each frame how far the ratio has ramped in: from nothing, at the frame that passes the
// trigger level, to all in a straight line. Once the ramp is over the next loud frame starts it
// afresh, also in a signal that never went quiet; that sawtooth is intended.
class AMPAttackRamp {
public:
    enum class Phase { kFull, kTrigger, kRamp };
    struct Run {
        Phase phase;
        uint32_t count;  // frames in this phase
        uint32_t step;   // kRamp: the first frame's place in the ramp, 1 to Length() - 1
    };

    AMPAttackRamp(uint32_t sample_rate, float trigger, float milliseconds);

    uint32_t Length() const { return m_length; }  // samples
    // The frames from the first on that share a phase, at most `count`, which is not 0.
    Run Next(const float* left, const float* right, uint32_t count);
    // Waits for a loud frame again.
    void Reset() { m_counter = 0; }

private:
    float m_trigger;
    uint32_t m_length;
    uint32_t m_counter = 0;
};

class AMPRampCompressor {
public:
    AMPRampCompressor(uint32_t sample_rate, float threshold, float ratio, float gain,
                      float ramp_milliseconds);
    void Process(float* left, float* right, uint32_t count);
    void Reset() { m_ramp.Reset(); }

private:
    void Compress(float* samples, const float* slopes, uint32_t count) const;
    void CompressFully(float* samples, uint32_t count) const;

    float m_threshold, m_ratio, m_gain;
    AMPAttackRamp m_ramp;
    std::vector<float> m_slopes;  // by the ramp's step
};

}  // namespace tarn

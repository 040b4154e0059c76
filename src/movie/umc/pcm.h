// pcm.h - 16-bit interleaved PCM to the codec's planes of floats (-1 to 1) and back.
#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

namespace tarn::UMC {

static_assert(std::endian::native == std::endian::little, "the codecs give little-endian PCM");

// Rounds to nearest, halves to even, and clips at the ends of the range; a NaN becomes silence.
// Adding and taking away 1.5 * 2^23 leaves no fraction bits: that is the rounding, in a form that
// the compiler turns into vector code.
inline int16_t ToPcm16(float value) {
    constexpr float kRound = 12582912.0f;
    const float scaled = value == value ? value * 32768.0f : 0.0f;
    const float clipped = std::min(std::max(scaled, -32768.0f), 32767.0f);
    return static_cast<int16_t>(static_cast<int32_t>((clipped + kRound) - kRound));
}

// `out` and `in` are bytes of any alignment: they come from a caller's buffer.
inline void InterleavePcm16(uint8_t* out, const float* const* planes, int32_t channels,
                            int32_t frames) {
    if (channels == 2) {  // nearly all there is, worth a loop that vectorises
        const float* left = planes[0];
        const float* right = planes[1];
        for (int32_t i = 0; i < frames; ++i) {
            const int16_t pair[2] = {ToPcm16(left[i]), ToPcm16(right[i])};
            std::memcpy(out + 4 * i, pair, sizeof pair);
        }
        return;
    }
    for (int32_t c = 0; c < channels; ++c)
        for (int32_t i = 0; i < frames; ++i) {
            const int16_t sample = ToPcm16(planes[c][i]);
            std::memcpy(out + 2 * (i * channels + c), &sample, sizeof sample);
        }
}

inline void DeinterleavePcm16(float* const* planes, const uint8_t* in, int32_t channels,
                              int32_t frames) {
    for (int32_t c = 0; c < channels; ++c)
        for (int32_t i = 0; i < frames; ++i) {
            int16_t sample = 0;
            std::memcpy(&sample, in + 2 * (i * channels + c), sizeof sample);
            planes[c][i] = static_cast<float>(sample) * (1.0f / 32768.0f);
        }
}

}  // namespace tarn::UMC

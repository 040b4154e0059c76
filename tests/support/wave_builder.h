// wave_builder.h - WAV files and sound to put into them.
#pragma once

#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace tarn {

inline std::string Le(uint32_t value, int bytes = 4) {
    std::string text;
    for (int i = 0; i < bytes; ++i)
        text += static_cast<char>(value >> (8 * i));
    return text;
}

struct WaveShape {
    uint32_t rate = 1120, channels = 2, bits = 16, format_size = 16;
    std::string chunks = {};  // between the format and the sound
    std::string name = "data";
    std::optional<uint32_t> claimed = {};  // bytes of sound, where the header lies
};

inline std::string WaveFile(const WaveShape& shape, const std::string& sound) {
    const uint32_t frame = shape.channels * shape.bits / 8;
    return "RIFF" + Le(99) + "WAVEfmt " + Le(shape.format_size) + Le(1, 2) + Le(shape.channels, 2) +
           Le(shape.rate) + Le(shape.rate * frame) + Le(frame, 2) + Le(shape.bits, 2) +
           shape.chunks + shape.name +
           Le(shape.claimed.value_or(static_cast<uint32_t>(sound.size()))) + sound;
}

// The bytes of samples.
inline std::string WaveSound(const std::vector<int>& samples) {
    std::string sound;
    for (const int sample : samples)
        sound += Le(static_cast<uint32_t>(sample), 2);
    return sound;
}

// White noise up to full scale, left and right in turn.
inline std::vector<int16_t> Noise(size_t frames, unsigned seed = 1) {
    std::mt19937 random(seed);
    std::vector<int16_t> sound(2 * frames);
    for (int16_t& sample : sound)
        sample = static_cast<int16_t>(random());
    return sound;
}

}  // namespace tarn

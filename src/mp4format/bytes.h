// bytes.h - integers of a file, big-endian, assembled byte by byte: nothing here depends on the
// machine's own byte order.
#pragma once

#include <cstdint>

namespace tarn {

// A four-character code as a number: its first character is the most significant byte.
constexpr uint32_t fourcc(const char (&text)[5]) {
    return static_cast<uint32_t>(static_cast<uint8_t>(text[0])) << 24 |
           static_cast<uint32_t>(static_cast<uint8_t>(text[1])) << 16 |
           static_cast<uint32_t>(static_cast<uint8_t>(text[2])) << 8 |
           static_cast<uint32_t>(static_cast<uint8_t>(text[3]));
}

inline uint16_t get_be16(const uint8_t* p) {
    return static_cast<uint16_t>(p[0] << 8 | p[1]);
}

inline uint32_t get_be24(const uint8_t* p) {
    return static_cast<uint32_t>(p[0]) << 16 | static_cast<uint32_t>(p[1]) << 8 | p[2];
}

inline uint32_t get_be32(const uint8_t* p) {
    return static_cast<uint32_t>(get_be16(p)) << 16 | get_be16(p + 2);
}

inline uint64_t get_be64(const uint8_t* p) {
    return static_cast<uint64_t>(get_be32(p)) << 32 | get_be32(p + 4);
}

inline void put_be16(uint8_t* p, uint16_t value) {
    p[0] = static_cast<uint8_t>(value >> 8);
    p[1] = static_cast<uint8_t>(value);
}

inline void put_be24(uint8_t* p, uint32_t value) {
    p[0] = static_cast<uint8_t>(value >> 16);
    put_be16(p + 1, static_cast<uint16_t>(value));
}

inline void put_be32(uint8_t* p, uint32_t value) {
    put_be16(p, static_cast<uint16_t>(value >> 16));
    put_be16(p + 2, static_cast<uint16_t>(value));
}

inline void put_be64(uint8_t* p, uint64_t value) {
    put_be32(p, static_cast<uint32_t>(value >> 32));
    put_be32(p + 4, static_cast<uint32_t>(value));
}

}  // namespace tarn

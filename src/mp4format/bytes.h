// bytes.h - integers of a file, big-endian, assembled byte by byte: nothing here depends on the
// machine's own byte order.
#pragma once

#include <cstddef>
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

// The fields of a record, taken in order off bytes that were measured before.
class Mp4FieldReader {
public:
    explicit Mp4FieldReader(const uint8_t* at) : m_at(at) {}
    uint16_t U16() { return get_be16(Take(2)); }
    uint32_t U32() { return get_be32(Take(4)); }
    uint64_t U64() { return get_be64(Take(8)); }
    // A time or duration: 32 bits in version 0, 64 in version 1.
    uint64_t Time(uint32_t version) { return version == 1 ? U64() : U32(); }
    // A number of 1 to 4 bytes.
    uint32_t Number(uint32_t size) {
        uint32_t value = 0;
        while (size-- > 0)
            value = value << 8 | *Take(1);
        return value;
    }
    void Skip(size_t count) { m_at += count; }
    // In the form in which the same fields are written.
    void U16(uint16_t& to) { to = U16(); }
    void U32(uint32_t& to) { to = U32(); }
    void Time(uint32_t version, uint64_t& to) { to = Time(version); }

private:
    const uint8_t* Take(size_t count) {
        const uint8_t* at = m_at;
        m_at += count;
        return at;
    }
    const uint8_t* m_at;
};

}  // namespace tarn

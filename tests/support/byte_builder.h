// byte_builder.h - bytes as a movie file has them, put together by hand: numbers are big-endian.
//
//     Atom("moov", Mvhd({.timescale = 600}), Atom("trak", Tkhd({.track_id = 2})))
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string_view>
#include <vector>

#include "mp4format/bytes.h"

namespace tarn {

using Bytes = std::vector<uint8_t>;

// A type given as text or as its number.
struct FourCC {
    constexpr FourCC(const char (&text)[5]) : value(fourcc(text)) {}
    constexpr FourCC(uint32_t number) : value(number) {}
    uint32_t value;
};

// The low `width` bytes of the value.
inline void AppendBe(Bytes* out, uint64_t value, int width) {
    for (int shift = 8 * (width - 1); shift >= 0; shift -= 8)
        out->push_back(static_cast<uint8_t>(value >> shift));
}

template <typename List>
Bytes BeList(const List& values, int width) {
    Bytes out;
    out.reserve(values.size() * static_cast<size_t>(width));
    for (const auto value : values)
        AppendBe(&out, static_cast<uint64_t>(value), width);
    return out;
}

inline Bytes Be16(std::initializer_list<int64_t> values) {
    return BeList(values, 2);
}
inline Bytes Be24(std::initializer_list<int64_t> values) {
    return BeList(values, 3);
}
inline Bytes Be32(std::initializer_list<int64_t> values) {
    return BeList(values, 4);
}
inline Bytes Be64(std::initializer_list<uint64_t> values) {
    return BeList(values, 8);
}

// The characters alone, without a closing zero.
inline Bytes Text(std::string_view text) {
    return {text.begin(), text.end()};
}
// The characters and a closing zero.
inline Bytes TextZ(std::string_view text) {
    Bytes out = Text(text);
    out.push_back(0);
    return out;
}

// Byte by byte: GCC 12 at -O3 takes an inlined insert for a write past the end.
inline void Append(Bytes* out, const Bytes& more) {
    out->reserve(out->size() + more.size());
    for (const uint8_t byte : more)
        out->push_back(byte);
}

template <typename... Parts>
Bytes Join(const Parts&... parts) {
    Bytes out;
    (Append(&out, parts), ...);
    return out;
}
inline Bytes JoinAll(const std::vector<Bytes>& parts) {
    Bytes out;
    for (const Bytes& part : parts)
        Append(&out, part);
    return out;
}

template <typename... Parts>
Bytes Atom(FourCC type, const Parts&... payload) {
    const auto size = static_cast<int64_t>((size_t{8} + ... + payload.size()));
    return Join(Be32({size, type.value}), payload...);
}

// The form with a 64-bit size.
template <typename... Parts>
Bytes LargeAtom(FourCC type, const Parts&... payload) {
    return Join(Be32({1, type.value}), Be64({(size_t{16} + ... + payload.size())}), payload...);
}

template <typename... Parts>
Bytes FullAtom(FourCC type, uint8_t version, uint32_t flags, const Parts&... payload) {
    return Atom(type, Be32({int64_t{version} << 24 | flags}), payload...);
}

// The extended type of the camera's own atoms, whose first word is a name.
template <typename... Parts>
Bytes Uuid(FourCC name, const Parts&... payload) {
    return Atom("uuid", Be32({name.value, 0x21D24FCE, 0xBB88695C, 0xFAC9C740}), payload...);
}

// A 16-bit size in front of the type.
template <typename... Parts>
Bytes SmallAtom(uint32_t type, const Parts&... payload) {
    const auto size = static_cast<int64_t>((size_t{6} + ... + payload.size()));
    return Join(Be16({size}), Be32({type}), payload...);
}

// An MPEG-4 descriptor whose length takes 1 to 4 bytes: short, or padded as many muxers do.
inline Bytes Descriptor(uint8_t tag, const Bytes& payload, int length_bytes = 1) {
    Bytes out{tag};
    for (int i = length_bytes - 1; i >= 0; --i) {
        const auto group = static_cast<uint8_t>(payload.size() >> (7 * i) & 0x7F);
        out.push_back(static_cast<uint8_t>(i > 0 ? group | 0x80 : group));
    }
    return Join(out, payload);
}

}  // namespace tarn

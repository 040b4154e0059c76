// atom_writer.h - putting atoms into a file: headers of all forms, small atoms, containers.
//
// Every writer is one function used twice: with no file it only counts, with a file it writes, so a
// size can't disagree with the bytes. A failed or short write, like a failed seek, is FF4_RET_FILE;
// what was written stays.
#pragma once

#include <cassert>
#include <cstdint>
#include <cstring>

#include "mp4format/atom.h"
#include "mp4format/write_options.h"

namespace tarn {

// Where the next atom goes. A writer moves `position` on by what it writes or counts.
struct Mp4Sink {
    Mp4Host* host;
    Mp4WriteOptions options;
    Mp4File* file;  // null: nothing is written
    uint64_t position;
};

// A sink that only counts, from 0.
Mp4Sink mp4_counting(const Mp4Sink& sink);

Mp4Result mp4_put(Mp4Sink& sink, const void* bytes, uint64_t size);

// u32 size and u32 type, or u32 1, the type and a u64 size, as `size_policy` has it. `header` takes
// the 8 or 16 bytes of the form and may be null. FF4_RET_ARGS for an unknown policy.
Mp4Result mp4_write_atom_header(Mp4Host* host, const Mp4WriteOptions& options, Mp4File* file,
                                uint64_t offset, uint64_t payload, uint32_t type, uint64_t* header,
                                uint64_t* total);

// A payload with its header, in bytes. The form of the header follows from payload + 8.
Mp4Result mp4_atom_total_size(Mp4Host* host, const Mp4WriteOptions& options, uint64_t payload,
                              uint64_t* total);

// The tag, then the length in groups of 7 bits, as few as it needs. A length past 4 groups is
// FF4_RET_OVERFLOW and nothing is written.
Mp4Result mp4_write_descriptor_header(Mp4Host* host, Mp4File* file, uint64_t offset,
                                      uint64_t payload, uint8_t tag, uint64_t* total);

// The version of an atom with these times. Under the policies of version 0 only three times that
// are all past 32 bits are FF4_RET_STATE; one or two of them lose their high words, as intended.
// FF4_RET_INTERNAL for an unknown policy.
Mp4Result mp4_pick_version(Mp4Host* host, const Mp4WriteOptions& options, uint64_t creation,
                           uint64_t modification, uint64_t duration, uint32_t* version);

// The bytes of a small record, put together in order. The owner knows the most it will take.
template <uint64_t kCapacity>
class Mp4Fields {
public:
    void U8(uint32_t value) { *Take(1) = static_cast<uint8_t>(value); }
    void U16(uint32_t value) { put_be16(Take(2), static_cast<uint16_t>(value)); }
    void U24(uint32_t value) { put_be24(Take(3), value); }
    void U32(uint32_t value) { put_be32(Take(4), value); }
    void U64(uint64_t value) { put_be64(Take(8), value); }
    // A time or duration: its low 32 bits in version 0.
    void Time(uint32_t version, uint64_t value) {
        version == 1 ? U64(value) : U32(static_cast<uint32_t>(value));
    }
    // The bytes come as zeros.
    void Skip(uint64_t count) { Take(count); }
    void Copy(const void* bytes, uint64_t count) { std::memcpy(Take(count), bytes, count); }

    const uint8_t* Data() const { return m_bytes; }
    uint64_t Size() const { return m_size; }

private:
    uint8_t* Take(uint64_t count) {
        assert(count <= kCapacity - m_size);
        uint8_t* at = m_bytes + m_size;
        m_size += count;
        return at;
    }
    uint8_t m_bytes[kCapacity] = {};
    uint64_t m_size = 0;
};

template <uint64_t kCapacity>
Mp4Result mp4_put_fields(Mp4Sink& sink, const Mp4Fields<kCapacity>& fields) {
    return mp4_put(sink, fields.Data(), fields.Size());
}

template <typename... Words>
Mp4Result mp4_put_words(Mp4Sink& sink, Words... words) {
    Mp4Fields<4 * sizeof...(words)> fields;
    (fields.U32(words), ...);
    return mp4_put_fields(sink, fields);
}

// An atom whose whole payload is at hand.
Mp4Result mp4_write_plain_atom(Mp4Sink& sink, uint32_t type, const void* payload, uint64_t size);

template <uint64_t kCapacity>
Mp4Result mp4_write_fields(Mp4Sink& sink, uint32_t type, const Mp4Fields<kCapacity>& fields) {
    return mp4_write_plain_atom(sink, type, fields.Data(), fields.Size());
}

template <typename... Words>
Mp4Result mp4_write_words(Mp4Sink& sink, uint32_t type, Words... words) {
    Mp4Fields<4 * sizeof...(words)> fields;
    (fields.U32(words), ...);
    return mp4_write_fields(sink, type, fields);
}

// The header in front of the payload, by header(uint64_t payload), then what body(Mp4Sink&) writes.
// The body only counts first, for the header.
template <typename Header, typename Body>
Mp4Result mp4_write_around(Mp4Sink& sink, Header header, Body body) {
    Mp4Sink payload = mp4_counting(sink);
    FF4_TRY(body(payload));
    FF4_TRY(header(payload.position));
    if (sink.file) return body(sink);
    sink.position += payload.position;
    return FF4_RET_OK;
}

// An atom around what body(Mp4Sink&) writes.
template <typename Body>
Mp4Result mp4_write_container(Mp4Sink& sink, uint32_t type, Body body) {
    const auto header = [&](uint64_t payload) {
        return mp4_write_atom_header(sink.host, sink.options, sink.file, sink.position, payload,
                                     type, nullptr, &sink.position);
    };
    return mp4_write_around(sink, header, body);
}

// The same around a descriptor.
template <typename Body>
Mp4Result mp4_write_descriptor(Mp4Sink& sink, uint8_t tag, Body body) {
    const auto header = [&](uint64_t payload) {
        return mp4_write_descriptor_header(sink.host, sink.file, sink.position, payload, tag,
                                           &sink.position);
    };
    return mp4_write_around(sink, header, body);
}

// A 'free' atom of `size` bytes in all. Its header alone is written: the bytes behind it are left
// as they are. A size that no header fits is FF4_RET_ARGS.
Mp4Result mp4_write_free(Mp4Sink& sink, uint64_t size);

}  // namespace tarn

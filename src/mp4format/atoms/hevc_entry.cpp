#include "mp4format/atoms/hevc_entry.h"

#include <algorithm>

#include "mp4format/atom.h"

namespace tarn {
namespace {

// Takes numbers and runs of bytes off the front; once something is missing nothing is there.
class Front {
public:
    Front(const uint8_t* bytes, uint64_t size) : m_bytes(bytes), m_left(size) {}
    bool Skip(uint64_t count) {
        m_whole = m_whole && count <= m_left;
        if (!m_whole) return false;
        m_bytes += count;
        m_left -= count;
        return true;
    }
    uint32_t U8() { return Skip(1) ? m_bytes[-1] : 0; }
    uint32_t U16() { return Skip(2) ? get_be16(m_bytes - 2) : 0; }
    bool IsWhole() const { return m_whole; }

private:
    const uint8_t* m_bytes;
    uint64_t m_left;
    bool m_whole = true;
};

}  // namespace

bool mp4_is_hevc_config_whole(const uint8_t* config, uint64_t size) {
    constexpr uint64_t kFieldsBetween = 21;  // from the version to the count of arrays
    Front front(config, size);
    if (front.U8() > 1) return false;  // version 0 is that of the early writers
    front.Skip(kFieldsBetween);
    for (uint32_t arrays = front.U8(); arrays > 0 && front.IsWhole(); --arrays) {
        front.Skip(1);  // the kind of the sets
        for (uint32_t sets = front.U16(); sets > 0 && front.IsWhole(); --sets)
            front.Skip(front.U16());
    }
    return front.IsWhole();
}

bool mp4_are_children_whole(const uint8_t* children, uint64_t size) {
    uint64_t at = 0;
    while (size - at >= kAtomHeader) {
        Mp4AtomInfo child{};
        if (mp4_read_atom_header_mem(children, at, size - at, &child) != FF4_RET_OK) return false;
        // The reader has cut a size that is too large.
        const uint64_t stored = get_be32(children + at) == 1 ? get_be64(children + at + kAtomHeader)
                                                             : get_be32(children + at);
        if (stored > child.atom.size) return false;
        at += child.atom.size;
    }
    return std::all_of(children + at, children + size, [](uint8_t byte) { return byte == 0; });
}

}  // namespace tarn

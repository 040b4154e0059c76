// atom.h - atoms (boxes): where one lies in the file, how its header is read, how a container's
// children are walked.
//
// There is no tree of atom objects: a walk keeps the places of the atoms it knows and steps over
// the rest. Layout after ISO/IEC 14496-12, 4.2, with the leniency that real files need: a size past
// its container is cut, silently, and a size of 0 takes all there is at every level.
#pragma once

#include <cstdint>

#include "mp4format/bytes.h"
#include "mp4format/host.h"

namespace tarn {

// A run of bytes in the file. Offset 0 means "not present".
struct Mp4Span {
    uint64_t offset;
    uint64_t size;
};

constexpr bool present(const Mp4Span& span) {
    return span.offset != 0;
}

// One atom: `atom` with its header, `payload` behind it; both inside what was available. For a
// descriptor `type` is the tag.
struct Mp4AtomInfo {
    uint32_t type;
    Mp4Span atom;
    Mp4Span payload;
};

constexpr uint64_t kAtomHeader = 8;
constexpr uint64_t kSmallAtomHeader = 6;
constexpr uint64_t kDescriptorHeader = 2;
constexpr uint64_t kFullHead = 4;   // version and flags
constexpr uint64_t kTableHead = 8;  // version and flags, count

// Version and flags of a full atom, read as one number.
constexpr uint32_t full_version(uint32_t version_flags) {
    return version_flags >> 24;
}
constexpr uint32_t full_flags(uint32_t version_flags) {
    return version_flags & 0xFFFFFF;
}

// Header readers. `available` counts from `offset` to the end of the enclosing atom.
// FF4_RET_FORMAT for too few bytes or a size below the header, FF4_RET_FILE for a failed or short
// read. The memory forms index `buffer` by `offset`.

// u32 size, u32 type, and a u64 size where the first is 1.
Mp4Result mp4_read_atom_header(Mp4Host* host, Mp4File* file, uint64_t offset, uint64_t available,
                               Mp4AtomInfo* info);
Mp4Result mp4_read_atom_header_mem(const uint8_t* buffer, uint64_t offset, uint64_t available,
                                   Mp4AtomInfo* info);
// u16 size, u32 type: the items of the metadata lists. No size-0 rule and no 64-bit form.
Mp4Result mp4_read_small_atom_header(Mp4Host* host, Mp4File* file, uint64_t offset,
                                     uint64_t available, Mp4AtomInfo* info);
Mp4Result mp4_read_small_atom_header_mem(const uint8_t* buffer, uint64_t offset, uint64_t available,
                                         Mp4AtomInfo* info);
// u8 tag, then 1 to 4 length bytes of 7 bits, most significant first (ISO/IEC 14496-1, 8.3.3).
Mp4Result mp4_read_descriptor_header_mem(const uint8_t* buffer, uint64_t offset, uint64_t available,
                                         Mp4AtomInfo* info);

// Reads version and flags. Fewer than 4 bytes or a version above `max_version` is FF4_RET_FORMAT.
// `rest` is what follows; `version_flags` may be null.
Mp4Result mp4_read_full_header(Mp4Host* host, Mp4File* file, const Mp4Span& payload,
                               uint32_t max_version, Mp4Span* rest,
                               uint32_t* version_flags = nullptr);

// The decoded head of a table atom.
struct Mp4TableHeader {
    uint32_t version_flags;
    uint32_t count;   // as stored
    Mp4Span entries;  // the bytes behind the head
};
// Reads version, flags and count; fewer than 8 bytes or a version above `max_version` is
// FF4_RET_FORMAT.
Mp4Result mp4_read_table_header(Mp4Host* host, Mp4File* file, const Mp4Span& payload,
                                uint32_t max_version, Mp4TableHeader* header);

// Whether an atom is the first of its kind; `kept` then knows where it is.
inline bool mp4_is_first(const Mp4AtomInfo& atom, Mp4Span* kept) {
    if (present(*kept)) return false;
    *kept = atom.atom;
    return true;
}

// Calls visit(const Mp4AtomInfo&) for each child in file order, whose headers
// read(offset, available, Mp4AtomInfo*) gives. A failure ends the walk with that result. Fewer than
// `least` bytes at the end are ignored.
template <typename Read, typename Visit>
Mp4Result mp4_walk_by(uint64_t least, const Mp4Span& payload, Read read, Visit visit) {
    Mp4Span left = payload;
    while (left.size >= least) {
        Mp4AtomInfo info{};
        FF4_TRY(read(left.offset, left.size, &info));
        FF4_TRY(visit(info));
        left.offset += info.atom.size;
        left.size -= info.atom.size;
    }
    return FF4_RET_OK;
}

// Over the atoms of a container in the file. A child's bytes are blamed on the child.
template <typename Visit>
Mp4Result mp4_walk(Mp4Host* host, Mp4File* file, const Mp4Span& payload, Visit visit) {
    const auto read = [=](uint64_t offset, uint64_t available, Mp4AtomInfo* info) {
        return mp4_read_atom_header(host, file, offset, available, info);
    };
    const auto blaming = [&](const Mp4AtomInfo& child) {
        return mp4_blame(host, child.type, visit(child));
    };
    return mp4_walk_by(kAtomHeader, payload, read, blaming);
}

// The same over bytes in memory; spans index `buffer`.
template <typename Visit>
Mp4Result mp4_walk_mem(Mp4Host* host, const uint8_t* buffer, const Mp4Span& payload, Visit visit) {
    const auto read = [=](uint64_t offset, uint64_t available, Mp4AtomInfo* info) {
        return mp4_read_atom_header_mem(buffer, offset, available, info);
    };
    const auto blaming = [&](const Mp4AtomInfo& child) {
        return mp4_blame(host, child.type, visit(child));
    };
    return mp4_walk_by(kAtomHeader, payload, read, blaming);
}

// The same over descriptors, down to 2 bytes.
template <typename Visit>
Mp4Result mp4_walk_descriptors(const uint8_t* buffer, const Mp4Span& payload, Visit visit) {
    const auto read = [=](uint64_t offset, uint64_t available, Mp4AtomInfo* info) {
        return mp4_read_descriptor_header_mem(buffer, offset, available, info);
    };
    return mp4_walk_by(kDescriptorHeader, payload, read, visit);
}

// Puts a node at the tail of a singly linked list.
template <typename List, typename Node>
void mp4_append(List* list, Node* node) {
    node->next = nullptr;
    if (list->tail) {
        list->tail->next = node;
    } else {
        list->head = node;
    }
    list->tail = node;
}

// Puts a copy of a node there.
template <typename List, typename Node>
Mp4Result mp4_append_copy(Mp4Host* host, List* list, const Node& node) {
    auto copy = mp4_make<Node>(host);
    if (!copy) return FF4_RET_NOMEM;
    *copy = node;
    mp4_append(list, copy.release());
    return FF4_RET_OK;
}

// The n-th node, from 1, or null.
template <typename Node>
Node* mp4_nth(Node* head, uint32_t n) {
    Node* node = n > 0 ? head : nullptr;
    while (node && --n > 0)
        node = node->next;
    return node;
}

// Empties a list whose nodes drop(node) gives back.
template <typename List, typename Drop>
void mp4_free_list(List* list, Drop drop) {
    while (auto* node = list->head) {
        list->head = node->next;
        drop(node);
    }
    *list = {};
}
// The same for nodes that own nothing.
template <typename List>
void mp4_free_list(Mp4Host* host, List* list) {
    mp4_free_list(list, [=](auto* node) { mp4_free(host, node); });
}

}  // namespace tarn

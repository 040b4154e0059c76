#include "mp4format/atom_tree.h"

#include <algorithm>
#include <cstring>

#include "mp4format/io.h"

namespace tarn {
namespace {

constexpr uint64_t kNoChildren = UINT64_MAX;
constexpr uint64_t kUuidName = 16;
constexpr uint64_t kPeek = kUuidName;

struct Walker {
    Mp4Host* host;
    Mp4File* file;
    const std::function<Mp4Result(const Mp4TreeNode&)>& visit;
    uint64_t* failed_at;
};

// Bytes in front of the children of a container by its name, or kNoChildren.
uint64_t named_start(uint32_t type) {
    switch (type) {
        case fourcc("moov"):
        case fourcc("trak"):
        case fourcc("mdia"):
        case fourcc("minf"):
        case fourcc("dinf"):
        case fourcc("stbl"):
        case fourcc("edts"):
        case fourcc("mvex"):
        case fourcc("moof"):
        case fourcc("traf"):
        case fourcc("mfra"):
        case fourcc("udta"):
        case fourcc("sinf"):
        case fourcc("schi"):
        case fourcc("wave"):
        case fourcc("ilst"):
            return 0;
        case fourcc("meta"):
            return kFullHead;
        case fourcc("stsd"):
        case fourcc("dref"):
            return kTableHead;
        default:
            return kNoChildren;
    }
}

// Sample entries are containers by their place, not by their name. Sound entries of the QuickTime
// versions 1 and 2 have further fields in front of their children.
uint64_t entry_start(uint32_t handler, const uint8_t* payload, uint64_t size) {
    if (handler == fourcc("vide")) return 78;
    if (handler != fourcc("soun") || size < 10) return kNoChildren;
    const uint16_t version = get_be16(payload + 8);
    return version == 1 ? 28 + 16 : version == 2 ? 28 + 36 : 28;
}

// The size as the header states it, to tell a cut atom from a whole one.
Mp4Result is_cut(const Walker& w, const Mp4AtomInfo& info, uint64_t available, bool* cut) {
    *cut = false;
    if (info.atom.size < available) return FF4_RET_OK;
    uint8_t head[16];
    const uint64_t header = info.payload.offset - info.atom.offset;
    FF4_TRY(mp4_read_at(w.host, w.file, info.atom.offset, head, std::min<uint64_t>(header, 16)));
    const uint64_t stated = header > kAtomHeader ? get_be64(head + 8) : get_be32(head);
    *cut = stated > available;
    return FF4_RET_OK;
}

Mp4Result visit_level(const Walker& w, Mp4Span span, uint32_t parent, uint32_t handler,
                      uint32_t depth);

// Below a 'uuid': the camera family's lists hold atoms behind their name.
uint64_t uuid_start(const uint8_t* name, uint32_t parent) {
    static constexpr uint8_t kFamily[] = {0x21, 0xD2, 0x4F, 0xCE, 0xBB, 0x88,
                                          0x69, 0x5C, 0xFA, 0xC9, 0xC7, 0x40};
    if (std::memcmp(name + 4, kFamily, sizeof kFamily) != 0) return kNoChildren;
    const uint32_t kind = get_be32(name);
    if (kind == fourcc("USMT")) return kUuidName;
    if (kind == fourcc("PROF") && parent == 0) return kUuidName + kTableHead;
    return kNoChildren;
}

// `peek` holds the first bytes of the payload, at most kPeek.
uint64_t children_start(const Mp4AtomInfo& info, const uint8_t* peek, uint32_t parent,
                        uint32_t handler) {
    const uint64_t size = std::min(info.payload.size, kPeek);
    if (parent == fourcc("stsd")) return entry_start(handler, peek, size);
    if (info.type == fourcc("uuid") && size == kUuidName) return uuid_start(peek, parent);
    // QuickTime's 'meta' has no version and flags in front of its children.
    if (info.type == fourcc("meta") && size >= 8 && get_be32(peek + 4) == fourcc("hdlr")) return 0;
    return named_start(info.type);
}

Mp4Result visit_atom(const Walker& w, const Mp4AtomInfo& info, uint64_t available, uint32_t parent,
                     uint32_t handler, uint32_t depth) {
    Mp4TreeNode node{info, depth, false, nullptr};
    FF4_TRY(is_cut(w, info, available, &node.cut));
    uint8_t peek[kPeek] = {};
    const bool looks =
        parent == fourcc("stsd") || info.type == fourcc("uuid") || info.type == fourcc("meta");
    if (looks && info.payload.size > 0)
        FF4_TRY(mp4_read_at(w.host, w.file, info.payload.offset, peek,
                            std::min(info.payload.size, kPeek)));
    if (info.type == fourcc("uuid") && info.payload.size >= kUuidName) node.uuid = peek;
    FF4_TRY(w.visit(node));
    const uint64_t start = children_start(info, peek, parent, handler);
    if (start == kNoChildren || start > info.payload.size || depth + 1 >= kMostTreeDepth)
        return FF4_RET_OK;
    return visit_level(w, {info.payload.offset + start, info.payload.size - start}, info.type,
                       handler, depth + 1);
}

// The handler type of a media atom, needed to know what its sample entries look like.
Mp4Result read_handler(const Walker& w, const Mp4AtomInfo& hdlr, uint32_t* handler) {
    if (hdlr.payload.size < 12) return FF4_RET_OK;
    uint8_t head[12];
    FF4_TRY(mp4_read_at(w.host, w.file, hdlr.payload.offset, head, sizeof head));
    *handler = get_be32(head + 8);
    return FF4_RET_OK;
}

Mp4Result visit_level(const Walker& w, Mp4Span left, uint32_t parent, uint32_t handler,
                      uint32_t depth) {
    while (left.size >= kAtomHeader) {
        Mp4AtomInfo info{};
        const Mp4Result result =
            mp4_read_atom_header(w.host, w.file, left.offset, left.size, &info);
        if (result != FF4_RET_OK && w.failed_at) *w.failed_at = left.offset;
        FF4_TRY(result);
        if (info.type == fourcc("hdlr") && parent == fourcc("mdia"))
            FF4_TRY(read_handler(w, info, &handler));
        FF4_TRY(visit_atom(w, info, left.size, parent, handler, depth));
        left.offset += info.atom.size;
        left.size -= info.atom.size;
    }
    return FF4_RET_OK;
}

}  // namespace

Mp4Result mp4_visit_atoms(Mp4Host* host, Mp4File* file, uint64_t file_size,
                          const std::function<Mp4Result(const Mp4TreeNode&)>& visit,
                          uint64_t* failed_at) {
    if (!host || !file || !visit) return FF4_RET_ARGS;
    return visit_level({host, file, visit, failed_at}, {0, file_size}, 0, 0, 0);
}

bool mp4_is_top_level_type(uint32_t type) {
    static constexpr uint32_t kTypes[] = {
        fourcc("ftyp"), fourcc("moov"), fourcc("mdat"), fourcc("free"), fourcc("skip"),
        fourcc("wide"), fourcc("uuid"), fourcc("moof"), fourcc("mfra"), fourcc("styp"),
        fourcc("sidx"), fourcc("meta"), fourcc("pdin"), fourcc("mdri"), fourcc("emsg"),
    };
    return std::find(std::begin(kTypes), std::end(kTypes), type) != std::end(kTypes);
}

}  // namespace tarn

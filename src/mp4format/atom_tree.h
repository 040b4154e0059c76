// atom_tree.h - every atom of a file, for people who want to see how it is built.
//
// The engine itself never needs such a tree: its walks know what they look for. This walk opens
// whatever is known as a container, wherever it stands, and reports each atom as it comes.
#pragma once

#include <cstdint>
#include <functional>

#include "mp4format/atom.h"

namespace tarn {

struct Mp4TreeNode {
    Mp4AtomInfo atom;
    uint32_t depth;       // 0 at the top of the file
    bool cut;             // the size in the file reaches past its container
    const uint8_t* uuid;  // the 16-byte name of a 'uuid' atom; null otherwise
};

// Containers within containers, more than any file needs: bounds the work on a hostile one.
constexpr uint32_t kMostTreeDepth = 16;

// Calls `visit` for each atom in file order. Ends with the first failure: of a read, of a header
// that can't be one (FF4_RET_FORMAT, its place in `*failed_at` where that is not null), or of
// `visit`.
Mp4Result mp4_visit_atoms(Mp4Host* host, Mp4File* file, uint64_t file_size,
                          const std::function<Mp4Result(const Mp4TreeNode&)>& visit,
                          uint64_t* failed_at);

// True for the kinds of atom that a movie file has at its top level.
bool mp4_is_top_level_type(uint32_t type);

}  // namespace tarn

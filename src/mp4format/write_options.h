// write_options.h - how wide the numbers of a new movie file are. Every atom writer is given one.
#pragma once

#include <cstdint>

namespace tarn {

// The size in an atom's header.
enum Mp4SizePolicy : uint32_t {
    kSize32 = 0,    // a size past 32 bits is FF4_RET_STATE
    kSizeAuto = 1,  // 32 bits unless the size needs more
    kSizeAlways64 = 2
};

// The version of an atom that holds times.
enum Mp4VersionPolicy : uint32_t {
    kVersion0 = 0,
    kVersionAuto = 1,  // 1 if any time needs it
    kVersion0Too = 2,  // the same as 0
    kVersionAlways1 = 3
};

// The width of chunk offsets.
enum Mp4OffsetPolicy : uint32_t {
    kOffset32 = 0,    // 'stco'; an offset past 32 bits is FF4_RET_STATE
    kOffsetAuto = 1,  // 'co64' if any offset needs it
    kOffsetAlways64 = 2
};

struct Mp4WriteOptions {
    uint32_t size_policy, version_policy, offset_policy;
};

// What fits any movie and wastes nothing.
constexpr Mp4WriteOptions kWriteAsNeeded = {kSizeAuto, kVersionAuto, kOffsetAuto};

}  // namespace tarn

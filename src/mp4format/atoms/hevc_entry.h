// hevc_entry.h - whether a sample entry of HEVC can be carried as it stands (ISO/IEC
// 14496-15, 8.3.3).
#pragma once

#include <cstdint>

#include "mp4format/bytes.h"

namespace tarn {

constexpr bool mp4_is_hevc(uint32_t format) {
    return format == fourcc("hvc1") || format == fourcc("hev1");
}

// Whether all sets that a configuration, the payload of 'hvcC', speaks of are there. What follows
// them is not looked at.
bool mp4_is_hevc_config_whole(const uint8_t* config, uint64_t size);

// Whether each child ends within the bytes; zeros may follow the last one.
bool mp4_are_children_whole(const uint8_t* children, uint64_t size);

}  // namespace tarn

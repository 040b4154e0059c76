// file_type.h - 'ftyp': which kinds of reader a file is made for (ISO/IEC 14496-12, 4.3).
#pragma once

#include <cstdint>

#include "mp4format/atom_writer.h"

namespace tarn {

struct Mp4FileTypeBuild {
    uint32_t major_brand, minor_version;
    const uint32_t* brands;  // compatible ones
    uint32_t brand_count;
};

Mp4Result mp4_write_ftyp(Mp4Sink& sink, const Mp4FileTypeBuild& type);

}  // namespace tarn

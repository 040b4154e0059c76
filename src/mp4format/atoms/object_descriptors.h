// object_descriptors.h - the MPEG-4 object descriptors of a movie: 'iods' and those that an object
// descriptor stream carries (ISO/IEC 14496-1, 7.2.6; 14496-14, 3.1.1).
#pragma once

#include <cstdint>

#include "mp4format/atom_writer.h"
#include "mp4format/byte_block.h"

namespace tarn {

// Tag 16 names the movie's elementary streams by their track ids (32 bits each), tag 17 those of an
// object descriptor stream by the index of a reference (16 bits).
struct Mp4ObjectDescriptor {
    uint16_t id;                                                                         // 10 bits
    bool inline_profiles;                                                                // tag 16
    uint8_t od_profile, scene_profile, audio_profile, visual_profile, graphics_profile;  // tag 16
    const uint32_t* streams;
    uint32_t stream_count;
};
// Tag 11.
struct Mp4IpmpDescriptor {
    uint8_t id;
    uint16_t type;
    const uint8_t* data;
    uint32_t size;
};

Mp4Result mp4_write_initial_object_descriptor(Mp4Sink& sink, const Mp4ObjectDescriptor& object);
Mp4Result mp4_write_object_descriptor(Mp4Sink& sink, const Mp4ObjectDescriptor& object);
Mp4Result mp4_write_ipmp_descriptor(Mp4Sink& sink, const Mp4IpmpDescriptor& ipmp);
// A full atom around a descriptor in bytes.
Mp4Result mp4_write_iods(Mp4Sink& sink, const Mp4ByteBlock& descriptor);

}  // namespace tarn

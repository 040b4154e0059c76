// avc_config.h - the AVC decoder configuration, 'avcC' (ISO/IEC 14496-15, 5.3.3.1).
#pragma once

#include <cstdint>

#include "mp4format/atom_writer.h"
#include "mp4format/byte_block.h"

namespace tarn {

struct Mp4ParameterSet {
    Mp4ByteBlock data;  // one NAL unit, without a length in front
    Mp4ParameterSet* next;
};

struct Mp4ParameterSetList {
    Mp4ParameterSet* head;
    Mp4ParameterSet* tail;
    uint32_t count;
};

struct Mp4AvcConfig {
    Mp4ByteBlock bytes;  // the whole payload, with what may follow the sets
    uint8_t configuration_version;
    uint8_t profile;
    uint8_t profile_compatibility;
    uint8_t level;
    uint8_t length_size_minus_one;  // 0 to 3
    Mp4ParameterSetList sequence_sets;
    Mp4ParameterSetList picture_sets;
};

// Reads `size` bytes of payload into an empty record. FF4_RET_FORMAT for fewer than 6 bytes or a
// set past the end; the atom may end after the sequence sets. What was taken before a failure
// stays in the record.
Mp4Result mp4_read_avc_config(Mp4Host* host, const uint8_t* bytes, uint64_t size,
                              Mp4AvcConfig* config);
void mp4_free_avc_config(Mp4Host* host, Mp4AvcConfig* config);

// The n-th set of a list, from 1, or null.
const Mp4ParameterSet* mp4_parameter_set_at(const Mp4ParameterSetList& sets, uint32_t n);

// The bytes as they were read where the record has them, else its fields and sets.
// FF4_RET_OVERFLOW for more or longer sets than their counts and lengths can tell.
Mp4Result mp4_write_avcc(Mp4Sink& sink, const Mp4AvcConfig& config);

}  // namespace tarn

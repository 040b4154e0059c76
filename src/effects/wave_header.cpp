#include "effects/wave_header.h"

#include <algorithm>
#include <cstring>

namespace tarn {
namespace {

constexpr uint64_t kChunkHead = 8;  // name and size

uint32_t get_le32(const uint8_t* p) {
    return p[0] | uint32_t{p[1]} << 8 | uint32_t{p[2]} << 16 | uint32_t{p[3]} << 24;
}
uint32_t get_le16(const uint8_t* p) {
    return p[0] | uint32_t{p[1]} << 8;
}

bool is_stereo16(const uint8_t* head) {
    return std::memcmp(head, "RIFF", 4) == 0 && std::memcmp(head + 8, "WAVE", 4) == 0 &&
           get_le32(head + 16) == 16 && get_le16(head + 22) == 2 && get_le16(head + 34) == 16;
}

bool is_data(const uint8_t* name) {
    return name[0] == 'd' || name[1] == 'a' || name[2] == 't' || name[3] == 'a';
}

}  // namespace

Reason ReadWaveHeader(XpFile* file, WaveHeader* header) {
    uint64_t length = 0, done = 0;
    int error = file->GetLength(&length);
    if (error == 0) error = file->ReadAt(0, header->head, sizeof header->head, &done);
    if (error != 0) return SystemReason(ReasonCode::kCantRead, ReasonSide::kSource, {}, error);
    if (done < sizeof header->head || !is_stereo16(header->head))
        return {ReasonCode::kWaveFormat, ReasonSide::kSource, {}, {}};
    header->sample_rate = get_le32(header->head + 24);

    uint64_t offset = sizeof header->head;
    while (offset + kChunkHead <= length) {
        uint8_t chunk[kChunkHead];
        error = file->ReadAt(offset, chunk, sizeof chunk, &done);
        if (error != 0) return SystemReason(ReasonCode::kCantRead, ReasonSide::kSource, {}, error);
        if (done < sizeof chunk) break;
        offset += kChunkHead;
        const uint32_t size = get_le32(chunk + 4);
        if (is_data(chunk)) {
            header->data_offset = offset;
            header->data_size = size;
            header->data_available = std::min<uint64_t>(size, length - offset);
            return {};
        }
        offset += size;  // no pad byte after an odd one
    }
    return {ReasonCode::kWaveNoSound, ReasonSide::kSource, {}, {}};
}

}  // namespace tarn

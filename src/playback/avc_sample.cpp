#include "playback/avc_sample.h"

namespace tarn {
namespace {

// Slices, whole or in partitions; 5 is one of a sync picture.
bool is_slice(uint8_t unit_type) {
    return unit_type >= 1 && unit_type <= 5;
}

}  // namespace

bool IsDisposableAvcSample(std::span<const uint8_t> sample, uint32_t length_size) {
    if (length_size < 1 || length_size > 4) return false;
    bool slices = false;
    while (sample.size() > length_size) {
        uint64_t size = 0;
        for (uint32_t i = 0; i < length_size; ++i)
            size = size << 8 | sample[i];
        sample = sample.subspan(length_size);
        if (size == 0 || size > sample.size()) return false;
        const uint8_t head = sample[0];
        if ((head & 0x60) != 0) return false;
        if (is_slice(head & 0x1F)) slices = true;
        sample = sample.subspan(size);
    }
    return slices && sample.empty();
}

}  // namespace tarn

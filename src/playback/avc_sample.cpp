#include "playback/avc_sample.h"

namespace tarn {
bool IsDisposableAvcSample(std::span<const uint8_t> sample, uint32_t length_size) {
    if (length_size < 1 || length_size > 4) return false;
    bool slices = false;
    while (sample.size() > length_size) {
        uint64_t size = 0;
        for (uint32_t i = 0; i < length_size; ++i)
            size = size << 8 | sample[i];
        sample = sample.subspan(length_size);
        if (size == 0 || size > sample.size()) return false;
        if ((sample[0] & 0x60) != 0) return false;
        // Slices, whole or in partitions; 5 is one of a sync picture.
        const int type = sample[0] & 0x1F;
        slices |= type >= 1 && type <= 5;
        sample = sample.subspan(size);
    }
    return slices && sample.empty();
}

}  // namespace tarn

#include "playback/wave_facts.h"

#include <algorithm>
#include <cstring>

#include "base/xp_file.h"
#include "effects/effect_chain.h"

namespace tarn {
namespace {

constexpr uint64_t kUnitsPerSecond = 10'000'000;
constexpr uint64_t kRiffHead = 12, kChunkHead = 8;
// Chunks before the sound; a file may be nothing but empty ones.
constexpr int kMostChunks = 10'000;

uint32_t get_le32(const uint8_t* p) {
    return p[0] | uint32_t{p[1]} << 8 | uint32_t{p[2]} << 16 | uint32_t{p[3]} << 24;
}
uint32_t get_le16(const uint8_t* p) {
    return p[0] | uint32_t{p[1]} << 8;
}

struct Format {
    uint32_t rate = 0, frameBytes = 0;
};

// False at the end of the file.
bool read(XpFile* file, uint64_t offset, uint8_t* bytes, uint64_t size) {
    uint64_t done = 0;
    return file->ReadAt(offset, bytes, size, &done) == 0 && done == size;
}

// The bytes of the sound that are there, 0 where none is found; the format comes before them.
uint64_t find_sound(XpFile* file, uint64_t length, Format* format) {
    uint64_t offset = kRiffHead;
    for (int n = 0; n < kMostChunks; ++n) {
        uint8_t head[kChunkHead], form[16];
        if (!read(file, offset, head, sizeof head)) return 0;
        offset += kChunkHead;
        const uint64_t size = get_le32(head + 4);
        if (std::memcmp(head, "data", 4) == 0) return std::min(size, length - offset);
        if (std::memcmp(head, "fmt ", 4) == 0 && size >= sizeof form &&
            read(file, offset, form, sizeof form))
            *format = {get_le32(form + 4), get_le16(form + 12)};
        offset += size + size % 2;
    }
    return 0;
}

}  // namespace

Reason ReadWaveFacts(const std::string& path, int64_t* duration, int32_t* rate) {
    XpFile file;
    if (const int error = file.Open(path, XpFile::Mode::kRead))
        return SystemReason(ReasonCode::kCantOpen, ReasonSide::kSource, path, error);
    uint64_t length = 0;
    if (const int error = file.GetLength(&length))
        return SystemReason(ReasonCode::kCantRead, ReasonSide::kSource, path, error);
    uint8_t head[kRiffHead];
    if (!read(&file, 0, head, sizeof head) || std::memcmp(head, "RIFF", 4) != 0 ||
        std::memcmp(head + 8, "WAVE", 4) != 0)
        return {};
    Format format;
    const uint64_t bytes = find_sound(&file, length, &format);
    if (format.frameBytes == 0) return {};
    if (format.rate < kMinSampleRate || format.rate > kMaxSampleRate)
        return {ReasonCode::kWaveRate, ReasonSide::kSource, path, {uint64_t{format.rate}}};
    *duration = static_cast<int64_t>(bytes / format.frameBytes * kUnitsPerSecond / format.rate);
    *rate = static_cast<int32_t>(format.rate);
    return {};
}

}  // namespace tarn

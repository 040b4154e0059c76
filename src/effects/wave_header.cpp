#include "effects/wave_header.h"

#include <algorithm>
#include <cstring>

#include "effects/effect_chain.h"

namespace tarn {
namespace {

constexpr uint64_t kChunkHead = 8;  // name and size

uint32_t get_le32(const uint8_t* p) {
    return p[0] | uint32_t{p[1]} << 8 | uint32_t{p[2]} << 16 | uint32_t{p[3]} << 24;
}
uint32_t get_le16(const uint8_t* p) {
    return p[0] | uint32_t{p[1]} << 8;
}

void put_le32(uint8_t* p, uint32_t value) {
    for (int i = 0; i < 4; ++i)
        p[i] = static_cast<uint8_t>(value >> (8 * i));
}

constexpr size_t kWaveMark = 12;  // bytes that tell a WAV

bool is_wave_mark(const uint8_t* head) {
    return std::memcmp(head, "RIFF", 4) == 0 && std::memcmp(head + 8, "WAVE", 4) == 0;
}

// Of a head that is there as a whole.
Reason why_not_treated(const uint8_t* head) {
    const auto why = [](ReasonCode code, std::vector<ReasonArgument> arguments = {}) {
        return Reason{code, ReasonSide::kSource, {}, std::move(arguments)};
    };
    if (!is_wave_mark(head)) return why(ReasonCode::kWaveFormat);
    const uint64_t channels = get_le16(head + 22), bits = get_le16(head + 34);
    const uint64_t rate = get_le32(head + 24);
    // Only a format that stands in its place can be told in numbers.
    const bool known = std::memcmp(head + 12, "fmt ", 4) == 0 && channels > 0 && bits > 0;
    if (known && channels == 1) return why(ReasonCode::kSoundMono);
    if (known && channels > 2) return why(ReasonCode::kSoundChannels, {channels});
    if (known && bits != 16) return why(ReasonCode::kSoundBits, {bits});
    if (channels != 2 || bits != 16 || get_le32(head + 16) != 16)
        return why(ReasonCode::kWaveFormat);
    if (rate < kMinSampleRate || rate > kMaxSampleRate) return why(ReasonCode::kWaveRate, {rate});
    return {};
}

bool is_data(const uint8_t* name) {
    return name[0] == 'd' || name[1] == 'a' || name[2] == 't' || name[3] == 'a';
}

}  // namespace

Reason ReadWaveHeader(XpFile* file, WaveHeader* header) {
    uint64_t length = 0, done = 0;
    int error = file->GetLength(&length);
    if (error == 0) error = file->ReadAt(0, header->head.data(), header->head.size(), &done);
    if (error != 0) return SystemReason(ReasonCode::kCantRead, ReasonSide::kSource, {}, error);
    if (length == 0) return {ReasonCode::kEmptyFile, ReasonSide::kSource, {}, {}};
    if (done < header->head.size()) return {ReasonCode::kWaveFormat, ReasonSide::kSource, {}, {}};
    if (Reason reason = why_not_treated(header->head.data())) return reason;
    header->sample_rate = get_le32(header->head.data() + 24);

    uint64_t offset = header->head.size();
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

Reason OpenAndLookForWave(const std::string& path, XpFile* file, bool* is_wave) {
    *is_wave = false;
    if (const int error = file->Open(path, XpFile::Mode::kRead))
        return SystemReason(ReasonCode::kCantOpen, ReasonSide::kSource, path, error);
    uint8_t mark[kWaveMark] = {};
    uint64_t done = 0;
    if (const int error = file->ReadAt(0, mark, sizeof mark, &done))
        return SystemReason(ReasonCode::kCantRead, ReasonSide::kSource, path, error);
    *is_wave = is_wave_mark(mark);
    return {};
}

WaveStart MakeWaveStart(uint32_t sample_rate, uint32_t data_size) {
    constexpr uint32_t kPcmOfTwoChannels = 0x20001, kFramesOf16Bits = 0x100004;
    WaveHead head;
    std::memcpy(head.data(), "RIFF....WAVEfmt ", 16);
    // Intended: the whole header is counted, as players have always been given it.
    put_le32(&head[4], data_size + static_cast<uint32_t>(sizeof(WaveStart)));
    put_le32(&head[16], 16);
    put_le32(&head[20], kPcmOfTwoChannels);
    put_le32(&head[24], sample_rate);
    put_le32(&head[28], sample_rate * static_cast<uint32_t>(kWaveFrameSize));
    put_le32(&head[32], kFramesOf16Bits);
    return MakeWaveStart(head, data_size);
}

WaveStart MakeWaveStart(const WaveHead& head, uint32_t data_size) {
    WaveStart start;
    uint8_t* data = std::copy(head.begin(), head.end(), start.data());
    std::copy_n("data", 4, data);
    put_le32(data + 4, data_size);
    return start;
}

}  // namespace tarn

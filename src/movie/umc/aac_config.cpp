#include "movie/umc/aac_config.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "movie/umc/codec.h"

namespace tarn::UMC {
namespace {

constexpr int32_t kSampleRates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                    22050, 16000, 12000, 11025, 8000,  7350};
constexpr uint32_t kRateFollows = 15;  // in place of an index: 24 bits of hertz
constexpr int32_t kObjectEscape = 31;
constexpr int32_t kObjectErLd = 23, kObjectErEld = 39;
constexpr uint32_t kSyncExtension = 0x2b7, kPsExtension = 0x548;  // 11 bits each
constexpr uint32_t kAdtsHeaderSize = 7;
constexpr uint32_t kAdtsLargest = 0x1fff;

class BitReader {
public:
    explicit BitReader(std::span<const uint8_t> bytes) : m_bytes(bytes) {}

    size_t Left() const { return m_bytes.size() * 8 - m_at; }
    bool Failed() const { return m_failed; }
    // 0 past the end, and Failed from then on.
    uint32_t Read(uint32_t count) {
        if (count > Left()) {
            m_failed = true;
            return 0;
        }
        uint32_t value = 0;
        for (; count > 0; --count, ++m_at)
            value = value << 1 | (m_bytes[m_at / 8] >> (7 - m_at % 8) & 1u);
        return value;
    }
    uint32_t Peek(uint32_t count) const {
        BitReader ahead = *this;
        return ahead.Read(count);
    }

private:
    std::span<const uint8_t> m_bytes;
    size_t m_at = 0;
    bool m_failed = false;
};

class BitWriter {
public:
    void Put(uint32_t value, uint32_t count) {
        while (count-- > 0) {
            if (m_bits % 8 == 0) m_bytes.push_back(0);
            m_bytes.back() =
                static_cast<uint8_t>(m_bytes.back() | (value >> count & 1) << (7 - m_bits % 8));
            ++m_bits;
        }
    }
    void Align() { m_bits = m_bytes.size() * 8; }
    std::vector<uint8_t> Take() { return std::move(m_bytes); }

private:
    std::vector<uint8_t> m_bytes;
    size_t m_bits = 0;
};

int32_t ReadObjectType(BitReader& bits) {
    const int32_t type = static_cast<int32_t>(bits.Read(5));
    return type == kObjectEscape ? 32 + static_cast<int32_t>(bits.Read(6)) : type;
}

// 0 for a reserved index.
int32_t ReadSampleRate(BitReader& bits) {
    const uint32_t index = bits.Read(4);
    if (index == kRateFollows) return static_cast<int32_t>(bits.Read(24));
    return index < std::size(kSampleRates) ? kSampleRates[index] : 0;
}

int SampleRateIndex(int32_t rate) {
    const auto* found = std::find(std::begin(kSampleRates), std::end(kSampleRates), rate);
    return found == std::end(kSampleRates) ? -1
                                           : static_cast<int>(found - std::begin(kSampleRates));
}

int32_t FrameLength(int32_t object_type, bool short_form) {
    if (object_type == kObjectErLd || object_type == kObjectErEld) return short_form ? 480 : 512;
    return short_form ? 960 : 1024;
}

// Band replication told after the rest, so that older decoders don't see it. A program config
// element of unknown length may lie in between: the marker is looked for bit by bit.
void ReadSyncExtension(BitReader& bits, AacConfig* config) {
    while (bits.Left() > 15 && bits.Peek(11) != kSyncExtension)
        bits.Read(1);
    if (bits.Left() <= 15) return;
    bits.Read(11);
    if (ReadObjectType(bits) != kAacSbr || bits.Read(1) == 0) return;
    const int32_t rate = ReadSampleRate(bits);
    if (bits.Failed() || rate == 0 || rate == config->sampleRate) return;
    config->sbr = true;
    config->outputRate = rate;
    if (bits.Left() > 11 && bits.Read(11) == kPsExtension) config->ps = bits.Read(1) != 0;
}

struct Descriptor {
    uint8_t tag = 0;
    std::span<const uint8_t> payload;
};

// Takes the first descriptor off `rest`; false where there is none or its length has no end.
bool NextDescriptor(std::span<const uint8_t>& rest, Descriptor* descriptor) {
    if (rest.size() < 2) return false;
    uint64_t length = 0;
    size_t head = 1;
    bool more = true;
    for (; more && head < 5 && head < rest.size(); ++head) {
        length = length << 7 | (rest[head] & 0x7fu);
        more = (rest[head] & 0x80) != 0;
    }
    if (more) return false;
    length = std::min<uint64_t>(length, rest.size() - head);
    descriptor->tag = rest[0];
    descriptor->payload = rest.subspan(head, length);
    rest = rest.subspan(head + length);
    return true;
}

std::span<const uint8_t> FindDescriptor(std::span<const uint8_t> rest, uint8_t tag) {
    Descriptor descriptor;
    while (NextDescriptor(rest, &descriptor))
        if (descriptor.tag == tag) return descriptor.payload;
    return {};
}

// The bytes of an elementary stream descriptor behind its optional fields.
std::span<const uint8_t> BehindEsFields(std::span<const uint8_t> payload) {
    if (payload.size() < 3) return {};
    const uint8_t flags = payload[2];
    size_t at = 3;
    if (flags & 0x80) at += 2;  // the stream it depends on
    if (flags & 0x40) {         // a location: length and text
        if (at >= payload.size()) return {};
        at += 1u + payload[at];
    }
    if (flags & 0x20) at += 2;  // the clock's stream
    return at <= payload.size() ? payload.subspan(at) : std::span<const uint8_t>{};
}

}  // namespace

Status ParseAacConfig(std::span<const uint8_t> bytes, AacConfig* config) {
    if (!config) return kStatusNullPointer;
    *config = {};
    BitReader bits(bytes);
    config->objectType = ReadObjectType(bits);
    config->sampleRate = ReadSampleRate(bits);
    config->channelConfig = static_cast<int32_t>(bits.Read(4));
    config->outputRate = config->sampleRate;
    if (config->objectType == kAacSbr || config->objectType == kAacPs) {
        config->sbr = true;
        config->ps = config->objectType == kAacPs;
        config->outputRate = ReadSampleRate(bits);
        config->objectType = ReadObjectType(bits);
    }
    config->frameLength = FrameLength(config->objectType, bits.Read(1) != 0);
    const bool told = config->objectType > 0 && config->sampleRate > 0 && config->outputRate > 0;
    if (bits.Failed() || !told) return kStatusBadParameter;
    if (!config->sbr) ReadSyncExtension(bits, config);
    return kStatusOk;
}

std::span<const uint8_t> FindDecoderSpecificInfo(std::span<const uint8_t> descriptors) {
    constexpr uint8_t kEsDescriptor = 3, kDecoderConfig = 4, kDecoderSpecificInfo = 5;
    constexpr size_t kDecoderConfigFields = 13;
    const auto stream = BehindEsFields(FindDescriptor(descriptors, kEsDescriptor));
    const auto config = FindDescriptor(stream, kDecoderConfig);
    if (config.size() < kDecoderConfigFields) return {};
    return FindDescriptor(config.subspan(kDecoderConfigFields), kDecoderSpecificInfo);
}

bool AacFrameHasSound(std::span<const uint8_t> frame) {
    enum : uint32_t { kDataStream = 4, kFill = 6, kEnd = 7 };
    BitReader bits(frame);
    for (;;) {
        const uint32_t element = bits.Read(3);
        if (element == kEnd) return false;
        if ((element != kFill && element != kDataStream) || bits.Failed()) return true;
        uint32_t bytes = 0;
        if (element == kFill) {
            bytes = bits.Read(4);
            if (bytes == 15) bytes += bits.Read(8) - 1;
        } else {
            const bool aligned = bits.Read(5) % 2 != 0;  // after the instance tag
            bytes = bits.Read(8);
            if (bytes == 255) bytes += bits.Read(8);
            if (aligned) bits.Read(static_cast<uint32_t>(bits.Left() % 8));
        }
        for (; bytes > 0; --bytes)
            bits.Read(8);
    }
}

uint32_t AdtsFrameLength(std::span<const uint8_t> bytes) {
    BitReader bits(bytes);
    const bool synced = bits.Read(12) == 0xfff;
    bits.Read(1);  // MPEG-2 or MPEG-4
    const bool layer_zero = bits.Read(2) == 0;
    const uint32_t head = bits.Read(1) != 0 ? kAdtsHeaderSize : kAdtsHeaderSize + 2;  // checksum
    bits.Read(14);
    const uint32_t length = bits.Read(13);
    if (bits.Failed() || !synced || !layer_zero) return 0;
    return length >= head && length <= bytes.size() ? length : 0;
}

std::vector<uint8_t> MakeAdtsHeader(const AacConfig& config, uint32_t payload) {
    const int rate = SampleRateIndex(config.sampleRate);
    if (rate < 0 || config.objectType < 1 || config.objectType > 4 || config.channelConfig < 1 ||
        config.channelConfig > 7 || payload > kAdtsLargest - kAdtsHeaderSize)
        return {};
    BitWriter bits;
    bits.Put(0xfff, 12);
    bits.Put(0x1, 4);  // MPEG-4, no checksum
    bits.Put(static_cast<uint32_t>(config.objectType - 1), 2);
    bits.Put(static_cast<uint32_t>(rate), 4);
    bits.Put(0, 1);
    bits.Put(static_cast<uint32_t>(config.channelConfig), 3);
    bits.Put(0, 4);
    bits.Put(payload + kAdtsHeaderSize, 13);
    bits.Put(0x7ff, 11);  // variable rate: nothing is said about the reservoir
    bits.Put(0, 2);       // one block
    return bits.Take();
}

std::vector<uint8_t> MakeAdifHeader(const AacConfig& config, int32_t bit_rate) {
    // Elements of the channel configurations 1 to 6, single or pair; the last has low frequencies.
    static constexpr std::string_view kFront[] = {"", "s", "p", "sp", "sp", "sp", "sp"};
    static constexpr std::string_view kBack[] = {"", "", "", "", "s", "p", "p"};
    const int rate = SampleRateIndex(config.sampleRate);
    if (rate < 0 || config.objectType < 1 || config.objectType > 4 || config.channelConfig < 1 ||
        config.channelConfig >= static_cast<int32_t>(std::size(kFront)))
        return {};
    const std::string_view front = kFront[config.channelConfig], back = kBack[config.channelConfig];
    const bool low = config.channelConfig == 6;
    BitWriter bits;
    for (const char c : {'A', 'D', 'I', 'F'})
        bits.Put(static_cast<uint8_t>(c), 8);
    bits.Put(0, 3);  // no copyright text, neither original nor home
    bits.Put(1, 1);  // variable rate: nothing is said about the reservoir
    bits.Put(static_cast<uint32_t>(std::clamp(bit_rate, 0, (1 << 23) - 1)), 23);
    bits.Put(0, 4);  // one program
    bits.Put(0, 4);  // its tag
    bits.Put(static_cast<uint32_t>(config.objectType - 1), 2);
    bits.Put(static_cast<uint32_t>(rate), 4);
    bits.Put(static_cast<uint32_t>(front.size()), 4);
    bits.Put(0, 4);  // at the sides
    bits.Put(static_cast<uint32_t>(back.size()), 4);
    bits.Put(low, 2);
    bits.Put(0, 10);  // no associated data, no coupling, no mixdown
    uint32_t singles = 0, pairs = 0;
    for (const std::string_view elements : {front, back}) {
        for (const char element : elements) {
            const bool pair = element == 'p';
            bits.Put(pair, 1);
            bits.Put(pair ? pairs++ : singles++, 4);
        }
    }
    if (low) bits.Put(0, 4);
    bits.Align();
    bits.Put(0, 8);  // no comment
    return bits.Take();
}

}  // namespace tarn::UMC

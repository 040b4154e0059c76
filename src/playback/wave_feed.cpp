#include "playback/wave_feed.h"

#include <gst/audio/audio.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <iterator>

#include "effects/effect_chain.h"
#include "effects/wave_header.h"

namespace tarn {
namespace {

constexpr uint64_t kRiffHead = 12, kChunkHead = 8;
// Chunks before the sound; a file may be nothing but empty ones.
constexpr int kMostChunks = 10'000;
constexpr uint64_t kRun = 1024;  // frames handed on together
constexpr uint32_t kPcm = 1, kFloat = 3, kExtensible = 0xFFFE;
constexpr uint32_t kMostChannels = 64;

uint32_t get_le32(const uint8_t* p) {
    return p[0] | uint32_t{p[1]} << 8 | uint32_t{p[2]} << 16 | uint32_t{p[3]} << 24;
}
uint32_t get_le16(const uint8_t* p) {
    return p[0] | uint32_t{p[1]} << 8;
}

}  // namespace

Reason WaveFeed::Open(const std::string& path) {
    m_path = path;
    bool is_wave = false;
    if (Reason reason = OpenAndLookForWave(path, &m_file, &is_wave)) return reason;
    const auto why = [&](ReasonCode code) { return Reason{code, ReasonSide::kSource, path, {}}; };
    if (!is_wave) return why(ReasonCode::kWaveFormat);
    uint64_t length = 0;
    int error = m_file.GetLength(&length);
    if (error == 0) error = Walk(length);
    if (error != 0) return SystemReason(ReasonCode::kCantRead, ReasonSide::kSource, path, error);
    if (m_form.frameBytes == 0 || m_form.channels == 0) return why(ReasonCode::kWaveFormat);
    if (m_form.rate < kMinSampleRate || m_form.rate > kMaxSampleRate)
        return {ReasonCode::kWaveRate, ReasonSide::kSource, path, {uint64_t{m_form.rate}}};
    // What a save takes for sound is sound, even where it stands in no proper place.
    WaveHeader header{};
    if (m_offset == 0 && !ReadWaveHeader(&m_file, &header)) {
        m_offset = header.data_offset;
        m_frames = header.Frames();
    }
    if (m_offset == 0) return why(ReasonCode::kWaveNoSound);
    if (!SampleFormat()) return why(ReasonCode::kWaveFormat);
    m_end = m_frames;
    return {};
}

// To the sound; the form comes before it. The system's error, or 0.
int WaveFeed::Walk(uint64_t length) {
    uint64_t offset = kRiffHead, done = 0;
    for (int n = 0; n < kMostChunks; ++n) {
        uint8_t head[kChunkHead];
        const int error = m_file.ReadAt(offset, head, sizeof head, &done);
        if (error != 0 || done < sizeof head) return error;
        offset += kChunkHead;
        const uint64_t size = get_le32(head + 4);
        if (std::memcmp(head, "data", 4) == 0) {
            m_offset = offset;
            m_frames = std::min(size, length - offset) / std::max(m_form.frameBytes, 1u);
            return 0;
        }
        if (std::memcmp(head, "fmt ", 4) == 0)
            if (const int unread = ReadForm(offset, size)) return unread;
        offset += size + size % 2;
    }
    return 0;
}

// 'fmt ': u16 code, u16 channels, u32 rate, u32 bytes a second, u16 bytes of a frame, u16 bits; in
// the long form u16 size, u16 bits that are used, u32 speakers, u16 code, and more.
int WaveFeed::ReadForm(uint64_t offset, uint64_t size) {
    constexpr uint64_t kShort = 16, kLong = 26;
    uint8_t form[kLong] = {};
    uint64_t done = 0;
    const int error = m_file.ReadAt(offset, form, std::min(size, kLong), &done);
    if (error != 0 || done < kShort) return error;
    m_form = {get_le16(form),      get_le16(form + 2),  get_le32(form + 4),
              get_le16(form + 12), get_le16(form + 14), 0};
    if (m_form.code != kExtensible || done < kLong) return 0;
    m_form.speakers = get_le32(form + 20);
    m_form.code = get_le16(form + 24);
    return 0;
}

// A sample fills its bytes from the top. The code of 16 bits isn't looked at: nor does a save.
const char* WaveFeed::SampleFormat() const {
    if (m_form.channels > kMostChannels || m_form.frameBytes % m_form.channels != 0) return nullptr;
    const uint32_t bytes = m_form.frameBytes / m_form.channels;
    if (bytes == 2 && m_form.bits == 16) return "S16LE";
    if (m_form.code == kFloat) return bytes == 4 ? "F32LE" : bytes == 8 ? "F64LE" : nullptr;
    constexpr const char* kFormats[] = {"U8", "S16LE", "S24LE", "S32LE"};
    const bool known = m_form.code == kPcm && bytes > 0 && bytes <= std::size(kFormats);
    return known ? kFormats[bytes - 1] : nullptr;
}

GstCapsPtr WaveFeed::Caps(uint32_t) const {
    const auto channels = static_cast<gint>(m_form.channels);
    GstCapsPtr caps(gst_caps_new_simple("audio/x-raw", "format", G_TYPE_STRING, SampleFormat(),
                                        "layout", G_TYPE_STRING, "interleaved", "rate", G_TYPE_INT,
                                        Rate(), "channels", G_TYPE_INT, channels, nullptr));
    uint64_t speakers = m_form.speakers;
    if (std::popcount(speakers) != channels)
        speakers = gst_audio_channel_get_fallback_mask(channels);
    if (channels > 2)
        gst_caps_set_simple(caps.get(), "channel-mask", GST_TYPE_BITMASK, speakers, nullptr);
    return caps;
}

int64_t WaveFeed::ToNs(uint64_t frame) const {
    return static_cast<int64_t>(gst_util_uint64_scale(frame, GST_SECOND, m_form.rate));
}

uint64_t WaveFeed::ToFrame(int64_t time) const {
    const auto from = static_cast<guint64>(std::max<int64_t>(time, 0));
    return std::min<uint64_t>(gst_util_uint64_scale_round(from, m_form.rate, GST_SECOND), m_frames);
}

MovieCode WaveFeed::SeekTo(int64_t time, int64_t end) {
    m_next = ToFrame(time);
    m_end = ToFrame(end);
    return kMovieOk;
}

MovieCode WaveFeed::Next(FeedSample* sample) {
    if (m_next >= m_end) return kMovieEndOfSamples;
    const uint64_t size = std::min(kRun, m_end - m_next) * m_form.frameBytes;
    sample->data.resize(size);
    uint64_t done = 0;
    const uint64_t offset = m_offset + m_next * m_form.frameBytes;
    if (const int error = m_file.ReadAt(offset, sample->data.data(), size, &done)) {
        m_reason = SystemReason(ReasonCode::kCantRead, ReasonSide::kSource, m_path, error);
        return kMovieSystem;
    }
    const uint64_t frames = done / m_form.frameBytes;
    if (frames == 0) return kMovieEndOfSamples;  // it got shorter meanwhile
    sample->data.resize(frames * m_form.frameBytes);
    sample->shown = sample->decoded = ToNs(m_next);
    sample->isSync = true;
    m_next += frames;
    return kMovieOk;
}

}  // namespace tarn

// track_caps.cpp - what GStreamer calls the kinds of samples that movies hold.
#include <algorithm>
#include <span>

#include "movie/umc/aac_config.h"
#include "mp4format/bytes.h"
#include "mp4format/host.h"
#include "playback/track_feed.h"

namespace tarn {
namespace {

constexpr uint8_t kObjectAac = 0x40, kObjectMpeg2AacLast = 0x68;
constexpr uint8_t kObjectMp3InMpeg2 = 0x69, kObjectMp3InMpeg1 = 0x6B;
constexpr uint8_t kObjectMpeg2Aac = 0x66;

void set_codec_data(GstCaps* caps, std::span<const uint8_t> bytes) {
    if (bytes.empty()) return;
    GstBuffer* buffer = gst_buffer_new_memdup(bytes.data(), bytes.size());
    gst_caps_set_simple(caps, "codec_data", GST_TYPE_BUFFER, buffer, nullptr);
    gst_buffer_unref(buffer);
}

// 'pasp': two u32, the width and the height of a pixel.
void set_pixel_aspect(GstCaps* caps, const std::vector<uint8_t>& payload) {
    if (payload.size() < 8) return;
    const uint32_t width = get_be32(payload.data()), height = get_be32(payload.data() + 4);
    constexpr uint32_t kMost = 65535;
    if (width == 0 || height == 0 || width > kMost || height > kMost) return;
    gst_caps_set_simple(caps, "pixel-aspect-ratio", GST_TYPE_FRACTION, static_cast<int>(width),
                        static_cast<int>(height), nullptr);
}

GstCapsPtr video_kind(const CVideoSampleDescriptionInfo& video) {
    switch (video.entry.format) {
        case fourcc("avc1"):
        case fourcc("avc3"): {
            if (video.avcConfig.empty()) return nullptr;
            GstCapsPtr caps(gst_caps_from_string("video/x-h264, stream-format=avc, alignment=au"));
            set_codec_data(caps.get(), video.avcConfig);
            return caps;
        }
        case fourcc("hvc1"):
        case fourcc("hev1"): {
            if (video.hevcConfig.empty()) return nullptr;
            const char* form = video.entry.format == fourcc("hev1")
                                   ? "video/x-h265, stream-format=hev1, alignment=au"
                                   : "video/x-h265, stream-format=hvc1, alignment=au";
            GstCapsPtr caps(gst_caps_from_string(form));
            set_codec_data(caps.get(), video.hevcConfig);
            return caps;
        }
        case fourcc("mp4v"): {
            GstCapsPtr caps(gst_caps_new_simple("video/mpeg", "mpegversion", G_TYPE_INT, 4,
                                                "systemstream", G_TYPE_BOOLEAN, FALSE, nullptr));
            set_codec_data(caps.get(), UMC::FindDecoderSpecificInfo(video.decoderConfig));
            return caps;
        }
        default:
            return nullptr;
    }
}

GstCapsPtr video_caps(const TrackFeed& feed, const CVideoSampleDescriptionInfo& video) {
    GstCapsPtr caps = video_kind(video);
    if (!caps) return nullptr;
    if (video.entry.width > 0 && video.entry.height > 0) {
        gst_caps_set_simple(caps.get(), "width", G_TYPE_INT, int{video.entry.width}, "height",
                            G_TYPE_INT, int{video.entry.height}, nullptr);
    }
    uint32_t numerator = 0, denominator = 1;
    feed.GetFrameRate(&numerator, &denominator);
    if (numerator > 0) {
        gst_caps_set_simple(caps.get(), "framerate", GST_TYPE_FRACTION, static_cast<int>(numerator),
                            static_cast<int>(denominator), nullptr);
    }
    set_pixel_aspect(caps.get(), video.pixelAspect);
    return caps;
}

GstCapsPtr aac_caps(const CAudioSampleDescriptionInfo& sound) {
    const auto specific = UMC::FindDecoderSpecificInfo(sound.decoderConfig);
    UMC::AacConfig config;
    if (specific.empty() || UMC::ParseAacConfig(specific, &config) != UMC::kStatusOk)
        return nullptr;
    GstCapsPtr caps(gst_caps_new_simple(
        "audio/mpeg", "mpegversion", G_TYPE_INT, 4, "stream-format", G_TYPE_STRING, "raw", "framed",
        G_TYPE_BOOLEAN, TRUE, "rate", G_TYPE_INT, config.sampleRate, "channels", G_TYPE_INT,
        int{std::max<uint16_t>(sound.entry.channel_count, 1)}, nullptr));
    set_codec_data(caps.get(), specific);
    return caps;
}

GstCapsPtr pcm_caps(const CAudioSampleDescriptionInfo& sound, const char* format) {
    const Mp4AudioEntry& entry = sound.entry;
    constexpr uint32_t kMostRate = 1'000'000;
    if (entry.sample_size != 16 || entry.channel_count == 0 || entry.channel_count > 2 ||
        entry.sampling_rate == 0 || entry.sampling_rate > kMostRate)
        return nullptr;
    return GstCapsPtr(gst_caps_new_simple("audio/x-raw", "format", G_TYPE_STRING, format, "layout",
                                          G_TYPE_STRING, "interleaved", "rate", G_TYPE_INT,
                                          static_cast<int>(entry.sampling_rate), "channels",
                                          G_TYPE_INT, int{entry.channel_count}, nullptr));
}

GstCapsPtr audio_caps(const CAudioSampleDescriptionInfo& sound) {
    switch (sound.entry.format) {
        case fourcc("twos"):
            return pcm_caps(sound, "S16BE");
        case fourcc("sowt"):
            return pcm_caps(sound, "S16LE");
        case fourcc("mp4a"):
            break;
        default:
            return nullptr;
    }
    const uint8_t object = sound.objectType;
    if (object == kObjectMp3InMpeg1 || object == kObjectMp3InMpeg2)
        return GstCapsPtr(gst_caps_from_string("audio/mpeg, mpegversion=1, layer=3, parsed=true"));
    const bool aac = object == 0 || object == kObjectAac ||
                     (object >= kObjectMpeg2Aac && object <= kObjectMpeg2AacLast);
    return aac ? aac_caps(sound) : nullptr;
}

}  // namespace

GstCapsPtr TrackFeed::Caps(uint32_t index) const {
    if (m_kind == Kind::kVideo)
        return index < m_video.size() ? video_caps(*this, m_video[index]) : nullptr;
    return index < m_audio.size() ? audio_caps(m_audio[index]) : nullptr;
}

}  // namespace tarn

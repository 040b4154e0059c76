#include "play_files.h"

#include <gst/audio/audio.h>

#include <cstring>

#include "playback/gst_handles.h"
#include "playback/video_renderer.h"

namespace tarn {
namespace {

int64_t end_time(GstPad* pad, GstBuffer* buffer) {
    GstEvent* event = gst_pad_get_sticky_event(pad, GST_EVENT_SEGMENT, 0);
    if (!event) return 0;
    const GstSegment* segment = nullptr;
    gst_event_parse_segment(event, &segment);
    const guint64 time = gst_segment_to_stream_time(
        segment, GST_FORMAT_TIME, GST_BUFFER_PTS(buffer) + GST_BUFFER_DURATION(buffer));
    gst_event_unref(event);
    return GST_CLOCK_TIME_IS_VALID(time) ? static_cast<int64_t>(time / 100) : 0;
}

GstPadProbeReturn on_buffer(GstPad* pad, GstPadProbeInfo* info, gpointer dump) {
    const GstCapsPtr caps(gst_pad_get_current_caps(pad));
    GstAudioInfo form;
    GstMapInfo map;
    GstBuffer* buffer = GST_PAD_PROBE_INFO_BUFFER(info);
    if (!caps || !gst_audio_info_from_caps(&form, caps.get()) ||
        !gst_buffer_map(buffer, &map, GST_MAP_READ))
        return GST_PAD_PROBE_OK;
    static_cast<SoundDump*>(dump)->Write(map.data, map.size,
                                         static_cast<uint32_t>(GST_AUDIO_INFO_RATE(&form)),
                                         end_time(pad, buffer));
    gst_buffer_unmap(buffer, &map);
    return GST_PAD_PROBE_OK;
}

}  // namespace

SoundDump::~SoundDump() {
    if (m_file) std::fclose(m_file);
}

bool SoundDump::Attach(GstElement* filter, const std::string& path) {
    if (!filter) return false;
    if (!path.empty()) {
        m_file = std::fopen(path.c_str(), "wbx");
        if (!m_file || std::fseek(m_file, 44, SEEK_SET) != 0) return false;
    }
    const GstPadPtr pad(gst_element_get_static_pad(filter, "src"));
    return gst_pad_add_probe(pad.get(), GST_PAD_PROBE_TYPE_BUFFER, on_buffer, this, nullptr) != 0;
}

void SoundDump::Write(const void* bytes, size_t size, uint32_t rate, int64_t end) {
    m_rate = rate;
    m_end = end;
    m_bytes += size;
    if (m_file) std::fwrite(bytes, 1, size, m_file);
}

bool SoundDump::Finish() {
    if (!m_file) return true;
    const auto size = static_cast<uint32_t>(m_bytes);
    const uint32_t words[] = {size + 36, 16, 0x00020001, m_rate, m_rate * 4, 0x00100004, size};
    char head[44] = "RIFF    WAVEfmt                     data";
    std::memcpy(head + 4, &words[0], 4);
    std::memcpy(head + 16, &words[1], 20);
    std::memcpy(head + 40, &words[6], 4);
    bool good = std::fseek(m_file, 0, SEEK_SET) == 0;
    good = std::fwrite(head, 1, sizeof head, m_file) == sizeof head && good;
    good = std::ferror(m_file) == 0 && good;
    good = std::fclose(m_file) == 0 && good;
    m_file = nullptr;
    return good;
}

bool WriteShot(const CVideoRenderer& renderer, const std::string& path) {
    FILE* file = std::fopen(path.c_str(), "wbx");
    if (!file) return false;
    const HRESULT result = renderer.ReadPicture([file](const VideoPicture& picture) {
        std::fprintf(file, "P6 %d %d 255\n", picture.width, picture.height);
        for (int y = 0; y < picture.height; ++y) {
            const uint8_t* pixel = picture.pixels + ptrdiff_t{y} * picture.stride;
            for (int x = 0; x < picture.width; ++x, pixel += 4) {
                const uint8_t rgb[] = {pixel[2], pixel[1], pixel[0]};
                std::fwrite(rgb, 1, sizeof rgb, file);
            }
        }
    });
    const bool good = result == S_OK && std::ferror(file) == 0;
    return std::fclose(file) == 0 && good;
}

}  // namespace tarn

#include "playback/overlay_still.h"

#include <gst/video/video.h>

#include <mutex>
#include <vector>

#include "playback/letterbox.h"

namespace tarn {

struct OverlayStill::Frame {
    std::mutex lock;
    GstSamplePtr sample;  // the format, and the frame where one has come in it

    void Take(GstBuffer* buffer, GstCaps* caps) {
        const std::lock_guard guard(lock);
        if (!caps && sample) caps = gst_sample_get_caps(sample.get());
        sample.reset(gst_sample_new(buffer, caps, nullptr, nullptr));
    }
};

namespace {

using ConverterPtr =
    std::unique_ptr<GstVideoConverter, decltype([](auto* c) { gst_video_converter_free(c); })>;

// Scales into the letterbox rectangle and fills the rest black.
ConverterPtr MakeConverter(const GstVideoInfo& from, const GstVideoInfo& to) {
    const VideoPicture shape{nullptr, from.width, from.height, 0, from.par_n, from.par_d, 0};
    const VideoRect target = LetterboxRect(shape, {0, 0, to.width, to.height});
    GstStructure* config = gst_structure_new(
        "config", GST_VIDEO_CONVERTER_OPT_DEST_X, G_TYPE_INT, target.left,
        GST_VIDEO_CONVERTER_OPT_DEST_Y, G_TYPE_INT, target.top, GST_VIDEO_CONVERTER_OPT_DEST_WIDTH,
        G_TYPE_INT, target.right - target.left, GST_VIDEO_CONVERTER_OPT_DEST_HEIGHT, G_TYPE_INT,
        target.bottom - target.top, nullptr);
    return ConverterPtr(gst_video_converter_new(&from, &to, config));
}

}  // namespace

OverlayStill::OverlayStill(GstPad* pad) : m_frame(std::make_shared<Frame>()) {
    using Keeper = std::shared_ptr<Frame>;
    const auto kind = static_cast<GstPadProbeType>(GST_PAD_PROBE_TYPE_BUFFER |
                                                   GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM);
    gst_pad_add_probe(
        pad, kind,
        [](GstPad*, GstPadProbeInfo* info, gpointer data) {
            Frame& frame = **static_cast<Keeper*>(data);
            if (info->type & GST_PAD_PROBE_TYPE_BUFFER) {
                frame.Take(GST_PAD_PROBE_INFO_BUFFER(info), nullptr);
            } else if (GST_EVENT_TYPE(GST_PAD_PROBE_INFO_EVENT(info)) == GST_EVENT_CAPS) {
                GstCaps* caps = nullptr;
                gst_event_parse_caps(GST_PAD_PROBE_INFO_EVENT(info), &caps);
                frame.Take(nullptr, caps);
            }
            return GST_PAD_PROBE_OK;
        },
        std::make_unique<Keeper>(m_frame).release(),
        [](gpointer data) { const std::unique_ptr<Keeper> owner(static_cast<Keeper*>(data)); });
}

void OverlayStill::Draw(OverlayWindow& window, int32_t width, int32_t height) const {
    GstSamplePtr sample;
    {
        const std::lock_guard guard(m_frame->lock);
        if (m_frame->sample) sample.reset(gst_sample_ref(m_frame->sample.get()));
    }
    GstVideoInfo from, to;
    GstBuffer* buffer = sample ? gst_sample_get_buffer(sample.get()) : nullptr;
    if (!buffer || width <= 0 || height <= 0 ||
        !gst_video_info_from_caps(&from, gst_sample_get_caps(sample.get())) ||
        !gst_video_info_set_format(&to, GST_VIDEO_FORMAT_BGRx, static_cast<guint>(width),
                                   static_cast<guint>(height)))
        return;
    to.fps_n = from.fps_n;  // a converter changes neither
    to.fps_d = from.fps_d;
    to.interlace_mode = from.interlace_mode;
    const ConverterPtr converter = MakeConverter(from, to);
    GstVideoFrame in, out;
    if (!converter || !gst_video_frame_map(&in, &from, buffer, GST_MAP_READ)) return;
    GstBuffer* scaled = gst_buffer_new_allocate(nullptr, to.size, nullptr);
    if (scaled && gst_video_frame_map(&out, &to, scaled, GST_MAP_READWRITE)) {
        gst_video_converter_frame(converter.get(), &in, &out);
        VideoPicture picture;
        picture.pixels = static_cast<const uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&out, 0));
        picture.width = width;
        picture.height = height;
        picture.stride = GST_VIDEO_FRAME_PLANE_STRIDE(&out, 0);
        static_cast<void>(window.Draw(picture));
        gst_video_frame_unmap(&out);
    }
    if (scaled) gst_buffer_unref(scaled);
    gst_video_frame_unmap(&in);
}

}  // namespace tarn

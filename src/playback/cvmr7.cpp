#include "playback/cvmr7.h"

#include <gst/app/gstappsink.h>
#include <gst/video/video.h>

#include <mutex>
#include <utility>

#include "playback/letterbox.h"

namespace tarn {

// What the sink's streaming thread writes and the window's thread reads. The frame is a reference
// to the sink's own buffer: pixels are never copied here.
class CVMR7::LatestFrame {
public:
    // What the sink calls with a new sample, which `Pull` takes from it.
    template <GstSample* (*Pull)(GstAppSink*, GstClockTime)>
    static GstFlowReturn Keep(GstAppSink* sink, gpointer keeper) {
        if (GstSamplePtr sample{Pull(sink, 0)})
            (*static_cast<std::shared_ptr<LatestFrame>*>(keeper))->Take(std::move(sample));
        return GST_FLOW_OK;
    }
    GstSamplePtr Get() const {
        const std::lock_guard lock(m_sampleLock);
        return GstSamplePtr(m_sample ? gst_sample_ref(m_sample.get()) : nullptr);
    }
    void SetWindow(IVideoWindow* window) {
        const std::lock_guard lock(m_windowLock);
        m_window = window;
    }
    void TellWindow() {
        const std::lock_guard lock(m_windowLock);
        if (m_window) m_window->PictureChanged();
    }

private:
    void Take(GstSamplePtr sample) {
        {
            const std::lock_guard lock(m_sampleLock);
            m_sample.swap(sample);
        }
        TellWindow();
    }

    mutable std::mutex m_sampleLock;
    GstSamplePtr m_sample;
    std::mutex m_windowLock;  // held during a call to the window, so that a null one ends them all
    IVideoWindow* m_window = nullptr;
};

namespace {

// A frame may come this late before it is left out, unless none was shown for a second.
constexpr int64_t kMaxLateness = 20 * GST_MSECOND;

// 100-nanosecond units, as the player counts; 0 where the frame bears no time.
int64_t StreamTime(GstSample* sample, const GstBuffer* buffer) {
    const GstSegment* segment = gst_sample_get_segment(sample);
    if (segment->format != GST_FORMAT_TIME || !GST_BUFFER_PTS_IS_VALID(buffer)) return 0;
    // Not the plain form: the frame that holds the point of a seek may begin before it.
    guint64 time = 0;
    const int sign =
        gst_segment_to_stream_time_full(segment, GST_FORMAT_TIME, GST_BUFFER_PTS(buffer), &time);
    return sign * static_cast<int64_t>(time / 100);
}

HRESULT ReadSample(GstSample* sample, const PictureReader& reader) {
    GstBuffer* buffer = gst_sample_get_buffer(sample);
    const GstCaps* caps = gst_sample_get_caps(sample);
    GstVideoInfo info;
    GstVideoFrame frame;
    if (!buffer || !caps || !gst_video_info_from_caps(&info, caps) ||
        !gst_video_frame_map(&frame, &info, buffer, GST_MAP_READ)) {
        return E_FAIL;
    }
    VideoPicture picture;
    picture.pixels = static_cast<const uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&frame, 0));
    picture.width = GST_VIDEO_FRAME_WIDTH(&frame);
    picture.height = GST_VIDEO_FRAME_HEIGHT(&frame);
    picture.stride = GST_VIDEO_FRAME_PLANE_STRIDE(&frame, 0);
    picture.aspectWidth = GST_VIDEO_INFO_PAR_N(&info);
    picture.aspectHeight = GST_VIDEO_INFO_PAR_D(&info);
    picture.time = StreamTime(sample, buffer);
    reader(picture);
    gst_video_frame_unmap(&frame);
    return S_OK;
}

void SetUpSink(GstElement* sink) {
    const GstCapsPtr caps(
        gst_caps_new_simple("video/x-raw", "format", G_TYPE_STRING, "BGRx", nullptr));
    // The latest frame is held here, so the sink needn't.
    g_object_set(sink, "caps", caps.get(), "sync", TRUE, "max-buffers", 1, "drop", TRUE, "qos",
                 TRUE, "max-lateness", kMaxLateness, "enable-last-sample", FALSE, nullptr);
}

}  // namespace

CVMR7::~CVMR7() {
    if (m_latest) m_latest->SetWindow(nullptr);
    RemoveFromGraph();
}

GstElementPtr CVMR7::Build(HRESULT* result) {
    using Keeper = std::shared_ptr<LatestFrame>;
    GstElementPtr bin = MakeBin(Name());
    GstElement* convert = AddConverter(bin.get(), "videoconvert");
    GstElement* sink = AddElement(bin.get(), "appsink");
    if (!convert || !sink || !gst_element_link(convert, sink) ||
        !AddGhostPad(bin.get(), convert, "sink", "sink")) {
        *result = E_FAIL;
        return nullptr;
    }
    SetUpSink(sink);

    m_latest = std::make_shared<LatestFrame>();
    GstAppSinkCallbacks callbacks{};
    callbacks.new_preroll = LatestFrame::Keep<gst_app_sink_try_pull_preroll>;
    callbacks.new_sample = LatestFrame::Keep<gst_app_sink_try_pull_sample>;
    gst_app_sink_set_callbacks(
        GST_APP_SINK(sink), &callbacks, std::make_unique<Keeper>(m_latest).release(),
        [](gpointer data) { const std::unique_ptr<Keeper> owner(static_cast<Keeper*>(data)); });
    return bin;
}

HRESULT CVMR7::SetVideoWindow(IVideoWindow* window, const VideoRect* rectangle) {
    if (!Filter()) return E_HANDLE;
    SetArea(rectangle);
    m_latest->SetWindow(window);
    if (m_latest->Get()) m_latest->TellWindow();
    return S_OK;
}

HRESULT CVMR7::SetPosition(IVideoWindow* window, const VideoRect* rectangle) {
    if (!Filter()) return E_HANDLE;
    if (!window) return E_POINTER;
    SetArea(rectangle);
    return S_OK;
}

HRESULT CVMR7::RepaintVideo(IVideoWindow* window, IVideoPainter* context) {
    if (!Filter()) return E_HANDLE;
    if (!window || !context) return E_POINTER;
    const VideoRect area = Area(*window);
    const HRESULT result = ReadPicture(
        [&](const VideoPicture& picture) { PaintLetterboxed(*context, picture, area); });
    if (result != S_OK && !IsEmpty(area)) context->FillBlack(area);
    return Failed(result) ? result : S_OK;
}

HRESULT CVMR7::DisplayModeChanged() {
    if (!Filter()) return E_HANDLE;
    m_latest->TellWindow();
    return S_OK;
}

HRESULT CVMR7::ReadPicture(const PictureReader& reader) const {
    if (!Filter()) return E_HANDLE;
    if (!reader) return E_POINTER;
    const GstSamplePtr sample = m_latest->Get();
    return sample ? ReadSample(sample.get(), reader) : S_FALSE;
}

}  // namespace tarn

#include "playback/frame_extractor.h"

#include <gst/app/gstappsink.h>
#include <gst/video/video.h>

#include <climits>
#include <new>

#include "playback/gst_handles.h"
#include "playback/movie_graph.h"

namespace tarn {
namespace {

// A picture that takes longer than this is a fault of the clip or its medium.
constexpr int kPatienceMs = 10'000;

// Converts to square RGB pixels within the box, with the pads "sink" and "src".
GstElementPtr make_frame_converter(int32_t most_width, int32_t most_height) {
    GstElementPtr bin = MakeBin("Frame Converter");
    GstElement* convert = AddElement(bin.get(), "videoconvert");
    GstElement* scale = AddElement(bin.get(), "videoscale");
    GstElement* filter = AddElement(bin.get(), "capsfilter");
    if (!convert || !scale || !filter) return nullptr;
    const GstCapsPtr caps(gst_caps_new_simple(
        "video/x-raw", "format", G_TYPE_STRING, "RGB", "pixel-aspect-ratio", GST_TYPE_FRACTION, 1,
        1, "width", GST_TYPE_INT_RANGE, 1, most_width > 0 ? most_width : INT_MAX, "height",
        GST_TYPE_INT_RANGE, 1, most_height > 0 ? most_height : INT_MAX, nullptr));
    g_object_set(filter, "caps", caps.get(), nullptr);
    g_object_set(scale, "add-borders", FALSE, nullptr);
    if (!gst_element_link_many(convert, scale, filter, nullptr) ||
        !AddGhostPad(bin.get(), convert, "sink", "sink") ||
        !AddGhostPad(bin.get(), filter, "src", "src"))
        return nullptr;
    return bin;
}

bool copy_picture(GstSample* sample, StillPicture* picture) {
    GstVideoInfo info;
    GstVideoFrame frame;
    if (!gst_video_info_from_caps(&info, gst_sample_get_caps(sample)) ||
        !gst_video_frame_map(&frame, &info, gst_sample_get_buffer(sample), GST_MAP_READ))
        return false;
    const auto* rows = static_cast<const uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&frame, 0));
    const int stride = GST_VIDEO_FRAME_PLANE_STRIDE(&frame, 0);
    picture->width = GST_VIDEO_FRAME_WIDTH(&frame);
    picture->height = GST_VIDEO_FRAME_HEIGHT(&frame);
    const ptrdiff_t row_size = ptrdiff_t{picture->width} * 3;
    picture->rgb.clear();
    for (ptrdiff_t y = 0; y < picture->height; ++y)
        picture->rgb.insert(picture->rgb.end(), rows + y * stride, rows + y * stride + row_size);
    gst_video_frame_unmap(&frame);
    return true;
}

}  // namespace

HRESULT CFrameExtractor::Open(const std::string& path, int32_t mostWidth, int32_t mostHeight) {
    ReleaseGraph();
    HRESULT result = CreateGraph();
    if (!Failed(result)) result = Build(path, mostWidth, mostHeight);
    if (Failed(result)) ReleaseGraph();
    return result;
}

HRESULT CFrameExtractor::Build(const std::string& path, int32_t mostWidth, int32_t mostHeight) {
    DecodedPins pins;
    m_path = path;
    const Reason reason =
        AddMovieSource(m_pGraph, path, SourceTracks::kPictureAlone, DecoderMode::kSoftware, &pins);
    if (reason) return Fail(E_FAIL, reason);
    m_duration = pins.duration;
    const GstElementPtr converter = make_frame_converter(mostWidth, mostHeight);
    const GstElementPtr renderer = MakeElement("appsink", "Null Renderer");
    if (!converter || !renderer)
        return Fail(E_FAIL, MissingPart("videoconvert, videoscale, capsfilter, appsink"));
    g_object_set(renderer.get(), "sync", FALSE, nullptr);
    gst_bin_add_many(GST_BIN(m_pGraph), converter.get(), renderer.get(), nullptr);
    m_pRenderer = renderer.get();
    const GstPadPtr input(gst_element_get_static_pad(converter.get(), "sink"));
    if (!pins.video || gst_pad_link(pins.video.get(), input.get()) != GST_PAD_LINK_OK ||
        !gst_element_link(converter.get(), renderer.get()))
        return Fail(E_FAIL, {ReasonCode::kPictureNoDecoder, ReasonSide::kDevice, {}, {}});
    return S_OK;
}

HRESULT CFrameExtractor::GetFrame(int64_t position, StillPicture* picture) {
    if (!picture) return Fail(E_POINTER);
    if (!m_pGraph) return Fail(E_HANDLE);
    HRESULT result = SetPositions(position, -1);
    if (!Failed(result)) result = SetState(1);
    int32_t state = 0;
    if (!Failed(result)) result = GetState(kPatienceMs, &state);
    if (Failed(result)) return result;
    // A failed read tells its reason before its end gets here; without this wait that comes late.
    const GstSamplePtr sample(
        gst_app_sink_try_pull_preroll(GST_APP_SINK(m_pRenderer), 200 * GST_MSECOND));
    try {
        if (sample && copy_picture(sample.get(), picture)) return S_OK;
    } catch (const std::bad_alloc&) {
        return Fail(E_OUTOFMEMORY);
    }
    return FailState({ReasonCode::kNoPictureThere, ReasonSide::kSource, m_path, {}});
}

HRESULT CFrameExtractor::ReleaseGraph() {
    m_pRenderer = nullptr;
    return DShowHelper::ReleaseGraph();
}

}  // namespace tarn

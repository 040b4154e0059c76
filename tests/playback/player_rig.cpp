#include "player_rig.h"

#include <gst/gst.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <fstream>
#include <iterator>

#include "picture_rig.h"
#include "playback/gst_handles.h"

namespace tarn {
namespace {

// A call that GLib or GStreamer finds wrong is a fault of ours.
[[maybe_unused]] const GLogLevelFlags kFatal =
    g_log_set_always_fatal(static_cast<GLogLevelFlags>(G_LOG_FATAL_MASK | G_LOG_LEVEL_CRITICAL));

}  // namespace

std::string ClipPath(const std::string& name) {
    return std::string(TARN_TEST_DATA) + "/clips/" + name + ".mp4";
}

PlayerDevices FakeDevices() {
    static constexpr VideoRendererForm kForms[] = {VideoRendererForm::CVMR7};
    return {"fakesink", kForms};
}

int64_t TestPlayer::Position() {
    int64_t position = -1;
    EXPECT_EQ(GetPosition(&position), S_OK);
    return position;
}

int64_t TestPlayer::Duration() {
    int64_t duration = -1;
    EXPECT_EQ(GetDuration(&duration), S_OK);
    return duration;
}

void TestPlayer::PlayUnpaced() {
    Unpace(Graph());
}

HRESULT TestPlayer::WaitForEnd() {
    HRESULT result = S_FALSE;
    EXPECT_TRUE(WaitFor([&] { return (result = ProcessEvents()) != S_FALSE; }));
    return result;
}

bool TestPlayer::WaitForState() {
    int32_t state = 0;
    return GetState(kDeadlineSeconds * 1000, &state) == S_OK;
}

struct SoundCapture::State {
    mutable std::mutex lock;
    GstSegment segment;
    std::vector<int16_t> samples;
    int64_t first = -1;

    void Take(GstBuffer* buffer) {
        GstMapInfo map;
        if (!gst_buffer_map(buffer, &map, GST_MAP_READ)) std::abort();
        const auto* from = reinterpret_cast<const int16_t*>(map.data);
        if (first < 0) {
            first = static_cast<int64_t>(
                gst_segment_to_stream_time(&segment, GST_FORMAT_TIME, GST_BUFFER_PTS(buffer)));
        }
        samples.insert(samples.end(), from, from + map.size / 2);
        gst_buffer_unmap(buffer, &map);
    }

    static GstPadProbeReturn Watch(GstPad*, GstPadProbeInfo* info, gpointer data) {
        State& state = **static_cast<std::shared_ptr<State>*>(data);
        const std::lock_guard guard(state.lock);
        if (info->type & GST_PAD_PROBE_TYPE_BUFFER) {
            state.Take(GST_PAD_PROBE_INFO_BUFFER(info));
            return GST_PAD_PROBE_OK;
        }
        GstEvent* event = GST_PAD_PROBE_INFO_EVENT(info);
        if (GST_EVENT_TYPE(event) == GST_EVENT_SEGMENT)
            gst_event_copy_segment(event, &state.segment);
        if (GST_EVENT_TYPE(event) == GST_EVENT_FLUSH_STOP) {
            state.samples.clear();
            state.first = -1;
        }
        return GST_PAD_PROBE_OK;
    }
};

SoundCapture::SoundCapture(TestPlayer* player) : m_state(std::make_shared<State>()) {
    const GstElementPtr device(
        gst_bin_get_by_name(GST_BIN(player->Graph()), "Default DirectSound Device"));
    const GstPadPtr pin(gst_element_get_static_pad(device.get(), "Audio Input pin (rendered)"));
    const auto types = static_cast<GstPadProbeType>(GST_PAD_PROBE_TYPE_BUFFER |
                                                    GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM |
                                                    GST_PAD_PROBE_TYPE_EVENT_FLUSH);
    gst_pad_add_probe(pin.get(), types, State::Watch, new std::shared_ptr<State>(m_state),
                      [](gpointer data) { delete static_cast<std::shared_ptr<State>*>(data); });
}

std::vector<int16_t> SoundCapture::Samples() const {
    const std::lock_guard guard(m_state->lock);
    return m_state->samples;
}

int64_t SoundCapture::FirstTime() const {
    const std::lock_guard guard(m_state->lock);
    return m_state->first;
}

KnownPictures::KnownPictures(const std::string& clip) {
    const std::string name = std::string(TARN_TEST_DATA) + "/pictures/" + clip;
    std::ifstream times(name + ".times");
    m_times.assign(std::istream_iterator<int64_t>(times), {});
    std::ifstream pixels(name + ".pgm", std::ios::binary);
    std::string head;
    std::getline(pixels, head);
    m_pixels.assign(std::istreambuf_iterator<char>(pixels), {});
    if (m_times.empty() || m_pixels.size() != m_times.size() * kWidth * kHeight) std::abort();
}

size_t KnownPictures::At(int64_t time) const {
    size_t at = 0;
    while (at + 1 < m_times.size() && m_times[at + 1] <= time)
        ++at;
    return at;
}

size_t KnownPictures::Nearest(const std::vector<int>& thumbnail) const {
    size_t nearest = SIZE_MAX;
    int least = INT_MAX;
    for (size_t i = 0; i < m_times.size() && !thumbnail.empty(); ++i) {
        int difference = 0;
        for (size_t k = 0; k < thumbnail.size(); ++k)
            difference += std::abs(thumbnail[k] - m_pixels[i * thumbnail.size() + k]);
        if (difference >= least) continue;
        least = difference;
        nearest = i;
    }
    return nearest;
}

std::vector<int> Thumbnail(const uint8_t* pixels, int32_t width, int32_t height, int32_t stride,
                           int32_t pixelSize, int32_t blue, int32_t red) {
    constexpr int32_t kW = KnownPictures::kWidth, kH = KnownPictures::kHeight;
    std::vector<int> sums(kW * kH), counts(kW * kH), means(kW * kH);
    for (int32_t y = 0; y < height; ++y) {
        for (int32_t x = 0; x < width; ++x) {
            const uint8_t* p = pixels + ptrdiff_t{y} * stride + ptrdiff_t{x} * pixelSize;
            const auto cell = static_cast<size_t>(y * kH / height * kW + x * kW / width);
            sums[cell] += (299 * p[red] + 587 * p[1] + 114 * p[blue]) / 1000;
            ++counts[cell];
        }
    }
    for (size_t i = 0; i < means.size(); ++i)
        means[i] = sums[i] / counts[i];
    return means;
}

std::vector<int> ShownThumbnail(const TestPlayer& player) {
    std::vector<int> thumbnail;
    if (!player.Renderer()) return thumbnail;
    EXPECT_GE(player.Renderer()->ReadPicture([&](const VideoPicture& p) {
        thumbnail = Thumbnail(p.pixels, p.width, p.height, p.stride, 4, 0, 2);
    }),
              0);
    return thumbnail;
}

}  // namespace tarn

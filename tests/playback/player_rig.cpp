#include "player_rig.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <chrono>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>

namespace tarn {
namespace {

// A call that GLib or GStreamer finds wrong is a fault of ours.
[[maybe_unused]] const GLogLevelFlags kFatal =
    g_log_set_always_fatal(static_cast<GLogLevelFlags>(G_LOG_FATAL_MASK | G_LOG_LEVEL_CRITICAL));

constexpr VideoRendererForm kPainted[] = {VideoRendererForm::CVMR7};

struct Kind {
    const char *kind, *takes;
    bool starts;
};

struct FakeClass {
    GstElementClass parent;
    const Kind* kind;
};

GstElementClass* parent_class() {
    return static_cast<GstElementClass*>(g_type_class_peek(GST_TYPE_ELEMENT));
}

GstStateChangeReturn change_state(GstElement* element, GstStateChange change) {
    const Kind& kind = *reinterpret_cast<FakeClass*>(GST_ELEMENT_GET_CLASS(element))->kind;
    if (change == GST_STATE_CHANGE_NULL_TO_READY && !kind.starts) return GST_STATE_CHANGE_FAILURE;
    return parent_class()->change_state(element, change);
}

void init_class(gpointer type, gpointer data) {
    const auto* kind = static_cast<const Kind*>(data);
    static_cast<FakeClass*>(type)->kind = kind;
    GstElementClass* element = GST_ELEMENT_CLASS(type);
    element->change_state = change_state;
    gst_element_class_set_static_metadata(element, "Fake", kind->kind, "Stands for another", "-");
    AddPadTemplate(type, "sink", GST_PAD_SINK, kind->takes);
    if (!std::strstr(kind->kind, "Sink")) AddPadTemplate(type, "src", GST_PAD_SRC, "ANY");
}

void init_element(GTypeInstance* instance, gpointer type) {
    for (GList* at = gst_element_class_get_pad_template_list(GST_ELEMENT_CLASS(type)); at;
         at = at->next) {
        auto* pad_template = static_cast<GstPadTemplate*>(at->data);
        gst_element_add_pad(GST_ELEMENT(instance),
                            gst_pad_new_from_template(pad_template, pad_template->name_template));
    }
}

}  // namespace

bool WaitFor(const std::function<bool()>& condition) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point deadline = Clock::now() + std::chrono::seconds(kDeadlineSeconds);
    while (!condition()) {
        if (Clock::now() > deadline) return false;
        poll(nullptr, 0, 5);
    }
    return true;
}

void Unpace(GstElement* graph) {
    GstIterator* all = gst_bin_iterate_recurse(GST_BIN(graph));
    const auto unpace = [](const GValue* item, gpointer) {
        auto* object = static_cast<GObject*>(g_value_get_object(item));
        if (g_object_class_find_property(G_OBJECT_GET_CLASS(object), "sync"))
            g_object_set(object, "sync", FALSE, nullptr);
    };
    gst_iterator_foreach(all, unpace, nullptr);
    gst_iterator_free(all);
}

void Meanwhile::Run(std::function<void()> call) {
    if (m_thread.joinable()) return;
    m_thread = std::jthread([this, call = std::move(call)] {
        m_begun = true;
        call();
        m_back = true;
    });
    while (!m_begun)
        std::this_thread::yield();
    for (int chances = 100'000; chances > 0 && !m_back; --chances)
        std::this_thread::yield();
    m_early = m_back;
}

bool Meanwhile::CameBackEarly() {
    if (m_thread.joinable()) m_thread.join();
    return m_early;
}

HiddenFactory::HiddenFactory(const char* name)
    : m_feature(gst_registry_lookup_feature(gst_registry_get(), name)) {
    if (m_feature) gst_registry_remove_feature(gst_registry_get(), m_feature);
}

HiddenFactory::~HiddenFactory() {
    if (!m_feature) return;
    gst_registry_add_feature(gst_registry_get(), m_feature);
    gst_object_unref(m_feature);
}

FakeFactory::FakeFactory(const char* name, const char* kind, const char* takes, bool starts) {
    if (!StartGst()) std::abort();
    GTypeInfo info{};
    info.class_size = sizeof(FakeClass);
    info.class_init = init_class;
    info.class_data = new Kind{kind, takes, starts};  // types stay to the end, and so does this
    info.instance_size = sizeof(GstElement);
    info.instance_init = init_element;
    const GType type = g_type_register_static(GST_TYPE_ELEMENT, name, &info, GTypeFlags{});
    if (!gst_element_register(nullptr, name, GST_RANK_PRIMARY + 1000, type)) std::abort();
    m_feature = gst_registry_lookup_feature(gst_registry_get(), name);
}

FakeFactory::~FakeFactory() {
    gst_registry_remove_feature(gst_registry_get(), m_feature);
    gst_object_unref(m_feature);
}

GstElementPtr ElementOf(const GstElementPtr& bin, const char* factory) {
    GstIterator* all = gst_bin_iterate_all_by_element_factory_name(GST_BIN(bin.get()), factory);
    GValue item = G_VALUE_INIT;
    GstElementPtr found;
    if (gst_iterator_next(all, &item) == GST_ITERATOR_OK)
        found.reset(GST_ELEMENT(g_value_dup_object(&item)));
    g_value_unset(&item);
    gst_iterator_free(all);
    return found;
}

TestPlayer::TestPlayer() : TarnPlayerController(PlayerDevices{"fakesink", kPainted}) {}

TestPlayer::TestPlayer(const std::string& path, bool withSound) : TestPlayer() {
    EXPECT_EQ(OpenClip(path, withSound), S_OK) << GetReason();
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

HRESULT TestPlayer::WaitForEnd() {
    HRESULT result = S_FALSE;
    EXPECT_TRUE(WaitFor([&] { return (result = ProcessEvents()) != S_FALSE; }));
    return result;
}

HRESULT TestPlayer::PlayToEnd() {
    if (Graph()) Unpace(Graph());
    const HRESULT result = Run();
    return Failed(result) ? result : WaitForEnd();
}

bool TestPlayer::WaitForState() {
    int32_t state = 0;
    return GetState(kDeadlineSeconds * 1000, &state) == S_OK;
}

GstElementPtr TestPlayer::Element(const char* name) const {
    return GstElementPtr(gst_bin_get_by_name(GST_BIN(Graph()), name));
}

SlowMedium::SlowMedium(const TestPlayer& player, const char* pin) {
    using Keeper = std::shared_ptr<State>;
    const GstElementPtr movie = player.Element("Source Splitter"), wave = player.Element("Source");
    // What the source itself gives: before its queue, or its parser.
    GstPadPtr pad(gst_element_get_static_pad((movie ? movie : wave).get(), pin));
    pad.reset(gst_ghost_pad_get_target(GST_GHOST_PAD(pad.get())));
    const GstElementPtr next(gst_pad_get_parent_element(pad.get()));
    const GstPadPtr input(gst_element_get_static_pad(next.get(), "sink"));
    pad.reset(gst_pad_get_peer(input.get()));
    const auto hold = [](GstPad*, GstPadProbeInfo*, gpointer keeper) {
        State& state = **static_cast<Keeper*>(keeper);
        std::unique_lock lock(state.lock);
        ++state.held;
        state.changed.wait(lock, [&] { return state.allowed > 0; });
        --state.allowed;
        --state.held;
        return GST_PAD_PROBE_OK;
    };
    gst_pad_add_probe(
        pad.get(), GST_PAD_PROBE_TYPE_BUFFER, hold, std::make_unique<Keeper>(m_state).release(),
        [](gpointer keeper) { const std::unique_ptr<Keeper> owner(static_cast<Keeper*>(keeper)); });
}

void SlowMedium::LetGo(int count) {
    const std::lock_guard lock(m_state->lock);
    m_state->allowed += count;
    m_state->changed.notify_all();
}

SoundCapture::SoundCapture(TestPlayer* player)
    : m_pin(gst_element_get_static_pad(player->SoundDevice(), "Audio Input pin (rendered)")) {
    const auto types =
        static_cast<GstPadProbeType>(GST_PAD_PROBE_TYPE_BUFFER | GST_PAD_PROBE_TYPE_EVENT_FLUSH);
    m_probe = gst_pad_add_probe(m_pin.get(), types, Watch, this, nullptr);
}

GstPadProbeReturn SoundCapture::Watch(GstPad* pad, GstPadProbeInfo* info, gpointer capture) {
    auto* self = static_cast<SoundCapture*>(capture);
    const std::lock_guard guard(self->m_lock);
    if (!(info->type & GST_PAD_PROBE_TYPE_BUFFER)) {
        self->m_samples.clear();
        self->m_first = -1;
        return GST_PAD_PROBE_OK;
    }
    GstBuffer* buffer = GST_PAD_PROBE_INFO_BUFFER(info);
    if (self->m_first < 0) {
        GstEvent* event = gst_pad_get_sticky_event(pad, GST_EVENT_SEGMENT, 0);
        const GstSegment* segment = nullptr;
        gst_event_parse_segment(event, &segment);
        self->m_first = static_cast<int64_t>(
            gst_segment_to_stream_time(segment, GST_FORMAT_TIME, GST_BUFFER_PTS(buffer)));
        gst_event_unref(event);
    }
    const size_t old = self->m_samples.size();
    self->m_samples.resize(old + gst_buffer_get_size(buffer) / 2);
    gst_buffer_extract(buffer, 0, self->m_samples.data() + old, SIZE_MAX);
    return GST_PAD_PROBE_OK;
}

std::vector<int16_t> SoundCapture::Samples() const {
    const std::lock_guard guard(m_lock);
    return m_samples;
}

int64_t SoundCapture::FirstTime() const {
    const std::lock_guard guard(m_lock);
    return m_first;
}

KnownPictures::KnownPictures(const std::string& clip) {
    const std::string name = kData + "/pictures/" + clip;
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
    while (at + 1 < m_times.size() && m_times[at + 1] <= time * 100)
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

std::vector<int> Thumbnail(const VideoPicture& picture, int32_t pixelSize, int32_t blue,
                           int32_t red) {
    constexpr int32_t kW = KnownPictures::kWidth, kH = KnownPictures::kHeight;
    std::vector<int> sums(kW * kH), counts(kW * kH);
    for (int32_t y = 0; y < picture.height; ++y) {
        for (int32_t x = 0; x < picture.width; ++x) {
            const uint8_t* p =
                picture.pixels + ptrdiff_t{y} * picture.stride + ptrdiff_t{x} * pixelSize;
            const int32_t cell = y * kH / picture.height * kW + x * kW / picture.width;
            sums[static_cast<size_t>(cell)] += (299 * p[red] + 587 * p[1] + 114 * p[blue]) / 1000;
            ++counts[static_cast<size_t>(cell)];
        }
    }
    for (size_t i = 0; i < sums.size(); ++i)
        sums[i] /= counts[i];
    return sums;
}

std::vector<int> ShownThumbnail(const TestPlayer& player) {
    std::vector<int> thumbnail;
    if (!player.Renderer()) return thumbnail;
    EXPECT_GE(player.Renderer()->ReadPicture(
                  [&](const VideoPicture& shown) { thumbnail = Thumbnail(shown, 4, 0, 2); }),
              0);
    return thumbnail;
}

}  // namespace tarn

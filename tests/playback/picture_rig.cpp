#include "picture_rig.h"

#include <poll.h>

#include <chrono>

#include "playback/gst_handles.h"

namespace tarn {

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
    if (m_ran) return;
    m_ran = true;
    std::atomic<bool> begun = false;
    m_thread = std::thread([this, &begun, call = std::move(call)] {
        begun = true;
        call();
        m_back = true;
    });
    while (!begun)
        std::this_thread::yield();
    constexpr int kChances = 100'000;
    for (int i = 0; i < kChances && !m_back; ++i)
        std::this_thread::yield();
    m_early = m_back;
}

TestGraph::TestGraph() {
    if (!StartGst()) std::abort();
    g_log_set_always_fatal(static_cast<GLogLevelFlags>(G_LOG_LEVEL_ERROR | G_LOG_LEVEL_CRITICAL));
    m_pipeline = gst_pipeline_new(nullptr);
    gst_object_ref_sink(m_pipeline);
}

TestGraph::~TestGraph() {
    gst_element_set_state(m_pipeline, GST_STATE_NULL);
    gst_object_unref(m_pipeline);
}

bool TestGraph::Feed(const CVideoRenderer& renderer, const std::string& source) {
    GstElement* bin =
        gst_parse_bin_from_description((source + " ! identity").c_str(), TRUE, nullptr);
    return bin && gst_bin_add(GST_BIN(m_pipeline), bin) &&
           gst_element_link_pads(bin, "src", renderer.Filter(), "sink");
}

bool TestGraph::Reach(GstState state) {
    if (gst_element_set_state(m_pipeline, state) == GST_STATE_CHANGE_FAILURE) return false;
    return gst_element_get_state(m_pipeline, nullptr, nullptr, kDeadlineSeconds * GST_SECOND) ==
           GST_STATE_CHANGE_SUCCESS;
}

void TestGraph::PlayUnpaced() {
    Unpace(m_pipeline);
}

bool TestGraph::Seek(int64_t milliseconds) {
    const auto flags = static_cast<GstSeekFlags>(GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_ACCURATE);
    if (!gst_element_seek_simple(m_pipeline, GST_FORMAT_TIME, flags, milliseconds * GST_MSECOND))
        return false;
    return gst_element_get_state(m_pipeline, nullptr, nullptr, kDeadlineSeconds * GST_SECOND) ==
           GST_STATE_CHANGE_SUCCESS;
}

bool TestGraph::HasError() const {
    const GstBusPtr bus(gst_element_get_bus(m_pipeline));
    return GstMessagePtr(gst_bus_pop_filtered(bus.get(), GST_MESSAGE_ERROR)) != nullptr;
}

int64_t TestGraph::Position() const {
    gint64 position = 0;
    const bool known = gst_element_query_position(m_pipeline, GST_FORMAT_TIME, &position);
    return known ? position / static_cast<int64_t>(GST_MSECOND) : 0;
}

void TestWindow::PictureChanged() {
    const std::lock_guard lock(m_lock);
    ++m_changes;
    m_changed.notify_all();
}

bool TestWindow::WaitForChanges(int count) {
    std::unique_lock lock(m_lock);
    return m_changed.wait_for(lock, std::chrono::seconds(kDeadlineSeconds),
                              [&] { return m_changes >= count; });
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

}  // namespace tarn

#include "playback/audio_renderer.h"

#include <gst/audio/gstaudiobasesink.h>

#include "playback/clock_guard.h"

namespace tarn {
namespace {

bool has_property(GstElement* element, const char* name) {
    return g_object_class_find_property(G_OBJECT_GET_CLASS(element), name) != nullptr;
}

void shorten_buffer(GstElement* sink) {
    if (!has_property(sink, "buffer-time") || !has_property(sink, "latency-time")) return;
    g_object_set(sink, "buffer-time", gint64{kAudioBufferMs} * 1000, "latency-time", gint64{10000},
                 nullptr);
}

void guard_clock(GstElement* sink) {
    if (!GST_IS_AUDIO_BASE_SINK(sink)) return;
    GstClock* clock = GST_AUDIO_BASE_SINK(sink)->provided_clock;
    if (clock && GST_IS_AUDIO_CLOCK(clock)) GuardClock(GST_AUDIO_CLOCK(clock));
}

// Opens the device once. What it reports on the way is nobody's business.
bool can_open(GstElement* sink) {
    const GstBusPtr bus(gst_bus_new());
    gst_element_set_bus(sink, bus.get());
    const bool opened = gst_element_set_state(sink, GST_STATE_READY) == GST_STATE_CHANGE_SUCCESS;
    gst_element_set_state(sink, GST_STATE_NULL);
    gst_element_set_bus(sink, nullptr);
    return opened;
}

GstElementPtr make_platform_sink() {
    GList* all = gst_element_factory_list_get_elements(
        GST_ELEMENT_FACTORY_TYPE_SINK | GST_ELEMENT_FACTORY_TYPE_MEDIA_AUDIO, GST_RANK_MARGINAL);
    all = g_list_sort(all, gst_plugin_feature_rank_compare_func);
    GstElementPtr found;
    for (GList* at = all; at && !found; at = at->next) {
        auto* factory = static_cast<GstElementFactory*>(at->data);
        // Bins that pick by themselves would hide what they found.
        if (g_str_has_prefix(GST_OBJECT_NAME(factory), "auto")) continue;
        GstElementPtr sink = MakeElement(GST_OBJECT_NAME(factory));
        if (sink && can_open(sink.get())) found = std::move(sink);
    }
    gst_plugin_feature_list_free(all);
    return found;
}

GstElementPtr make_sink(const std::string& name) {
    GstElementPtr sink;
    if (name != "fakesink") sink = name.empty() ? make_platform_sink() : MakeElement(name.c_str());
    if (sink) return sink;
    sink = MakeElement("fakesink");
    if (sink) g_object_set(sink.get(), "sync", TRUE, nullptr);
    return sink;
}

}  // namespace

GstElementPtr MakeAudioRenderer(const std::string& sink_name) {
    GstElementPtr bin = MakeBin(kAudioRendererName);
    const GstElementPtr sink = make_sink(sink_name);
    GstElement* convert = AddElement(bin.get(), "audioconvert");
    GstElement* resample = AddElement(bin.get(), "audioresample");
    GstElement* volume = AddElement(bin.get(), "volume", "volume");
    if (!sink || !convert || !resample || !volume) return nullptr;
    shorten_buffer(sink.get());
    guard_clock(sink.get());
    if (!gst_bin_add(GST_BIN(bin.get()), sink.get()) ||
        !gst_element_link_many(convert, resample, volume, sink.get(), nullptr) ||
        !AddGhostPad(bin.get(), convert, "sink", kAudioRendererPin))
        return nullptr;
    return bin;
}

}  // namespace tarn

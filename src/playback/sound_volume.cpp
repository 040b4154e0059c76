#include "playback/sound_volume.h"

#include <gst/audio/streamvolume.h>

#include <algorithm>
#include <cmath>
#include <mutex>
#include <utility>

#include "playback/gst_handles.h"

namespace tarn {
namespace {

// Shared with signals that may still be on their way when the control is closed.
struct Listener {
    std::mutex lock;  // held during a call, so that the last one ends before a close returns
    SoundVolumeController::Changed changed;
};

void tell(GObject*, GParamSpec* property, gpointer data) {
    Listener& listener = **static_cast<std::shared_ptr<Listener>*>(data);
    const bool device = g_strcmp0(property->name, "current-device") == 0;
    const std::lock_guard lock(listener.lock);
    if (listener.changed) listener.changed(device ? kMixerLineChange : kMixerControlChange);
}

// The first sink in the bin with a stream of its own in the mixer.
GstElementPtr find_sink(GstBin* bin) {
    GstIterator* all = gst_bin_iterate_sinks(bin);
    GstElementPtr found;
    GValue item = G_VALUE_INIT;
    while (!found && gst_iterator_next(all, &item) == GST_ITERATOR_OK) {
        GstElement* element = GST_ELEMENT(g_value_get_object(&item));
        if (GST_IS_STREAM_VOLUME(element)) found.reset(GST_ELEMENT(gst_object_ref(element)));
        g_value_reset(&item);
    }
    g_value_unset(&item);
    gst_iterator_free(all);
    return found;
}

GstElementPtr find_volume(GstElement* renderer) {
    if (GST_IS_STREAM_VOLUME(renderer)) return GstElementPtr(GST_ELEMENT(gst_object_ref(renderer)));
    if (!GST_IS_BIN(renderer)) return nullptr;
    if (GstElementPtr sink = find_sink(GST_BIN(renderer))) return sink;
    GstElementPtr volume(gst_bin_get_by_name(GST_BIN(renderer), "volume"));
    return volume && GST_IS_STREAM_VOLUME(volume.get()) ? std::move(volume) : nullptr;
}

}  // namespace

class SoundVolumeController::Control {
public:
    Control(GstElementPtr element, Changed changed) : m_element(std::move(element)) {
        m_listener->changed = std::move(changed);
        Watch("notify::volume");
        Watch("notify::mute");
        if (g_object_class_find_property(G_OBJECT_GET_CLASS(m_element.get()), "current-device"))
            Watch("notify::current-device");
    }
    ~Control() {
        for (const gulong id : m_signals)
            if (id != 0) g_signal_handler_disconnect(m_element.get(), id);
        const std::lock_guard lock(m_listener->lock);
        m_listener->changed = nullptr;
    }
    Control(const Control&) = delete;
    Control& operator=(const Control&) = delete;

    GstStreamVolume* Volume() const { return GST_STREAM_VOLUME(m_element.get()); }

private:
    void Watch(const char* signal) {
        using Keeper = std::shared_ptr<Listener>;
        m_signals[m_count++] = g_signal_connect_data(
            m_element.get(), signal, G_CALLBACK(tell),
            std::make_unique<Keeper>(m_listener).release(),
            [](gpointer keeper, GClosure*) {
                const std::unique_ptr<Keeper> owner(static_cast<Keeper*>(keeper));
            },
            static_cast<GConnectFlags>(0));
    }

    GstElementPtr m_element;
    std::shared_ptr<Listener> m_listener = std::make_shared<Listener>();
    gulong m_signals[3] = {};
    int m_count = 0;
};

SoundVolumeController::SoundVolumeController() = default;
SoundVolumeController::~SoundVolumeController() = default;

HRESULT SoundVolumeController::OpenVolume(GstElement* audioRenderer, Changed changed) {
    CloseVolume();
    if (!audioRenderer) return E_POINTER;
    GstElementPtr element = find_volume(audioRenderer);
    if (!element) return E_FAIL;
    m_control = std::make_unique<Control>(std::move(element), std::move(changed));
    return S_OK;
}

void SoundVolumeController::CloseVolume() {
    m_control.reset();
}

HRESULT SoundVolumeController::GetVolume(int32_t* volume) const {
    if (!m_control) return E_HANDLE;
    if (!volume) return E_POINTER;
    const double part =
        gst_stream_volume_get_volume(m_control->Volume(), GST_STREAM_VOLUME_FORMAT_CUBIC);
    *volume = static_cast<int32_t>(std::lround(std::clamp(part, 0.0, 1.0) * kMaxVolume));
    return S_OK;
}

HRESULT SoundVolumeController::SetVolume(int32_t volume) {
    if (!m_control) return E_HANDLE;
    if (volume < 0 || volume > kMaxVolume) return E_INVALIDARG;
    gst_stream_volume_set_volume(m_control->Volume(), GST_STREAM_VOLUME_FORMAT_CUBIC,
                                 1.0 * volume / kMaxVolume);
    return S_OK;
}

HRESULT SoundVolumeController::GetMute(bool* mute) const {
    if (!m_control) return E_HANDLE;
    if (!mute) return E_POINTER;
    *mute = gst_stream_volume_get_mute(m_control->Volume()) != FALSE;
    return S_OK;
}

HRESULT SoundVolumeController::SetMute(bool mute) {
    if (!m_control) return E_HANDLE;
    gst_stream_volume_set_mute(m_control->Volume(), mute);
    return S_OK;
}

}  // namespace tarn

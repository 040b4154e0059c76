#include "playback/dshow_helper.h"

#include <algorithm>
#include <span>
#include <string_view>
#include <utility>

#include "playback/audio_renderer.h"
#include "playback/gst_handles.h"
#include "playback/sound_effect_element.h"
#include "playback/track_source.h"

namespace tarn {
namespace {

constexpr int64_t kUnit = 100;  // nanoseconds
const Reason kUnknown = {ReasonCode::kUnexpected, ReasonSide::kDevice, {}, {}};

GstState to_gst(int32_t state) {
    return state == 2 ? GST_STATE_PLAYING : state == 1 ? GST_STATE_PAUSED : GST_STATE_READY;
}

int32_t from_gst(GstState state) {
    return state == GST_STATE_PLAYING ? 2 : state == GST_STATE_PAUSED ? 1 : 0;
}

bool concerns_us(const GstMessage* message) {
    const GstMessageType types = static_cast<GstMessageType>(
        GST_MESSAGE_EOS | GST_MESSAGE_ERROR | GST_MESSAGE_CLOCK_LOST | GST_MESSAGE_LATENCY);
    return (GST_MESSAGE_TYPE(message) & types) != 0;
}

bool is_from(const GstMessage* message, std::span<const std::string_view> bins) {
    for (GstObjectPtr at(GST_OBJECT(gst_object_ref(GST_MESSAGE_SRC(message)))); at;
         at.reset(gst_object_get_parent(at.get())))
        if (std::ranges::count(bins, GST_OBJECT_NAME(at.get())) > 0) return true;
    return false;
}

// A device speaks of its own calls; what the user can do about it is to look at the device.
GraphEvent error_event(GstMessage* message, const std::string& path) {
    GError* error = nullptr;
    gst_message_parse_error(message, &error, nullptr);
    const bool lost = g_error_matches(error, GST_RESOURCE_ERROR, GST_RESOURCE_ERROR_NOT_FOUND);
    const std::string text = error->message;
    g_error_free(error);
    constexpr std::string_view kSound[] = {kAudioRendererName};
    constexpr std::string_view kScreens[] = {"EVR", "VMR-9", "VMR-7"};
    if (is_from(message, kSound))
        return {EC_ERRORABORT, {ReasonCode::kSoundDevice, ReasonSide::kDevice, {}, {text}}};
    if (is_from(message, kScreens)) {
        if (lost) return {EC_USERABORT, {ReasonCode::kNoScreen, ReasonSide::kDevice, {}, {}}};
        return {EC_ERRORABORT, {ReasonCode::kPlayback, ReasonSide::kDevice, {}, {text}}};
    }
    const Reason source = TrackSourceReason(GST_MESSAGE_SRC(message));
    if (source) return {EC_ERRORABORT, source};
    return {EC_ERRORABORT, {ReasonCode::kPlayback, ReasonSide::kSource, path, {text}}};
}

}  // namespace

// What the graph reports, from the threads in which it comes up to the main thread.
class DShowHelper::Inbox {
public:
    void SetWindow(INotifyWindow* window, uint32_t message, intptr_t parameter) {
        const std::lock_guard lock(m_windowLock);
        m_window = window;
        m_message = message;
        m_parameter = parameter;
    }

    // In the place of the bus's own queue: a message gets into that only after the handler, when
    // the window has been told and may have looked in vain.
    static GstBusSyncReply Handle(GstBus*, GstMessage* message, gpointer data) {
        GstMessagePtr owner(message);
        // What nobody asks for must not pile up.
        if (concerns_us(message)) static_cast<Inbox*>(data)->Put(std::move(owner));
        return GST_BUS_DROP;
    }

    // The oldest; null when there is none.
    GstMessagePtr Take() {
        const std::lock_guard lock(m_messageLock);
        if (m_messages.empty()) return nullptr;
        GstMessagePtr message = std::move(m_messages.front());
        m_messages.pop_front();
        return message;
    }

    void Clear() {
        const std::lock_guard lock(m_messageLock);
        m_messages.clear();
    }

private:
    void Put(GstMessagePtr message) {
        {
            const std::lock_guard lock(m_messageLock);
            m_messages.push_back(std::move(message));
        }
        const std::lock_guard lock(m_windowLock);
        if (m_window) m_window->PostMessage(m_message, m_parameter);
    }

    std::mutex m_messageLock;
    std::deque<GstMessagePtr> m_messages;
    std::mutex m_windowLock;  // held during a call, so that the last one ends before a null returns
    INotifyWindow* m_window = nullptr;
    uint32_t m_message = 0;
    intptr_t m_parameter = 0;
};

DShowHelper::DShowHelper() : m_inbox(std::make_unique<Inbox>()) {}

DShowHelper::~DShowHelper() {
    DShowHelper::ReleaseGraph();
}

HRESULT DShowHelper::CreateGraph() {
    if (m_pGraph) return Fail(E_ACCESSDENIED);
    if (!StartGst()) return Fail(E_FAIL, {ReasonCode::kNoStart, ReasonSide::kDevice, {}, {}});
    m_reason = {};
    m_pGraph = gst_pipeline_new(nullptr);
    gst_object_ref_sink(m_pGraph);
    m_pEvent = gst_element_get_bus(m_pGraph);
    gst_bus_set_sync_handler(m_pEvent, Inbox::Handle, m_inbox.get(), nullptr);
    return S_OK;
}

HRESULT DShowHelper::ReleaseGraph() {
    m_inbox->SetWindow(nullptr, 0, 0);
    if (!m_pGraph) return S_OK;
    gst_element_set_state(m_pGraph, GST_STATE_NULL);
    static_cast<void>(RemoveSoundFilter());
    gst_bus_set_sync_handler(m_pEvent, nullptr, nullptr, nullptr);
    gst_object_unref(std::exchange(m_pEvent, nullptr));
    gst_object_unref(std::exchange(m_pGraph, nullptr));
    m_inbox->Clear();
    m_events.clear();
    m_lastSeek = 0;
    m_asked = 0;
    m_pending = m_pendingStop = m_stop = -1;
    m_position = m_duration = 0;
    m_ended = false;
    m_error = {};
    m_path.clear();
    return S_OK;
}

HRESULT DShowHelper::Fail(HRESULT result, const Reason& reason) {
    m_reason = reason;
    return result;
}

HRESULT DShowHelper::Fail(HRESULT result) {
    const bool memory = result == E_OUTOFMEMORY;
    return Fail(result,
                memory ? Reason{ReasonCode::kOutOfMemory, ReasonSide::kDevice, {}, {}} : kUnknown);
}

HRESULT DShowHelper::FailState(const Reason& otherwise) {
    TakeMessages();
    return Fail(E_FAIL, m_error ? m_error : otherwise);
}

HRESULT DShowHelper::SetNotifyWindow(INotifyWindow* window, uint32_t message, intptr_t parameter) {
    if (!m_pGraph) return Fail(E_HANDLE);
    m_inbox->SetWindow(window, message, parameter);
    return S_OK;
}

HRESULT DShowHelper::GetDuration(int64_t* duration) {
    if (!duration) return Fail(E_POINTER);
    if (!m_pGraph) return Fail(E_HANDLE);
    *duration = m_duration;
    return S_OK;
}

HRESULT DShowHelper::GetPosition(int64_t* position) {
    if (!position) return Fail(E_POINTER);
    if (!m_pGraph) return Fail(E_HANDLE);
    TakeMessages();
    *position = AskPosition();
    return S_OK;
}

int64_t DShowHelper::AskPosition() {
    if (m_asked == 0) return std::max<int64_t>(m_pending, 0);
    if (m_ended) return m_stop < 0 ? m_duration : m_stop;
    gint64 time = 0;
    // In the middle of a seek nobody can tell; it will be where it was sought to.
    if (gst_element_query_position(m_pGraph, GST_FORMAT_TIME, &time))
        m_position = std::clamp<int64_t>(time / kUnit, 0, std::max<int64_t>(m_duration, 0));
    return m_position;
}

HRESULT DShowHelper::SetState(int32_t state) {
    if (!m_pGraph) return Fail(E_HANDLE);
    const bool first = m_asked == 0 && state != 0;
    int64_t start = first ? std::exchange(m_pending, -1) : -1;
    const int64_t stop = first ? std::exchange(m_pendingStop, -1) : -1;
    if (start > 0) m_position = start;
    // A stop, and a place in sources of others, can only be given once they have got data.
    if (start > 0 && stop < 0 && StartTracksAt(m_pGraph, start * kUnit)) start = -1;
    const bool seek = start > 0 || stop >= 0;
    const GstState target = seek ? GST_STATE_PAUSED : to_gst(state);
    m_asked = state;
    if (gst_element_set_state(m_pGraph, target) == GST_STATE_CHANGE_FAILURE)
        return FailState(kUnknown);
    if (!seek) return S_OK;
    constexpr GstClockTime kPrerollTime = 10 * GST_SECOND;
    gst_element_get_state(m_pGraph, nullptr, nullptr, kPrerollTime);
    const HRESULT result = SetPositions(start, stop);
    if (Failed(result) || state == 1) return result;
    const bool failed = gst_element_set_state(m_pGraph, to_gst(state)) == GST_STATE_CHANGE_FAILURE;
    return failed ? FailState(kUnknown) : S_OK;
}

HRESULT DShowHelper::GetState(int timeoutMs, int32_t* state) {
    if (!state) return Fail(E_POINTER);
    if (!m_pGraph) return Fail(E_HANDLE);
    GstState current = GST_STATE_NULL;
    const GstStateChangeReturn result = gst_element_get_state(
        m_pGraph, &current, nullptr, static_cast<GstClockTime>(timeoutMs) * GST_MSECOND);
    TakeMessages();
    if (result == GST_STATE_CHANGE_FAILURE) {
        *state = 0;
        return FailState(kUnknown);
    }
    *state = result == GST_STATE_CHANGE_ASYNC ? m_asked : from_gst(current);
    return result == GST_STATE_CHANGE_ASYNC ? VFW_S_STATE_INTERMEDIATE : S_OK;
}

HRESULT DShowHelper::SetPositions(int64_t position, int64_t stop) {
    if (!m_pGraph) return Fail(E_HANDLE);
    // The very end has no picture any more.
    const int64_t target = std::clamp<int64_t>(position, 0, std::max<int64_t>(m_duration - 1, 0));
    if (stop >= 0 && stop < target) return Fail(E_INVALIDARG);
    stop = std::min(stop, m_duration);
    if (m_asked == 0) {
        m_pending = target;
        m_pendingStop = stop;
        return S_OK;
    }
    const auto flags = static_cast<GstSeekFlags>(GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_ACCURATE);
    GstEvent* seek = gst_event_new_seek(
        1.0, GST_FORMAT_TIME, flags, GST_SEEK_TYPE_SET, target * kUnit,
        stop < 0 ? GST_SEEK_TYPE_NONE : GST_SEEK_TYPE_SET, stop < 0 ? -1 : stop * kUnit);
    m_lastSeek = gst_event_get_seqnum(seek);
    if (!gst_element_send_event(m_pGraph, seek)) {
        m_lastSeek = 0;  // part of the graph may be there, and part may not
        return FailState(kUnknown);
    }
    m_position = target;
    m_stop = stop;
    m_ended = false;
    m_error = {};
    std::erase_if(m_events, [](const GraphEvent& event) { return event.code == EC_COMPLETE; });
    return S_OK;
}

// The end as it is after the last seek, not one that was reached before it. A parser of WAV files
// tells it under a number of its own, which is later than the seek's.
bool DShowHelper::IsPresentEnd(GstMessage* message) const {
    return m_lastSeek == 0 ||
           gst_util_seqnum_compare(gst_message_get_seqnum(message), m_lastSeek) >= 0;
}

// Sorts what the graph has reported since the last look.
void DShowHelper::TakeMessages() {
    while (const GstMessagePtr message = m_inbox->Take()) {
        switch (GST_MESSAGE_TYPE(message.get())) {
            case GST_MESSAGE_EOS:
                if (!IsPresentEnd(message.get())) break;
                m_ended = true;
                m_events.push_back({EC_COMPLETE, {}});
                break;
            case GST_MESSAGE_ERROR:
                TakeError(message.get());
                break;
            case GST_MESSAGE_LATENCY:
                gst_bin_recalculate_latency(GST_BIN(m_pGraph));
                break;
            case GST_MESSAGE_CLOCK_LOST:
                if (m_asked != 2) break;
                gst_element_set_state(m_pGraph, GST_STATE_PAUSED);
                gst_element_set_state(m_pGraph, GST_STATE_PLAYING);
                break;
            default:
                break;
        }
    }
}

void DShowHelper::TakeError(GstMessage* message) {
    if (m_error) return;  // what follows the first one is only its echo
    m_events.push_back(error_event(message, m_path));
    m_reason = m_error = m_events.back().reason;
}

bool DShowHelper::NextEvent(GraphEvent* event) {
    TakeMessages();
    if (m_events.empty()) return false;
    *event = std::move(m_events.front());
    m_events.pop_front();
    return true;
}

HRESULT DShowHelper::InsertSoundFilter() {
    if (!m_pGraph) return Fail(E_HANDLE);
    if (m_pSoundFilter) return S_FALSE;
    const GstElementPtr device(gst_bin_get_by_name(GST_BIN(m_pGraph), kAudioRendererName));
    if (!device) return Fail(E_FAIL, {ReasonCode::kNoAudioTrack, ReasonSide::kSource, m_path, {}});
    const GstPadPtr input(gst_element_get_static_pad(device.get(), kAudioRendererPin));
    const GstPadPtr upstream(gst_pad_get_peer(input.get()));
    const GstElementPtr effect = MakeSoundEffect();
    if (!upstream || !effect || !gst_bin_add(GST_BIN(m_pGraph), effect.get())) return Fail(E_FAIL);
    const GstPadPtr in(gst_element_get_static_pad(effect.get(), "sink"));
    const GstPadPtr out(gst_element_get_static_pad(effect.get(), "src"));
    gst_pad_unlink(upstream.get(), input.get());
    if (gst_pad_link(upstream.get(), in.get()) == GST_PAD_LINK_OK &&
        gst_pad_link(out.get(), input.get()) == GST_PAD_LINK_OK) {
        m_pSoundFilter = effect.get();
        return S_OK;
    }
    RemoveElement(m_pGraph, effect.get());
    gst_pad_link(upstream.get(), input.get());
    return Fail(E_FAIL);
}

HRESULT DShowHelper::RemoveSoundFilter() {
    if (!m_pGraph) return Fail(E_HANDLE);
    if (!m_pSoundFilter) return S_FALSE;
    GstElement* effect = std::exchange(m_pSoundFilter, nullptr);
    const GstPadPtr in(gst_element_get_static_pad(effect, "sink"));
    const GstPadPtr out(gst_element_get_static_pad(effect, "src"));
    const GstPadPtr upstream(gst_pad_get_peer(in.get()));
    const GstPadPtr input(gst_pad_get_peer(out.get()));
    RemoveElement(m_pGraph, effect);
    return gst_pad_link(upstream.get(), input.get()) == GST_PAD_LINK_OK ? S_OK : Fail(E_FAIL);
}

}  // namespace tarn

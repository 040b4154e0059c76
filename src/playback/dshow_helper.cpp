#include "playback/dshow_helper.h"

#include <algorithm>
#include <span>
#include <string_view>
#include <system_error>
#include <utility>

#include "playback/audio_renderer.h"
#include "playback/graph_worker.h"
#include "playback/sound_effect_element.h"
#include "playback/track_source.h"

namespace tarn {
namespace {

constexpr int64_t kUnit = 100;  // nanoseconds
const Reason kUnknown = {ReasonCode::kUnexpected, ReasonSide::kDevice, {}, {}};

int32_t from_gst(GstState state) {
    return state == GST_STATE_PLAYING ? 2 : state == GST_STATE_PAUSED ? 1 : 0;
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

DShowHelper::DShowHelper() = default;

DShowHelper::~DShowHelper() {
    DShowHelper::ReleaseGraph();
}

HRESULT DShowHelper::CreateGraph() {
    if (m_pGraph) return Fail(E_ACCESSDENIED);
    if (!StartGst()) return Fail(E_FAIL, {ReasonCode::kNoStart, ReasonSide::kDevice, {}, {}});
    m_reason = {};
    m_inbox = std::make_shared<GraphInbox>();
    GstElementPtr graph = MakeElement("pipeline");
    try {
        m_worker = std::make_unique<GraphWorker>(graph.get(), m_inbox);
    } catch (const std::system_error&) {  // no thread is left
        return Fail(E_OUTOFMEMORY);
    }
    m_pGraph = graph.release();
    m_pEvent = gst_element_get_bus(m_pGraph);
    GraphInbox::Attach(m_pEvent, m_inbox);
    return S_OK;
}

HRESULT DShowHelper::ReleaseGraph() {
    if (!m_pGraph) return S_OK;
    m_inbox->SetWindow(nullptr, 0, 0);
    m_pSoundFilter = nullptr;
    gst_object_unref(std::exchange(m_pEvent, nullptr));
    gst_object_unref(std::exchange(m_pGraph, nullptr));
    m_worker->Close(std::exchange(m_companion, nullptr));
    m_worker.reset();
    m_inbox.reset();
    m_events.clear();
    m_request = 0;
    m_arrived = true;
    m_asked = 0;
    m_pending = m_pendingStop = m_stop = -1;
    m_position = m_duration = 0;
    m_ended = false;
    m_error = {};
    m_path.clear();
    return S_OK;
}

int DShowHelper::GraphsLeftBehind() {
    return GraphWorker::LeftBehind();
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
    // On its way to a place it counts as being there.
    if (m_arrived && gst_element_query_position(m_pGraph, GST_FORMAT_TIME, &time))
        m_position = std::clamp<int64_t>(time / kUnit, 0, std::max<int64_t>(m_duration, 0));
    return m_position;
}

HRESULT DShowHelper::SetState(int32_t state) {
    if (!m_pGraph) return Fail(E_HANDLE);
    if (std::exchange(m_asked, state) != 0) {
        m_worker->SetState(state);
        return S_OK;
    }
    const GraphPlace place = {std::exchange(m_pending, -1), std::exchange(m_pendingStop, -1)};
    m_position = std::max<int64_t>(place.start, 0);
    m_stop = place.stop;
    m_arrived = false;
    m_worker->Start(++m_request, place, state);
    return S_OK;
}

HRESULT DShowHelper::GetState(int timeoutMs, int32_t* state) {
    if (!state) return Fail(E_POINTER);
    if (!m_pGraph) return Fail(E_HANDLE);
    const bool done = m_worker->Wait(timeoutMs);
    TakeMessages();
    if (done && m_worker->HasFailed()) {
        *state = 0;
        return FailState(kUnknown);
    }
    GstState current = GST_STATE_NULL;
    if (done) gst_element_get_state(m_pGraph, &current, nullptr, 0);
    *state = done ? from_gst(current) : m_asked;
    return done ? S_OK : VFW_S_STATE_INTERMEDIATE;
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
    m_position = target;
    m_stop = stop;
    m_arrived = m_ended = false;
    m_error = {};
    std::erase_if(m_events, [](const GraphEvent& event) { return event.code != EC_ERRORABORT; });
    m_worker->Seek(++m_request, {target, stop});
    return S_OK;
}

// Sorts what the graph has reported since the last look.
void DShowHelper::TakeMessages() {
    for (GraphNews news; m_inbox->Take(&news);) {
        // What was so before the newest request is no longer.
        const bool is_present = news.seek == m_request && !news.isStale;
        if (!news.message) {
            if (is_present) TakeRequest(news.failed);
        } else if (is_present || GST_MESSAGE_TYPE(news.message.get()) != GST_MESSAGE_EOS) {
            TakeMessage(news.message.get());
        }
    }
}

void DShowHelper::TakeMessage(GstMessage* message) {
    switch (GST_MESSAGE_TYPE(message)) {
        case GST_MESSAGE_EOS:
            TakeRequest(false);  // what has ended was there
            m_ended = true;
            m_events.push_back({EC_COMPLETE, {}});
            break;
        case GST_MESSAGE_ERROR:
            TakeError(error_event(message, m_path));
            break;
        case GST_MESSAGE_LATENCY:
            m_worker->RenewLatency();
            break;
        case GST_MESSAGE_CLOCK_LOST:
            m_worker->RenewClock();
            break;
        default:
            break;
    }
}

// A change of state has the number of the place before it, which was told already.
void DShowHelper::TakeRequest(bool failed) {
    if (failed) TakeError({EC_ERRORABORT, kUnknown});
    if (!failed && !m_arrived) m_events.push_back({EC_SEEK_COMPLETE, {}, m_request});
    m_arrived = true;
}

void DShowHelper::TakeError(GraphEvent event) {
    if (m_error) return;  // what follows the first one is only its echo
    m_reason = m_error = event.reason;
    m_events.push_back(std::move(event));
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

// dshow_helper.h - a graph and its control: what the player and the frame extractor are built on.
//
// Main thread only. The graph's own threads call nothing here but the notification's posting. But
// for opening no call waits for a medium: what may take long is made by a thread of the graph's
// own, and a graph that can't be stopped any more is left behind.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <string>

#include "base/reason.h"
#include "playback/gst_forward.h"
#include "playback/result_codes.h"

namespace tarn {

class GraphInbox;
class GraphWorker;

// A window that hears of a graph's events. It outlives the graph or is taken away from it first.
class INotifyWindow {
public:
    virtual ~INotifyWindow() = default;
    // From a thread of the graph's: queue it and return.
    virtual void PostMessage(uint32_t message, intptr_t parameter) = 0;
};

struct GraphEvent {
    int32_t code;          // EC_*
    Reason reason;         // of an error
    uint64_t request = 0;  // whose picture stands now
};

class DShowHelper {
public:
    DShowHelper();
    virtual ~DShowHelper();
    DShowHelper(const DShowHelper&) = delete;
    DShowHelper& operator=(const DShowHelper&) = delete;

    // E_ACCESSDENIED when there is a graph already, E_FAIL when GStreamer can't be started.
    virtual HRESULT CreateGraph();
    // Stops the graph and lets it go; without one nothing happens. One whose medium does not answer
    // is left behind: it ends when that does.
    virtual HRESULT ReleaseGraph();
    // Graphs of the whole program that were left behind and have not ended yet.
    static int GraphsLeftBehind();

    // Events are told there by this message; null ends it, and no call runs once this is back.
    HRESULT SetNotifyWindow(INotifyWindow* window, uint32_t message, intptr_t parameter);

    // 100-nanosecond units. E_HANDLE without a graph, E_POINTER without a place to put it.
    HRESULT GetPosition(int64_t* position);
    HRESULT GetDuration(int64_t* duration);
    // The number of the newest place that was asked for, the start included: once the picture (or
    // sound) of it stands, an event EC_SEEK_COMPLETE tells it. Replaced ones are never told.
    uint64_t LastRequest() const { return m_request; }

    // Puts the sound effect before the sound device. The graph must be built and stopped. A
    // graph without sound, or with one that the effect can't take, is left as it was: E_FAIL.
    HRESULT InsertSoundFilter();
    HRESULT RemoveSoundFilter();

    // Why the last call that failed did, or why playing ended; none for a new graph.
    const Reason& GetReason() const { return m_reason; }
    GstElement* Graph() const { return m_pGraph; }

protected:
    // What IMediaControl and IMediaSeeking do; see PlayerController. Requests, but for GetState.
    HRESULT SetState(int32_t state);
    HRESULT GetState(int timeoutMs, int32_t* state);
    HRESULT SetPositions(int64_t position, int64_t stop);
    GraphWorker& Worker() { return *m_worker; }
    // The next event of the graph without waiting; false when none is left.
    bool NextEvent(GraphEvent* event);
    bool HasEnded() const { return m_ended; }
    bool IsStarted() const { return m_asked != 0; }
    // Keeps the reason and passes the result on. A failure without one is the caller's mistake, or
    // a lack of memory.
    HRESULT Fail(HRESULT result, const Reason& reason);
    HRESULT Fail(HRESULT result);
    // The graph does not follow: for the reason that it has told, else for this one.
    HRESULT FailState(const Reason& otherwise);

    GstElement* m_pGraph = nullptr;
    GstBus* m_pEvent = nullptr;
    GstElement* m_pSoundFilter = nullptr;  // in the graph; null without sound treatment
    int64_t m_duration = 0;                // 100-nanosecond units
    std::string m_path;                    // of the clip
    std::shared_ptr<void> m_companion;     // what the graph uses to its end, given on release

private:
    void TakeMessages();
    void TakeMessage(GstMessage* message);
    void TakeRequest(bool failed);
    void TakeError(GraphEvent event);
    int64_t AskPosition();

    std::shared_ptr<GraphInbox> m_inbox;
    std::unique_ptr<GraphWorker> m_worker;  // as long as there is a graph
    std::deque<GraphEvent> m_events;
    uint64_t m_request = 0;  // the newest place that the graph was given
    bool m_arrived = true;   // it is there
    int32_t m_asked = 0;     // the state that was last set
    // Where to start and stop once the graph has been started; -1 for nowhere.
    int64_t m_pending = -1, m_pendingStop = -1;
    int64_t m_position = 0;  // the last that the graph told, or that was asked for
    int64_t m_stop = -1;     // where playing ends; -1 for the end of the clip
    bool m_ended = false;    // all has been played
    Reason m_error;          // the first that the graph has told since the last seek
    Reason m_reason;
};

}  // namespace tarn

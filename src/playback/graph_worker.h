// graph_worker.h - makes the calls to a graph that may have to wait for its medium, in a thread of
// their own.
//
// The main thread asks and goes on. A seek that is asked for while one is under way waits for it,
// and only the newest waits. Once the medium does not answer any more, neither does the thread:
// Close then leaves it behind, with all that it uses.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "playback/graph_inbox.h"
#include "playback/picture_gate.h"

namespace tarn {

// Where to play from and to, 100-nanosecond units; -1 for nowhere.
struct GraphPlace {
    int64_t start = -1, stop = -1;
};

class GraphWorker {
public:
    // Takes over the graph, stopped as it is.
    GraphWorker(GstElement* graph, std::shared_ptr<GraphInbox> inbox);
    ~GraphWorker() { Close(nullptr); }
    GraphWorker(const GraphWorker&) = delete;
    GraphWorker& operator=(const GraphWorker&) = delete;

    // Where the picture comes from; null for a graph without one.
    void SetGate(std::shared_ptr<PictureGate> gate);
    // Numbers count up from 1; the inbox hears under them that the picture stands. The first
    // request starts the graph, at that place, in state 1 (paused) or 2 (running).
    void Start(uint64_t number, const GraphPlace& place, int32_t state);
    void Seek(uint64_t number, const GraphPlace& place);
    void SetState(int32_t state);
    // Something else that may have to wait for the medium, before what comes with it. It owns what
    // it uses; a newer one takes the place of one that waits.
    void Run(std::function<void()> errand);
    // The sound device keeps another time now, or needs another.
    void RenewClock();
    void RenewLatency();

    // Until all that was asked for is done, so long at most. False when it still isn't.
    bool Wait(int timeout_ms) const;
    // The last request came to nothing.
    bool HasFailed() const;

    // Stops the graph and lets go of it, and of `companion`, which it needs to its end. What does
    // not end soon is left behind. Once.
    void Close(std::shared_ptr<void> companion);
    // Threads that were left behind and have not ended yet.
    static int LeftBehind();

private:
    struct Core;
    void Ask(const std::function<void(Core*)>& request);

    std::shared_ptr<Core> m_core;  // shared with the thread
};

}  // namespace tarn

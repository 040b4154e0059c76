// graph_inbox.h - what a graph reports, from the threads in which it comes up to the main thread.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>

#include "playback/dshow_helper.h"
#include "playback/gst_handles.h"

namespace tarn {

// One thing that has happened.
struct GraphNews {
    GstMessagePtr message;  // null: a seek of ours is done
    bool failed = false;    // that seek, or another request
    uint64_t seek = 0;      // the last one that the graph had been given by then
    bool isStale = false;   // an end from before that seek
};

// Lives as long as the graph does, which may be longer than the player.
class GraphInbox {
public:
    // In the place of the bus's own queue: a message gets into that only after the handler, when
    // the window has been told and may have looked in vain.
    static void Attach(GstBus* bus, const std::shared_ptr<GraphInbox>& inbox);

    // Null ends it, and no call runs once this is back.
    void SetWindow(INotifyWindow* window, uint32_t message, intptr_t parameter);
    // What comes from now on belongs to that seek, and ends with an older mark to none.
    void BeginSeek(uint64_t seek, uint32_t mark);
    void EndSeek(uint64_t seek, bool failed);
    // An error was reported since the last seek began.
    bool HasError() const;
    // The oldest; false when there is none.
    bool Take(GraphNews* news);

private:
    static GstBusSyncReply Handle(GstBus* bus, GstMessage* message, gpointer inbox);
    void Put(GraphNews news);

    mutable std::mutex m_lock;
    std::deque<GraphNews> m_news;
    uint64_t m_seek = 0;
    uint32_t m_mark = 0;  // of the events that the seek causes; 0: any
    bool m_error = false;
    std::mutex m_windowLock;  // held during a call, so that the last one ends before a null returns
    INotifyWindow* m_window = nullptr;
    uint32_t m_message = 0;
    intptr_t m_parameter = 0;
};

}  // namespace tarn

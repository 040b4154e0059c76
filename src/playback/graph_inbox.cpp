#include "playback/graph_inbox.h"

#include <utility>

namespace tarn {
namespace {

using Keeper = std::shared_ptr<GraphInbox>;

bool concerns_us(const GstMessage* message) {
    const GstMessageType types = static_cast<GstMessageType>(
        GST_MESSAGE_EOS | GST_MESSAGE_ERROR | GST_MESSAGE_CLOCK_LOST | GST_MESSAGE_LATENCY);
    return (GST_MESSAGE_TYPE(message) & types) != 0;
}

}  // namespace

void GraphInbox::Attach(GstBus* bus, const std::shared_ptr<GraphInbox>& inbox) {
    gst_bus_set_sync_handler(
        bus, Handle, std::make_unique<Keeper>(inbox).release(),
        [](gpointer keeper) { const std::unique_ptr<Keeper> owner(static_cast<Keeper*>(keeper)); });
}

GstBusSyncReply GraphInbox::Handle(GstBus*, GstMessage* message, gpointer inbox) {
    GraphNews news;
    news.message.reset(message);
    // What nobody asks for must not pile up.
    if (concerns_us(message)) (*static_cast<Keeper*>(inbox))->Put(std::move(news));
    return GST_BUS_DROP;
}

void GraphInbox::SetWindow(INotifyWindow* window, uint32_t message, intptr_t parameter) {
    const std::lock_guard lock(m_windowLock);
    m_window = window;
    m_message = message;
    m_parameter = parameter;
}

void GraphInbox::BeginSeek(uint64_t seek, uint32_t mark) {
    const std::lock_guard lock(m_lock);
    m_seek = seek;
    m_mark = mark;
    m_error = false;
}

void GraphInbox::EndSeek(uint64_t seek, bool failed) {
    if (failed) BeginSeek(seek, 0);  // part of the graph may be there, and part may not
    GraphNews news;
    news.failed = failed;
    Put(std::move(news));
}

bool GraphInbox::HasError() const {
    const std::lock_guard lock(m_lock);
    return m_error;
}

bool GraphInbox::Take(GraphNews* news) {
    const std::lock_guard lock(m_lock);
    if (m_news.empty()) return false;
    *news = std::move(m_news.front());
    m_news.pop_front();
    return true;
}

// The end as it is after the last seek, not one that was reached before it. A parser of WAV files
// tells it under a number of its own, which is later than the seek's.
void GraphInbox::Put(GraphNews news) {
    {
        const std::lock_guard lock(m_lock);
        news.seek = m_seek;
        if (news.message) {
            GstMessage* message = news.message.get();
            m_error |= GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR;
            news.isStale =
                m_mark != 0 && gst_util_seqnum_compare(gst_message_get_seqnum(message), m_mark) < 0;
        }
        m_news.push_back(std::move(news));
    }
    const std::lock_guard lock(m_windowLock);
    if (m_window) m_window->PostMessage(m_message, m_parameter);
}

}  // namespace tarn

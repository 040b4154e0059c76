#include "playback/graph_worker.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

#include "playback/track_source.h"

namespace tarn {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int64_t kUnit = 100;  // nanoseconds
// A picture that takes longer gives way to a newer request with what has been decoded of it.
constexpr milliseconds kHurryAfter{100};
// A graph that shows nothing at all, not even that.
constexpr milliseconds kGiveUpAfter{2000};
constexpr GstClockTime kGlance = 5 * GST_MSECOND;
// To stop a graph takes a few hundredths of a second.
constexpr milliseconds kClosingTime{200};

std::atomic<int> g_leftBehind{0};

GstState to_gst(int32_t state) {
    return state == 2 ? GST_STATE_PLAYING : state == 1 ? GST_STATE_PAUSED : GST_STATE_READY;
}

struct Job {
    uint64_t seek = 0;  // its number; 0: none
    GraphPlace place;
    int32_t state = -1;  // -1: as it is
    bool isStart = false, renewsClock = false, renewsLatency = false;
    std::function<void()> errand;

    bool IsEmpty() const {
        return seek == 0 && state < 0 && !isStart && !renewsClock && !renewsLatency && !errand;
    }
};

}  // namespace

struct GraphWorker::Core {
    void Run();
    void End();
    std::optional<Job> NextJob();
    bool Do(const Job& job);
    bool StartAt(const Job& job);
    bool SendSeek(uint64_t number, GraphPlace to);
    bool Set(int32_t state);
    bool Settle(uint64_t seek);
    bool GoOn(const Job& job);
    bool Step();
    bool SetNewState();
    // A newer seek, or the end, waits.
    bool IsWanted();
    bool IsClosing();
    std::shared_ptr<PictureGate> Gate();

    GstElementPtr graph;
    std::shared_ptr<GraphInbox> inbox;
    std::thread thread;

    std::mutex lock;
    std::condition_variable asked, done;
    std::shared_ptr<PictureGate> gate;
    std::shared_ptr<void> companion;
    Job next;
    bool busy = false, failed = false, closing = false, closed = false, left = false;

    // The thread's own.
    int32_t state = 0;
    uint64_t seeking = 0;
    GraphPlace place;        // that was sought last
    bool is_on_way = false;  // what is shown is another picture
};

// One more request, or nothing when the graph is to end.
std::optional<Job> GraphWorker::Core::NextJob() {
    std::unique_lock guard(lock);
    asked.wait(guard, [this] { return closing || !next.IsEmpty(); });
    if (closing) return std::nullopt;
    busy = true;
    return std::exchange(next, {});
}

bool GraphWorker::Core::IsClosing() {
    const std::lock_guard guard(lock);
    return closing;
}

bool GraphWorker::Core::IsWanted() {
    const std::lock_guard guard(lock);
    return closing || next.seek != 0;
}

void GraphWorker::Core::Run() {
    while (const std::optional<Job> job = NextJob()) {
        const bool good = Do(*job);
        {
            const std::lock_guard guard(lock);
            failed = !good;
            busy = false;
        }
        if (job->seek != 0 || !good) inbox->EndSeek(seeking, !good);
        done.notify_all();
    }
    End();
}

void GraphWorker::Core::End() {
    gst_element_set_state(graph.get(), GST_STATE_NULL);
    const GstBusPtr bus(gst_element_get_bus(graph.get()));
    gst_bus_set_sync_handler(bus.get(), nullptr, nullptr, nullptr);
    // It takes its part out of the graph.
    companion.reset();
    graph.reset();
    const std::lock_guard guard(lock);
    closed = true;
    if (left) --g_leftBehind;
    done.notify_all();
}

bool GraphWorker::Core::Do(const Job& job) {
    if (job.errand) job.errand();
    if (job.renewsLatency) gst_bin_recalculate_latency(GST_BIN(graph.get()));
    if (job.renewsClock && state == 2 && !(Set(1) && Set(2))) return false;
    if (job.isStart) return StartAt(job);
    if (GoOn(job)) return true;
    if (job.seek != 0 && !SendSeek(job.seek, job.place)) return false;
    if (job.state >= 0 && !Set(job.state)) return false;
    return state == 0 || Settle(job.seek);
}

// A stop, and a place in sources of others, can only be given once they have got data.
bool GraphWorker::Core::StartAt(const Job& job) {
    GraphPlace start = job.place;
    place = {std::max<int64_t>(start.start, 0), start.stop};
    seeking = job.seek;
    inbox->BeginSeek(job.seek, 0);
    if (start.start > 0 && start.stop < 0 && StartTracksAt(graph.get(), start.start * kUnit))
        start.start = -1;
    const bool seek = start.start > 0 || start.stop >= 0;
    if (!Set(seek ? 1 : job.state) || !Settle(job.seek)) return false;
    if (!seek) return true;
    return SendSeek(job.seek, place) && Set(job.state) && Settle(job.seek);
}

bool GraphWorker::Core::SendSeek(uint64_t number, GraphPlace to) {
    const auto flags = static_cast<GstSeekFlags>(GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_ACCURATE);
    GstEvent* seek = gst_event_new_seek(
        1.0, GST_FORMAT_TIME, flags, GST_SEEK_TYPE_SET, to.start * kUnit,
        to.stop < 0 ? GST_SEEK_TYPE_NONE : GST_SEEK_TYPE_SET, to.stop < 0 ? -1 : to.stop * kUnit);
    seeking = number;
    place = to;
    is_on_way = false;
    inbox->BeginSeek(number, gst_event_get_seqnum(seek));
    return gst_element_send_event(graph.get(), seek);
}

bool GraphWorker::Core::Set(int32_t to) {
    state = to;
    return gst_element_set_state(graph.get(), to_gst(to)) != GST_STATE_CHANGE_FAILURE;
}

// A pause doesn't wait for a picture, nor does its end, but for the place where that is to be.
bool GraphWorker::Core::SetNewState() {
    int32_t to = -1;
    {
        const std::lock_guard guard(lock);
        if (next.state == 1 || next.seek == 0) to = std::exchange(next.state, -1);
    }
    return to < 0 || Set(to);
}

// Waits until the picture stands and the sound is there. A newer seek has patience for a moment,
// so that pictures appear while many come; then it takes what there is.
bool GraphWorker::Core::Settle(uint64_t seek) {
    const Clock::time_point start = Clock::now();
    bool hurried = false;
    for (;;) {
        const GstStateChangeReturn result =
            gst_element_get_state(graph.get(), nullptr, nullptr, kGlance);
        if (result == GST_STATE_CHANGE_FAILURE || inbox->HasError()) return false;
        if (!SetNewState()) return false;
        if (result != GST_STATE_CHANGE_ASYNC) return true;
        if (!IsWanted()) continue;
        const auto taken = Clock::now() - start;
        if (IsClosing() || taken > kGiveUpAfter) return true;
        if (hurried || seek == 0 || taken < kHurryAfter) continue;
        hurried = is_on_way = true;
        if (const std::shared_ptr<PictureGate> way = Gate()) way->Hurry();
    }
}

// While one request follows the other, a picture nearer to the newest one: the decoder goes on
// where it is instead of beginning once more. True when that was all that was needed.
bool GraphWorker::Core::GoOn(const Job& job) {
    if (job.seek == 0 || job.state >= 0 || state != 1 || !is_on_way) return false;
    const std::shared_ptr<PictureGate> way = Gate();
    if (!way || !way->GoOn((job.place.start - place.start) * kUnit) || !Step()) return false;
    const Clock::time_point start = Clock::now();
    while (gst_element_get_state(graph.get(), nullptr, nullptr, kGlance) ==
           GST_STATE_CHANGE_ASYNC) {
        const auto taken = Clock::now() - start;
        if (inbox->HasError() || taken > kGiveUpAfter) return false;
        if (IsClosing()) return true;
        if (taken > kHurryAfter) way->Hurry();
    }
    return IsWanted();
}

// To the next picture that comes.
bool GraphWorker::Core::Step() {
    for (const char* name : {"EVR", "VMR-9", "VMR-7"}) {
        const GstElementPtr screen(gst_bin_get_by_name(GST_BIN(graph.get()), name));
        if (screen)
            return gst_element_send_event(
                screen.get(), gst_event_new_step(GST_FORMAT_BUFFERS, 1, 1.0, TRUE, FALSE));
    }
    return false;
}

std::shared_ptr<PictureGate> GraphWorker::Core::Gate() {
    const std::lock_guard guard(lock);
    return gate;
}

GraphWorker::GraphWorker(GstElement* graph, std::shared_ptr<GraphInbox> inbox)
    : m_core(std::make_shared<Core>()) {
    m_core->graph.reset(GST_ELEMENT(gst_object_ref(graph)));
    m_core->inbox = std::move(inbox);
    m_core->thread = std::thread([core = m_core] { core->Run(); });
}

void GraphWorker::Ask(const std::function<void(Core*)>& request) {
    const std::lock_guard guard(m_core->lock);
    request(m_core.get());
    m_core->asked.notify_one();
}

void GraphWorker::SetGate(std::shared_ptr<PictureGate> gate) {
    const std::lock_guard guard(m_core->lock);
    m_core->gate = std::move(gate);
}

void GraphWorker::Start(uint64_t number, const GraphPlace& place, int32_t state) {
    Ask([&](Core* core) {
        core->next.seek = number;
        core->next.place = place;
        core->next.state = state;
        core->next.isStart = true;
    });
}

void GraphWorker::SetState(int32_t state) {
    Ask([&](Core* core) { core->next.state = state; });
}

void GraphWorker::Seek(uint64_t number, const GraphPlace& place) {
    Ask([&](Core* core) {
        core->next.seek = number;
        core->next.place = place;
    });
}

void GraphWorker::Run(std::function<void()> errand) {
    Ask([&](Core* core) { core->next.errand = std::move(errand); });
}

void GraphWorker::RenewClock() {
    Ask([](Core* core) { core->next.renewsClock = true; });
}

void GraphWorker::RenewLatency() {
    Ask([](Core* core) { core->next.renewsLatency = true; });
}

bool GraphWorker::Wait(int timeout_ms) const {
    std::unique_lock guard(m_core->lock);
    return m_core->done.wait_for(guard, milliseconds(timeout_ms),
                                 [this] { return !m_core->busy && m_core->next.IsEmpty(); });
}

bool GraphWorker::HasFailed() const {
    const std::lock_guard guard(m_core->lock);
    return m_core->failed;
}

void GraphWorker::Close(std::shared_ptr<void> companion) {
    const std::shared_ptr<Core> core = std::move(m_core);
    if (!core) return;
    std::unique_lock guard(core->lock);
    core->companion = std::move(companion);
    core->closing = true;
    core->asked.notify_one();
    if (core->done.wait_for(guard, kClosingTime, [&] { return core->closed; })) {
        guard.unlock();
        core->thread.join();
        return;
    }
    core->left = true;
    ++g_leftBehind;
    core->thread.detach();
}

int GraphWorker::LeftBehind() {
    return g_leftBehind;
}

}  // namespace tarn

// xp_thread.h - a worker thread that can be asked to stop and never outlives its owner.
//
// The body watches the stop token it gets; the destructor asks it to stop and waits for it. All
// functions belong to the owner's thread.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <stop_token>
#include <string>
#include <thread>

namespace tarn {

class XpThread {
public:
    using Body = std::function<void(std::stop_token)>;

    XpThread() = default;
    XpThread(const XpThread&) = delete;
    XpThread& operator=(const XpThread&) = delete;

    // EBUSY while an earlier body runs; EAGAIN when the system has no thread left. `name` shows in
    // debuggers, its first 15 bytes.
    [[nodiscard]] int Start(const std::string& name, Body body);
    bool IsRunning() const { return m_running && *m_running; }
    void RequestStop() { m_thread.request_stop(); }
    // Waits for the body to return. Nothing to wait for is fine.
    void Join();

private:
    std::shared_ptr<std::atomic<bool>> m_running;  // the thread's own share: the body's last act
    std::jthread m_thread;
};

}  // namespace tarn

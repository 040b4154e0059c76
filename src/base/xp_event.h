// xp_event.h - one thread waits until another says "now".
//
// Any number of threads may call any function at the same time. What happened before Set is seen
// by the thread whose Wait it ends.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace tarn {

class XpEvent {
public:
    enum class Reset {
        kManual,     // stays set, and lets every thread through, until Clear
        kAutomatic,  // lets one thread through and is clear again
    };

    explicit XpEvent(Reset reset = Reset::kManual) : m_reset(reset) {}

    void Set();
    void Clear();
    void Wait();
    // False when the time is over first. A time of zero only looks.
    [[nodiscard]] bool WaitFor(std::chrono::milliseconds time);

private:
    void Pass();

    const Reset m_reset;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_set = false;
};

}  // namespace tarn

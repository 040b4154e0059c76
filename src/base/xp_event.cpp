#include "base/xp_event.h"

namespace tarn {

void XpEvent::Set() {
    // Told under the lock: the waiting thread may delete the event as soon as it is through.
    const std::lock_guard lock(m_mutex);
    m_set = true;
    if (m_reset == Reset::kManual)
        m_changed.notify_all();
    else
        m_changed.notify_one();
}

void XpEvent::Clear() {
    const std::lock_guard lock(m_mutex);
    m_set = false;
}

void XpEvent::Wait() {
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [this] { return m_set; });
    Pass();
}

bool XpEvent::WaitFor(std::chrono::milliseconds time) {
    std::unique_lock lock(m_mutex);
    if (!m_changed.wait_for(lock, time, [this] { return m_set; })) return false;
    Pass();
    return true;
}

void XpEvent::Pass() {
    if (m_reset == Reset::kAutomatic) m_set = false;
}

}  // namespace tarn

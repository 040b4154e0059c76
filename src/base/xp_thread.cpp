#include "base/xp_thread.h"

#include <pthread.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace tarn {

int XpThread::Start(const std::string& name, Body body) {
    if (IsRunning()) return EBUSY;
    Join();
    auto running = std::make_shared<std::atomic<bool>>(true);
    try {
        m_thread = std::jthread([running, body = std::move(body)](const std::stop_token& stop) {
            body(stop);
            *running = false;
        });
    } catch (const std::system_error& error) {
        return error.code().value();
    }
    m_running = std::move(running);
    pthread_setname_np(m_thread.native_handle(), name.substr(0, 15).c_str());
    return 0;
}

void XpThread::Join() {
    if (m_thread.joinable()) m_thread.join();
}

}  // namespace tarn

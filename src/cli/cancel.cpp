#include "cli/cancel.h"

namespace tarn {
namespace {

volatile sig_atomic_t g_requested = 0;

void request(int) {
    g_requested = 1;
}

}  // namespace

CancelOnSignals::CancelOnSignals() {
    g_requested = 0;
    for (const int number : {SIGINT, SIGTERM, SIGHUP})
        Set(number, request);
    for (const int number : {SIGXFSZ, SIGPIPE})
        Set(number, SIG_IGN);
}

CancelOnSignals::~CancelOnSignals() {
    for (const Before& before : m_before)
        sigaction(before.number, &before.action, nullptr);
}

bool CancelOnSignals::Requested() const {
    return g_requested != 0;
}

void CancelOnSignals::Set(int number, void (*handler)(int)) {
    Before before{number, {}};
    if (sigaction(number, nullptr, &before.action) != 0) return;
    // A program that was told to outlive its terminal goes on doing so.
    if (number == SIGHUP && before.action.sa_handler == SIG_IGN) return;
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    if (sigaction(number, &action, nullptr) == 0) m_before.push_back(before);
}

}  // namespace tarn

#include "cli/cancel.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cstdio>

#include "cli/commands.h"

namespace tarn {
namespace {

constexpr int kPatienceMs = 150;

// Nothing is unwound: an output has no name yet, or one that the next save takes away.
[[noreturn]] void leave() {
    const char* const after_bar = isatty(STDERR_FILENO) == 1 ? "\n" : "";
    // Past the stream, which stuck work may hold.
    dprintf(STDERR_FILENO, "%starn: cancelled; what was not finished is not there\n", after_bar);
    _exit(kExitFailed);
}

}  // namespace

CancelOnSignals::CancelOnSignals() {
    for (const int number : {SIGXFSZ, SIGPIPE})
        Ignore(number);
    sigset_t wishes;
    sigemptyset(&wishes);
    sigaddset(&wishes, SIGINT);
    sigaddset(&wishes, SIGTERM);
    // A program that was told to outlive its terminal goes on doing so.
    struct sigaction hangup {};
    if (sigaction(SIGHUP, nullptr, &hangup) == 0 && hangup.sa_handler != SIG_IGN)
        sigaddset(&wishes, SIGHUP);

    pthread_sigmask(SIG_BLOCK, &wishes, &m_maskBefore);
    m_signals.Adopt(signalfd(-1, &wishes, SFD_CLOEXEC));
    m_end.Adopt(eventfd(0, EFD_CLOEXEC));
    const bool watched = m_signals.IsOpen() && m_end.IsOpen() &&
                         m_thread.Start("tarn-signals", [this](std::stop_token) { Watch(); }) == 0;
    // Where nobody listens, they end the program as ever.
    if (!watched) pthread_sigmask(SIG_SETMASK, &m_maskBefore, nullptr);
}

CancelOnSignals::~CancelOnSignals() {
    const uint64_t one = 1;
    uint64_t done = 0;
    if (m_end.IsOpen()) static_cast<void>(m_end.Write(&one, sizeof one, &done));
    m_thread.Join();
    pthread_sigmask(SIG_SETMASK, &m_maskBefore, nullptr);
    for (const Before& before : m_before)
        sigaction(before.number, &before.action, nullptr);
}

void CancelOnSignals::Watch() {
    int patience = -1;  // for ever, until the first signal
    for (;;) {
        pollfd files[] = {{m_end.Descriptor(), POLLIN, 0}, {m_signals.Descriptor(), POLLIN, 0}};
        const int ready = poll(files, 2, patience);
        if (ready < 0) continue;
        if (files[0].revents != 0) return;
        if (ready == 0 || m_requested) leave();
        signalfd_siginfo taken{};
        uint64_t done = 0;
        static_cast<void>(m_signals.Read(&taken, sizeof taken, &done));
        m_requested = true;
        patience = kPatienceMs;
    }
}

void CancelOnSignals::Ignore(int number) {
    Before before{number, {}};
    struct sigaction action {};
    action.sa_handler = SIG_IGN;
    sigemptyset(&action.sa_mask);
    if (sigaction(number, &action, &before.action) == 0) m_before.push_back(before);
}

}  // namespace tarn

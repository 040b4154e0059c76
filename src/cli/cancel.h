// cancel.h - Ctrl-C and its like as a wish to stop, for work that has something to clean up.
#pragma once

#include <signal.h>

#include <atomic>
#include <vector>

#include "base/xp_file.h"
#include "base/xp_thread.h"

namespace tarn {

// While it lives, an interrupt, a termination and a lost terminal are a wish to stop instead of the
// program's end, and writing too large a file or into a closed pipe is an error instead of its end.
// Work that does not hear the wish in time, because a file does not open or answer, is ended all
// the same, and a second signal ends it at once: with one line and the status of a failure.
//
// One at a time, made on the main thread before the work has threads.
class CancelOnSignals {
public:
    CancelOnSignals();
    ~CancelOnSignals();
    CancelOnSignals(const CancelOnSignals&) = delete;
    CancelOnSignals& operator=(const CancelOnSignals&) = delete;

    // On any thread.
    bool Requested() const { return m_requested; }

private:
    struct Before {
        int number;
        struct sigaction action;
    };
    void Ignore(int number);
    void Watch();

    std::vector<Before> m_before;
    sigset_t m_maskBefore{};
    XpFile m_signals, m_end;  // what the watching thread waits for
    std::atomic<bool> m_requested{false};
    XpThread m_thread;
};

}  // namespace tarn

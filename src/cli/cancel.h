// cancel.h - Ctrl-C and its like as a wish to stop, for work that has something to clean up.
#pragma once

#include <signal.h>

#include <vector>

namespace tarn {

// While it lives, an interrupt, a termination and a lost terminal set a flag instead of ending the
// program, and writing too large a file or into a closed pipe is an error instead of its end.
// One at a time, on the main thread.
class CancelOnSignals {
public:
    CancelOnSignals();
    ~CancelOnSignals();
    CancelOnSignals(const CancelOnSignals&) = delete;
    CancelOnSignals& operator=(const CancelOnSignals&) = delete;

    bool Requested() const;

private:
    struct Before {
        int number;
        struct sigaction action;
    };
    void Set(int number, void (*handler)(int));

    std::vector<Before> m_before;
};

}  // namespace tarn

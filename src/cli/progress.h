// progress.h - a progress bar on standard error, where that is a terminal.
#pragma once

#include <cstdint>

namespace tarn {

class ProgressBar {
public:
    ProgressBar();
    // Takes the bar away again.
    ~ProgressBar();
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    // A total of 0 is 0 percent.
    void Show(uint64_t done, uint64_t total);

private:
    bool m_terminal;
    int m_percent = -1;  // as shown
};

}  // namespace tarn

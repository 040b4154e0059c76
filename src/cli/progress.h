// progress.h - a progress bar on standard error, where that is a terminal; after some seconds with
// the time that is still to go.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

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
    std::string Remaining(double part) const;

    std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
    bool m_terminal;
    int m_percent = -1;  // as shown
};

}  // namespace tarn

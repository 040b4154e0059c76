#include "cli/progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>

namespace tarn {
namespace {

constexpr int kWidth = 40;

}  // namespace

ProgressBar::ProgressBar() : m_terminal(isatty(STDERR_FILENO) == 1) {}

ProgressBar::~ProgressBar() {
    if (m_percent >= 0) std::fprintf(stderr, "\r%*s\r", kWidth + 8, "");
}

void ProgressBar::Show(uint64_t done, uint64_t total) {
    const double part = total == 0 ? 0.0 : static_cast<double>(done) / static_cast<double>(total);
    const int percent = static_cast<int>(std::min(part, 1.0) * 100);
    if (!m_terminal || percent == m_percent) return;
    m_percent = percent;
    const std::string filled(static_cast<size_t>(percent * kWidth / 100), '#');
    std::fprintf(stderr, "\r[%-*s] %3d %%", kWidth, filled.c_str(), percent);
}

}  // namespace tarn

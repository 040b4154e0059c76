#include "cli/progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>

namespace tarn {
namespace {

constexpr int kWidth = 40;
constexpr int kAfter = 24;      // columns for percent and remaining time
constexpr double kSettled = 5;  // seconds before a guess is worth showing

}  // namespace

ProgressBar::ProgressBar() : m_terminal(isatty(STDERR_FILENO) == 1) {}

ProgressBar::~ProgressBar() {
    if (m_percent >= 0) std::fprintf(stderr, "\r%*s\r", kWidth + 2 + kAfter, "");
}

void ProgressBar::Show(uint64_t done, uint64_t total) {
    const double part = total == 0 ? 0.0 : static_cast<double>(done) / static_cast<double>(total);
    const int percent = static_cast<int>(std::min(part, 1.0) * 100);
    if (!m_terminal || percent == m_percent) return;
    m_percent = percent;
    const std::string filled(static_cast<size_t>(percent * kWidth / 100), '#');
    const std::string after = std::to_string(percent) + " %" + Remaining(part);
    std::fprintf(stderr, "\r[%-*s] %-*s", kWidth, filled.c_str(), kAfter - 1, after.c_str());
}

std::string ProgressBar::Remaining(double part) const {
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - m_start;
    if (taken.count() < kSettled || part <= 0) return {};
    const auto left = static_cast<uint64_t>(taken.count() * (1 - part) / part) + 1;
    if (left < 60) return ", " + std::to_string(left) + " s left";
    return ", " + std::to_string(left / 60) + " min left";
}

}  // namespace tarn

#include "ProgressBar.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <utility>

namespace Korvel {

namespace {

constexpr std::chrono::milliseconds DelayBeforeShowing{1000};
constexpr std::chrono::milliseconds DrawingInterval{100};
constexpr int BarColumns = 40;
constexpr const char* EraseLine = "\r\033[K";

}  // namespace

ProgressBar::ProgressBar(std::string title)
    : m_title(std::move(title)),
      m_nextDrawing(Clock::now() + DelayBeforeShowing),
      m_isTerminal(isatty(STDERR_FILENO) == 1) {}

ProgressBar::~ProgressBar() {
    if (m_isShown) std::fputs(EraseLine, stderr);
}

void ProgressBar::update(double fraction) {
    if (!isDue()) return;
    fraction = std::clamp(fraction, 0.0, 1.0);
    const auto full = static_cast<std::size_t>(fraction * BarColumns);
    update(fmt::format("[{}{}] {:3.0f} %", std::string(full, '#'),
                       std::string(BarColumns - full, ' '), fraction * 100));
}

void ProgressBar::update(const std::string& text) {
    m_nextDrawing = Clock::now() + DrawingInterval;
    m_isShown = true;
    fmt::print(stderr, "{}{} {}", EraseLine, m_title, text);
    std::fflush(stderr);
}

}  // namespace Korvel

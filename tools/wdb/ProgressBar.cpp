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
    if (!m_isTerminal || Clock::now() < m_nextDrawing) return;
    m_nextDrawing = Clock::now() + DrawingInterval;
    m_isShown = true;
    fraction = std::clamp(fraction, 0.0, 1.0);
    const auto full = static_cast<std::size_t>(fraction * BarColumns);
    fmt::print(stderr, "\r{} [{}{}] {:3.0f} %", m_title, std::string(full, '#'),
               std::string(BarColumns - full, ' '), fraction * 100);
    std::fflush(stderr);
}

}  // namespace Korvel

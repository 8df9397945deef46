#pragma once

#include <chrono>
#include <string>

namespace Korvel {

/// A line on the terminal that shows how far a long operation has come. It appears only when
/// standard error is a terminal and the operation has taken more than a second, and is gone when
/// the bar is.
class ProgressBar {
public:
    /// @param title  What is being done, in a word or two.
    explicit ProgressBar(std::string title);
    ~ProgressBar();
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    /// @param fraction  0 to 1. Cheap: draws a few times a second at most.
    void update(double fraction);

    /// Whether it would be drawn now. Cheap.
    bool isDue() const { return m_isTerminal && Clock::now() >= m_nextDrawing; }
    /// Draws it with a text, where nobody knows how long it will take. For when it is due.
    void update(const std::string& text);

private:
    using Clock = std::chrono::steady_clock;

    std::string m_title;
    Clock::time_point m_nextDrawing;
    bool m_isTerminal;
    bool m_isShown = false;
};

}  // namespace Korvel

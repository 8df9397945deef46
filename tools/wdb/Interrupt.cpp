#include "Interrupt.h"

namespace Korvel {

volatile std::sig_atomic_t Interrupt::s_count = 0;

namespace {

constexpr int SignalsUntilTheEnd = 3;

}  // namespace

Interrupt::Interrupt(Waiting waiting) {
    s_count = 0;
    struct sigaction action {};
    action.sa_handler = &Interrupt::handle;
    sigemptyset(&action.sa_mask);
    if (waiting == Waiting::GoesOn) action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, &m_oldInterrupt);
    sigaction(SIGTERM, &action, &m_oldTermination);
    sigaction(SIGHUP, &action, &m_oldHangup);
}

Interrupt::~Interrupt() {
    sigaction(SIGINT, &m_oldInterrupt, nullptr);
    sigaction(SIGTERM, &m_oldTermination, nullptr);
    sigaction(SIGHUP, &m_oldHangup, nullptr);
}

bool Interrupt::acknowledge() {
    const bool wasRequested = isRequested();
    s_count = 0;
    return wasRequested;
}

void Interrupt::handle(int signal) {
    s_count = s_count + 1;
    if (s_count < SignalsUntilTheEnd) return;
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

}  // namespace Korvel

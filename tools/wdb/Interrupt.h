#pragma once

#include <csignal>

namespace Korvel {

/// While one lives, SIGINT, SIGTERM and SIGHUP only set a flag, so that a verb that writes a file
/// can finish it. A third signal ends the process in the usual way, should the verb not get to
/// look. One at a time.
class Interrupt {
public:
    /// What becomes of a system call that waits when a signal comes.
    enum class Waiting { Ends, GoesOn };

    explicit Interrupt(Waiting waiting = Waiting::Ends);
    ~Interrupt();
    Interrupt(const Interrupt&) = delete;
    Interrupt& operator=(const Interrupt&) = delete;

    /// Cheap enough to be asked at every time step.
    static bool isRequested() { return s_count != 0; }

    /// Forgets what was requested. Returns whether something was.
    static bool acknowledge();

private:
    static void handle(int signal);

    static volatile std::sig_atomic_t s_count;  // signals since the last acknowledge()

    struct sigaction m_oldInterrupt {};
    struct sigaction m_oldTermination {};
    struct sigaction m_oldHangup {};
};

}  // namespace Korvel

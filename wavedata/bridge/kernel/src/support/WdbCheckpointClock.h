#pragma once

namespace Korvel {

/// Says when the next checkpoint is due: a few times a second at most, and seldom enough that
/// checkpoints take less than half a percent of the simulation's time however much they write.
class WdbCheckpointClock {
public:
    /// The next checkpoint is due one interval from now.
    void start();

    /// Costs a few nanoseconds; no system call.
    bool isDue() const;

    /// Around a checkpoint, so that the interval follows from what it cost.
    void beginCheckpoint();
    void endCheckpoint();

private:
    long long m_dueAt = 0;    // nanoseconds of the coarse monotonic clock
    long long m_beganAt = 0;  // nanoseconds of the monotonic clock
};

}  // namespace Korvel

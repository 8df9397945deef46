#include "support/WdbCheckpointClock.h"

#include <algorithm>
#include <ctime>

namespace Korvel {
namespace {

constexpr long long ShortestInterval = 250'000'000;  // nanoseconds
constexpr long long IntervalPerCost = 250;  // a checkpoint takes at most one part in so many

long long now(clockid_t clock) {
    timespec time = {};
    clock_gettime(clock, &time);
    return time.tv_sec * 1'000'000'000ll + time.tv_nsec;
}

}  // namespace

void WdbCheckpointClock::start() {
    m_dueAt = now(CLOCK_MONOTONIC_COARSE) + ShortestInterval;
}

bool WdbCheckpointClock::isDue() const {
    return now(CLOCK_MONOTONIC_COARSE) >= m_dueAt;
}

void WdbCheckpointClock::beginCheckpoint() {
    m_beganAt = now(CLOCK_MONOTONIC);
}

void WdbCheckpointClock::endCheckpoint() {
    const long long cost = now(CLOCK_MONOTONIC) - m_beganAt;
    m_dueAt = now(CLOCK_MONOTONIC_COARSE) + std::max(ShortestInterval, IntervalPerCost * cost);
}

}  // namespace Korvel

#pragma once

namespace Korvel {

/// Seconds that the process has used: in its own code, in the system on its behalf, and by the
/// clock on the wall.
struct WdbRunTime {
    double user = 0;
    double system = 0;
    double wall = 0;
};

inline WdbRunTime operator-(const WdbRunTime& later, const WdbRunTime& earlier) {
    return {later.user - earlier.user, later.system - earlier.system, later.wall - earlier.wall};
}

/// What the process has used up to now, with all its threads. The wall time counts from a moment
/// that stays the same during one process. Any thread may call.
__attribute__((visibility("default"))) WdbRunTime getRunTime();

}  // namespace Korvel

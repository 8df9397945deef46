#pragma once

namespace Korvel {

/// Sum of two times or time lengths. Those of a damaged file may lie anywhere; their sum then has
/// no meaning, but is defined.
inline long long addTimes(long long one, long long other) {
    return static_cast<long long>(static_cast<unsigned long long>(one) +
                                  static_cast<unsigned long long>(other));
}

/// Time from @p earlier to @p later, with the same promise.
inline long long timeBetween(long long earlier, long long later) {
    return static_cast<long long>(static_cast<unsigned long long>(later) -
                                  static_cast<unsigned long long>(earlier));
}

}  // namespace Korvel

#pragma once

#include <map>

namespace Korvel {

/// Closed interval of object ids as a recording's address map lists them.
struct WdbTracedInterval {
    long long low;
    long long high;
};
static_assert(sizeof(WdbTracedInterval) == 16);

/// Ids of the objects whose changes are recorded, as closed intervals that never overlap.
class WdbTracedObjects {
public:
    /// Adds one id, and joins it with the intervals that it touches. False when it is there.
    bool add(long long id);

    /// Adds an interval as a recording lists it. Ignored where it overlaps one that is there, or
    /// has its end before its begin.
    void addInterval(long long low, long long high);

    bool contains(long long id) const;
    void clear() { m_lowOf.clear(); }

    /// Lowest id of each interval by its highest one.
    const std::map<long long, long long>& getIntervals() const { return m_lowOf; }

private:
    std::map<long long, long long> m_lowOf;
};

}  // namespace Korvel

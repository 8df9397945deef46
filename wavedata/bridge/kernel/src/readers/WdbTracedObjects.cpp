#include "readers/WdbTracedObjects.h"

#include <iterator>

namespace Korvel {

bool WdbTracedObjects::add(long long id) {
    if (contains(id)) return false;
    long long low = id;
    long long high = id;
    const auto above = m_lowOf.lower_bound(id);
    if (above != m_lowOf.begin()) {
        const auto below = std::prev(above);
        if (below->first == id - 1) {
            low = below->second;
            m_lowOf.erase(below);
        }
    }
    if (above != m_lowOf.end() && above->second == id + 1) {
        high = above->first;
        m_lowOf.erase(above);
    }
    m_lowOf[high] = low;
    return true;
}

void WdbTracedObjects::addInterval(long long low, long long high) {
    const auto next = m_lowOf.lower_bound(low);
    const bool overlaps = next != m_lowOf.end() && next->second <= high;
    if (low <= high && !overlaps) m_lowOf[high] = low;
}

bool WdbTracedObjects::contains(long long id) const {
    const auto interval = m_lowOf.lower_bound(id);
    return interval != m_lowOf.end() && interval->second <= id;
}

}  // namespace Korvel

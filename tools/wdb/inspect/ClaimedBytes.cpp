#include "inspect/ClaimedBytes.h"

#include <iterator>

namespace Korvel {

bool ClaimedBytes::claim(std::uint64_t begin, std::uint64_t size) {
    if (size == 0) return true;
    const std::uint64_t end = begin + size;
    auto next = m_ranges.upper_bound(begin);
    if (next != m_ranges.end() && next->first < end) return false;
    const bool joinsNext = next != m_ranges.end() && next->first == end;
    const auto before = next == m_ranges.begin() ? m_ranges.end() : std::prev(next);
    if (before != m_ranges.end() && before->second > begin) return false;
    const bool joinsBefore = before != m_ranges.end() && before->second == begin;

    m_total += size;
    const std::uint64_t joinedEnd = joinsNext ? next->second : end;
    if (joinsNext) next = m_ranges.erase(next);
    if (joinsBefore) {
        before->second = joinedEnd;
    } else {
        m_ranges.emplace_hint(next, begin, joinedEnd);
    }
    return true;
}

}  // namespace Korvel

#pragma once

#include <cstdint>
#include <map>

namespace Korvel {

/// Which bytes of a file belong to a structure that was found so far. Neighbours are joined, so
/// that a file without gaps ends up as one range.
///
/// Refusing what is claimed already is also what makes every walk through a file finite: no list
/// can lead twice over the same bytes.
class ClaimedBytes {
public:
    /// False, and nothing is claimed, when one of the bytes is claimed already.
    bool claim(std::uint64_t begin, std::uint64_t size);

    /// Number of bytes claimed.
    std::uint64_t total() const { return m_total; }

    /// Calls visit(begin, end) for every range below @p size that nobody claimed, in order.
    template <typename Visitor>
    void visitGaps(std::uint64_t size, Visitor&& visit) const {
        std::uint64_t end = 0;
        for (const auto& [nextBegin, nextEnd] : m_ranges) {
            if (nextBegin > end) visit(end, nextBegin);
            end = nextEnd;
        }
        if (end < size) visit(end, size);
    }

private:
    std::map<std::uint64_t, std::uint64_t> m_ranges;  // begin to end, neither touching
    std::uint64_t m_total = 0;
};

}  // namespace Korvel

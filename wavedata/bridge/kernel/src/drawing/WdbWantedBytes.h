#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

#include "events/WdbEvent.h"
#include "korvel/WdbAddressBTreeManager.h"

namespace Korvel {

/// What a byte is known to hold.
struct WdbByteState {
    bool isKnown = false;
    unsigned char value = 0;  // 0 while not known
};
using WdbByteStates = std::vector<WdbByteState>;

/// The bytes that decide what some scalars show: each once, in ascending order of their addresses.
///
/// A bit shows a byte of its pair's value word and, four bytes on, one of its second-plane word.
/// The two may be written by different events and lie in different buckets, so each byte is looked
/// for by itself, and the scalars are put together from what was found. A bit has a value as soon
/// as any byte of its pair was written; a byte that was not counts as 0.
class WdbWantedBytes {
public:
    /// Throws std::out_of_range where there is no such scalar.
    explicit WdbWantedBytes(const std::vector<WdbScalar>& asked);

    std::size_t size() const { return m_addresses.size(); }

    /// Ascending, without repeats.
    const std::vector<long long>& addresses() const { return m_addresses; }

    /// Calls @p visit(index, value) for each byte of those from @p first up to @p last that
    /// @p event writes. Bits that no scalar shows are 0 in the value.
    template <typename Visit>
    void forEachIn(const WdbEvent& event, std::size_t first, std::size_t last, Visit visit) const {
        const long long* const end = m_addresses.data() + last;
        const long long start = event.getStartAddress();
        const long long* it = std::lower_bound(m_addresses.data() + first, end, start);
        for (; it != end && *it - start < event.getValuelength(); ++it) {
            const auto index = static_cast<std::size_t>(it - m_addresses.data());
            visit(index,
                  static_cast<unsigned char>(event.getValue()[*it - start] & m_masks[index]));
        }
    }

    /// How many of the bytes from @p first up to @p last have to be looked for still. The bytes of
    /// a pair that no scalar shows are not among them until needPairs() says so.
    std::size_t countMissing(const WdbByteStates& states, std::size_t first,
                             std::size_t last) const;

    /// Their addresses.
    std::vector<long long> missingAddresses(const WdbByteStates& states, std::size_t first,
                                            std::size_t last) const;

    bool isNeeded(std::size_t index) const { return m_isNeeded[index]; }

    /// To be called when the search for the bytes that are shown is over: where a bit got no value
    /// from them, the rest of its pair has to be looked for. False when there is nothing new.
    bool needPairs(const WdbByteStates& states);

    /// What the scalars show, in the order in which they were given.
    std::vector<WdbByteValue> valuesOf(const WdbByteStates& states) const;

private:
    struct Place {
        std::size_t first = 0;  // index of the scalar's byte, or of the first one of its pair
        std::size_t count = 0;  // of those bytes; 0 where no byte can be
        std::size_t value = 0;  // index of the byte that is shown
        std::size_t plane = 0;  // index of the second-plane word's byte; the same for a whole byte
        int shift = 0;          // of the bit in both; WholeByte: none
    };

    void addBytes(const std::vector<WdbScalar>& scalars);
    Place placeOf(const WdbScalar& scalar) const;
    std::size_t indexOf(long long address) const;
    static bool hasValue(const Place& place, const WdbByteStates& states);

    std::vector<long long> m_addresses;
    std::vector<unsigned char> m_masks;  // the bits that are shown, one an address
    std::vector<bool> m_isNeeded;        // one an address
    std::vector<Place> m_places;         // one a scalar
};

}  // namespace Korvel

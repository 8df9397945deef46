#pragma once

#include <algorithm>
#include <vector>

#include "events/WdbEventBlock.h"

namespace Korvel {

/// Some addresses of one bucket, to be compared with the occupancy keys of blocks and nodes.
class WdbAddressKey {
public:
    /// Every address, and those as well that no key speaks of.
    WdbAddressKey() = default;

    /// @param baseAddress  Of the bucket.
    WdbAddressKey(const std::vector<long long>& addresses, long long baseAddress)
        : m_isAny(false), m_first(WdbEventBlock::KeySize) {
        for (const long long address : addresses) {
            if (!hasBit(address, baseAddress)) {
                *this = WdbAddressKey();
                return;
            }
            const auto bit = static_cast<unsigned int>(address - baseAddress);
            m_bits[bit / 8] = static_cast<unsigned char>(m_bits[bit / 8] | 1u << bit % 8);
            m_first = std::min(m_first, bit / 8);
            m_end = std::max(m_end, bit / 8 + 1);
        }
    }

    static bool hasBit(long long address, long long baseAddress) {
        return address >= baseAddress && address - baseAddress < WdbEventBlock::KeyAddresses;
    }

    /// Whether one of the addresses is in the key of a block or a node's entry.
    bool isIn(const unsigned char key[WdbEventBlock::KeySize]) const {
        if (m_isAny) return true;
        unsigned int common = 0;
        for (unsigned int byte = m_first; byte < m_end; ++byte)
            common |= m_bits[byte] & key[byte];
        return common != 0;
    }

private:
    bool m_isAny = true;
    unsigned int m_first = 0;  // of the bytes that have a bit
    unsigned int m_end = 0;    // behind the last of them
    unsigned char m_bits[WdbEventBlock::KeySize] = {};
};

}  // namespace Korvel

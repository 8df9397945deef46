#include "transport/WdbLivePacketContainer.h"

namespace Korvel {
namespace {

// A run of parts of one size; what is behind them is returned.
WdbLivePacketContainer cut(WdbLivePacketContainer whole, unsigned long long count,
                           unsigned int size, std::list<WdbLivePacketContainer>& parts) {
    for (unsigned long long i = 0; i < count; ++i) {
        parts.push_back({whole.m_time, size, whole.m_address, whole.m_value});
        whole.m_valueSize -= size;
        whole.m_address += size;
        whole.m_value += size;
    }
    return whole;
}

}  // namespace

void WdbLivePacketContainer::splitContainer(std::list<WdbLivePacketContainer>& parts,
                                            unsigned int maxBytes) const {
    const auto recordSize = [](unsigned long long valueSize) { return valueSize + RecordOverhead; };
    const unsigned long long record = recordSize(m_valueSize);
    if (maxBytes > record) return;
    if (maxBytes <= RecordOverhead) {
        cut(*this, m_valueSize, 1, parts);
        return;
    }
    const unsigned long long halfParts = (record + maxBytes - 1) / maxBytes;
    const unsigned long long count = 2 * halfParts - 1;
    const auto size = static_cast<unsigned int>(m_valueSize / (2 * halfParts));
    const unsigned long long restSize = m_valueSize - count * size;
    const bool fits = recordSize(restSize) <= maxBytes;
    if (size == 0 && !fits) {  // splitting the rest again would come back to here
        cut(*this, m_valueSize, 1, parts);
        return;
    }
    const WdbLivePacketContainer rest = cut(*this, count, size, parts);
    if (fits) {
        parts.push_back(rest);
    } else {
        rest.splitContainer(parts, maxBytes);
    }
}

}  // namespace Korvel

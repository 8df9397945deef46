#pragma once

#include <algorithm>
#include <map>
#include <set>
#include <vector>

#include "korvel/WdbAddressBTreeManager.h"
#include "tests/support/EventFile.h"

namespace Korvel {

constexpr int None = -1;

// What each byte holds from which time on: questions are answered by looking at everything.
class ValueModel {
public:
    explicit ValueModel(const std::vector<StoredEvent>& events) {
        for (const StoredEvent& event : events) {
            for (std::size_t i = 0; i < event.values.size(); ++i)
                m_bytes[event.address + static_cast<long long>(i)][event.time] =
                    static_cast<unsigned char>(event.values[i]);
            m_writes += event.values.size();
        }
    }
    bool operator==(const ValueModel&) const = default;
    bool hasSameValues(const ValueModel& other) const { return m_bytes == other.m_bytes; }

    int valueAt(long long time, const WdbScalar& scalar) const {
        return scalar.bit < 0 ? byteAt(scalar.address, time) : bitAt(scalar, time);
    }

    // When some of the scalar's bytes are written, after a time.
    std::set<long long> timesOf(const WdbScalar& scalar, long long after) const {
        std::set<long long> times;
        for (long long i = 0; i < (scalar.bit < 0 ? 1 : 8); ++i) {
            const auto byte = m_bytes.find(pairOf(scalar) + i);
            if (byte == m_bytes.end()) continue;
            for (auto it = byte->second.upper_bound(after); it != byte->second.end(); ++it)
                times.insert(it->first);
        }
        return times;
    }

private:
    static long long pairOf(const WdbScalar& scalar) {
        return scalar.address + (scalar.bit < 0 ? 0 : scalar.bit / 32 * 8);
    }
    int byteAt(long long address, long long time) const {
        const auto byte = m_bytes.find(address);
        if (byte == m_bytes.end()) return None;
        const auto later = byte->second.upper_bound(time);
        return later == byte->second.begin() ? None : std::prev(later)->second;
    }
    int bitAt(const WdbScalar& scalar, long long time) const {
        bool isKnown = false;
        unsigned long long pair = 0;
        for (int i = 7; i >= 0; --i) {
            const int byte = byteAt(pairOf(scalar) + i, time);
            isKnown = isKnown || byte != None;
            pair = pair << 8 | static_cast<unsigned int>(std::max(byte, 0));
        }
        const int bit = scalar.bit % 32;
        return isKnown ? static_cast<int>((pair >> bit & 1) + 2 * (pair >> (bit + 32) & 1)) : None;
    }

    std::map<long long, std::map<long long, unsigned char>> m_bytes;
    std::size_t m_writes = 0;
};

}  // namespace Korvel

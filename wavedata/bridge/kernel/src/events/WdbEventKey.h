#pragma once

#include <tuple>

namespace Korvel {

/// What makes two events the same write: a later one supersedes an earlier one in its block.
struct WdbEventKey {
    long long time;
    long long startAddress;  // absolute
    unsigned int valueLength;

    friend bool operator==(const WdbEventKey& a, const WdbEventKey& b) {
        return std::tie(a.time, a.startAddress, a.valueLength) ==
               std::tie(b.time, b.startAddress, b.valueLength);
    }
    friend bool operator<(const WdbEventKey& a, const WdbEventKey& b) {
        return std::tie(a.time, a.startAddress, a.valueLength) <
               std::tie(b.time, b.startAddress, b.valueLength);
    }
};

}  // namespace Korvel

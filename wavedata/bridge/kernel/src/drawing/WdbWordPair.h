#pragma once

#include <stdexcept>

#include "korvel/WdbAddressBTreeManager.h"

namespace Korvel {

// A Verilog word pair: 4 bytes of values, then 4 of the second plane, for 32 bits.
constexpr int PairSize = 8;
constexpr int PairBits = 32;
constexpr int PlaneOffset = 4;

/// Scalars lie between its negative and itself: sums with a length or a pair cannot overflow.
constexpr long long LargestAddress = 1LL << 61;

/// The scalar of a bit by the pair that it lies in. Throws std::out_of_range for a bit below 0 that
/// does not stand for the whole byte, and for an address that nothing can have.
inline WdbScalar inItsPair(const WdbScalar& scalar) {
    const bool isSound = scalar.bit >= WdbScalarBTree::WholeByte &&
                         scalar.address >= -LargestAddress && scalar.address <= LargestAddress;
    if (!isSound) throw std::out_of_range("There is no such scalar.");
    if (scalar.bit < PairBits) return scalar;
    return {scalar.address + scalar.bit / PairBits * PairSize, scalar.bit % PairBits};
}

/// What a bit shows: 0, 1, 2 for Z, 3 for X.
constexpr unsigned char shownBit(unsigned long long values, unsigned long long plane, int bit) {
    return static_cast<unsigned char>((values >> bit & 1) | (plane >> bit & 1) << 1);
}

}  // namespace Korvel

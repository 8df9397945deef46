#pragma once

#include <cstdint>
#include <memory>

namespace Korvel {

/// 32 bits of a Verilog value: the value word and the second-plane word.
struct WdbVlogPair {
    std::uint32_t value;
    std::uint32_t secondPlane;
};
static_assert(sizeof(WdbVlogPair) == 8);

/// Merges a changed bit range into a copy of the word pairs that cover it.
///
/// Keeps one buffer between calls, so that the usual change allocates nothing. One thread at a
/// time.
class WdbVlogMerge {
public:
    static constexpr unsigned int BitsPerPair = 32;

    /// The pairs that cover a bit range.
    struct Range {
        unsigned int firstPair;
        unsigned int pairCount;
    };

    /// @p endBit must lie behind @p firstBit.
    static Range pairsOf(unsigned int firstBit, unsigned int endBit) {
        const unsigned int firstPair = firstBit / BitsPerPair;
        return {firstPair, (endBit - 1) / BitsPerPair + 1 - firstPair};
    }

    /// Copies the pairs of @p current that cover [@p firstBit, @p endBit) and writes the new bits,
    /// which begin at bit 0 of @p bits, over that range. The result lives until the next call.
    ///
    /// Where the range begins inside a word, second-plane words are left alone as long as both the
    /// old and the new one are zero.
    const unsigned char* merge(const unsigned char* current, const unsigned char* bits,
                               unsigned int firstBit, unsigned int endBit);

    /// Gives a buffer of more than 100 pairs back: one very wide vector shall not keep it alive.
    void trim();

    unsigned int getCapacity() const { return m_capacity; }

private:
    void reserve(unsigned int pairCount);
    void mergeAligned(const unsigned char* bits, unsigned int bitCount, unsigned int pairCount);
    void mergeShifted(const unsigned char* bits, unsigned int firstBit, unsigned int bitCount);

    std::unique_ptr<WdbVlogPair[]> m_pairs;  // null until first used
    unsigned int m_capacity = 0;             // in pairs
};

}  // namespace Korvel

#include "writers/WdbVlogMerge.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace Korvel {
namespace {

constexpr unsigned int LargestKeptCapacity = 100;

constexpr std::array<std::uint32_t, WdbVlogMerge::BitsPerPair + 1> makeBitMasks() {
    std::array<std::uint32_t, WdbVlogMerge::BitsPerPair + 1> masks = {};
    for (unsigned int n = 1; n < masks.size(); ++n)
        masks[n] = masks[n - 1] << 1 | 1u;
    return masks;
}

// Entry n has the n low bits set.
constexpr auto VlogBitMasks = makeBitMasks();

// The kernel's words may lie anywhere in its data space.
WdbVlogPair pairAt(const unsigned char* words, unsigned int index) {
    WdbVlogPair pair;
    std::memcpy(&pair, words + sizeof(pair) * index, sizeof(pair));
    return pair;
}

std::uint32_t overwrite(std::uint32_t old, std::uint32_t fresh, std::uint32_t mask) {
    return (old & ~mask) | (fresh & mask);
}

void overwriteLowBits(WdbVlogPair& pair, const WdbVlogPair& fresh, unsigned int bitCount) {
    const std::uint32_t mask = VlogBitMasks[bitCount];
    pair.value = overwrite(pair.value, fresh.value, mask);
    pair.secondPlane = overwrite(pair.secondPlane, fresh.secondPlane, mask);
}

}  // namespace

const unsigned char* WdbVlogMerge::merge(const unsigned char* current, const unsigned char* bits,
                                         unsigned int firstBit, unsigned int endBit) {
    const Range range = pairsOf(firstBit, endBit);
    reserve(range.pairCount);
    if (range.pairCount == 1 && firstBit % BitsPerPair == 0) {
        // Nets and small vectors traced whole: nearly every change of a design.
        m_pairs[0] = pairAt(current, range.firstPair);
        overwriteLowBits(m_pairs[0], pairAt(bits, 0), endBit - firstBit);
        return reinterpret_cast<const unsigned char*>(m_pairs.get());
    }
    std::memcpy(m_pairs.get(), current + sizeof(WdbVlogPair) * range.firstPair,
                sizeof(WdbVlogPair) * range.pairCount);
    if (firstBit % BitsPerPair == 0) {
        mergeAligned(bits, endBit - firstBit, range.pairCount);
    } else {
        mergeShifted(bits, firstBit % BitsPerPair, endBit - firstBit);
    }
    return reinterpret_cast<const unsigned char*>(m_pairs.get());
}

void WdbVlogMerge::trim() {
    if (m_capacity <= LargestKeptCapacity) return;
    m_pairs.reset();
    m_capacity = 0;
}

void WdbVlogMerge::reserve(unsigned int pairCount) {
    if (pairCount <= m_capacity) return;
    m_pairs = std::make_unique<WdbVlogPair[]>(pairCount);
    m_capacity = pairCount;
}

void WdbVlogMerge::mergeAligned(const unsigned char* bits, unsigned int bitCount,
                                unsigned int pairCount) {
    const unsigned int last = pairCount - 1;
    std::memcpy(m_pairs.get(), bits, sizeof(WdbVlogPair) * last);
    overwriteLowBits(m_pairs[last], pairAt(bits, last), bitCount - last * BitsPerPair);
}

// In chunks, each as long as fits the current word on both sides.
void WdbVlogMerge::mergeShifted(const unsigned char* bits, unsigned int firstBit,
                                unsigned int bitCount) {
    for (unsigned int done = 0; done < bitCount;) {
        const unsigned int to = (firstBit + done) % BitsPerPair;
        const unsigned int from = done % BitsPerPair;
        const unsigned int count =
            std::min({BitsPerPair - to, BitsPerPair - from, bitCount - done});
        const std::uint32_t mask = VlogBitMasks[count] << to;
        const WdbVlogPair fresh = pairAt(bits, done / BitsPerPair);
        WdbVlogPair& pair = m_pairs[(firstBit + done) / BitsPerPair];
        pair.value = overwrite(pair.value, fresh.value >> from << to, mask);
        if (fresh.secondPlane != 0 || pair.secondPlane != 0) {
            pair.secondPlane = overwrite(pair.secondPlane, fresh.secondPlane >> from << to, mask);
        }
        done += count;
    }
}

}  // namespace Korvel

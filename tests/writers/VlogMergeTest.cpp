#include "writers/WdbVlogMerge.h"

#include <random>
#include <vector>

#include <gtest/gtest.h>

namespace Korvel {
namespace {

constexpr unsigned int LargestKept = 100;  // pairs of a buffer that survives its change

// Words at an odd address in a buffer of just their size: a kernel's values lie anywhere, and what
// lies next to them is not ours to read.
class Words {
public:
    Words(unsigned int pairs, std::mt19937& random) : m_bytes(1 + 8 * pairs) {
        // Half of the words zero, which is what known values have in their second plane.
        for (std::size_t word = 1; word < m_bytes.size(); word += 4) {
            const bool isZero = random() % 2 == 0;
            for (std::size_t i = 0; i < 4 && !isZero; ++i)
                m_bytes[word + i] = static_cast<unsigned char>(random());
        }
    }

    const unsigned char* data() const { return m_bytes.data() + 1; }

    bool bit(unsigned int plane, unsigned int index) const {
        return (data()[8 * (index / 32) + 4 * plane + index % 32 / 8] >> index % 8 & 1) != 0;
    }

private:
    std::vector<unsigned char> m_bytes;
};

unsigned int pairsFor(unsigned int bits) {
    return (bits + 31) / 32;
}

// Bit by bit, as the change reads: inside the range the new bit, outside the current one.
std::vector<unsigned char> mergedBitByBit(const Words& current, const Words& bits,
                                          unsigned int first, unsigned int end) {
    const unsigned int firstPair = first / 32;
    std::vector<unsigned char> merged(8 * (pairsFor(end) - firstPair));
    for (unsigned int plane = 0; plane < 2; ++plane) {
        for (unsigned int i = 32 * firstPair; i < 32 * pairsFor(end); ++i) {
            const bool isNew = first <= i && i < end;
            if (!(isNew ? bits.bit(plane, i - first) : current.bit(plane, i))) continue;
            const unsigned int at = i - 32 * firstPair;
            unsigned char& byte = merged[8 * (at / 32) + 4 * plane + at % 32 / 8];
            byte = static_cast<unsigned char>(byte | 1u << at % 8);
        }
    }
    return merged;
}

// One merger for all rounds: what an earlier, wider change left in the buffer must not show.
TEST(VlogMerge, agreesWithAMergeBitByBit) {
    const unsigned int seed = std::random_device()();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    WdbVlogMerge merger;
    for (int round = 0; round < 3000; ++round) {
        unsigned int first = random() % 200;
        if (round % 3 == 0) first -= first % 32;
        const unsigned int longest = round % 100 == 0 ? 4000 : 150;
        const unsigned int end = first + 1 + random() % longest;
        const Words current(pairsFor(end), random);
        const Words bits(pairsFor(end - first), random);

        const std::vector<unsigned char> expected = mergedBitByBit(current, bits, first, end);
        const unsigned char* merged = merger.merge(current.data(), bits.data(), first, end);
        ASSERT_EQ(std::vector<unsigned char>(merged, merged + expected.size()), expected)
            << "[" << first << ", " << end << ")";
        merger.trim();
        ASSERT_LE(merger.getCapacity(), LargestKept);
    }
}

TEST(VlogMerge, keepsOnlyABufferOfUsualSize) {
    std::mt19937 random(1);
    const Words wide(LargestKept + 1, random);
    WdbVlogMerge merger;
    const struct {
        unsigned int pairs;
        unsigned int kept;
    } cases[] = {{3, 3}, {2, 3}, {LargestKept, LargestKept}, {1, LargestKept}, {101, 0}};
    for (const auto& row : cases) {
        merger.merge(wide.data(), wide.data(), 0, 32 * row.pairs);
        EXPECT_EQ(merger.getCapacity(), std::max(row.pairs, row.kept));
        merger.trim();
        EXPECT_EQ(merger.getCapacity(), row.kept);
    }
}

}  // namespace
}  // namespace Korvel

#include "writers/WdbVlogMerge.h"

#include <random>
#include <vector>

#include <gtest/gtest.h>

namespace Korvel {
namespace {

constexpr unsigned int LargestKept = 100;  // pairs of a buffer that survives its change

// Pairs of words that begin at an odd address, behind the first byte, in a buffer of just their
// size: a kernel's values lie anywhere, and what lies next to them is not ours to read. Half of the
// words are zero, which is what known values have in their second plane.
std::vector<unsigned char> randomPairs(unsigned int pairs, std::mt19937& random) {
    std::vector<unsigned char> bytes(1 + 8 * pairs);
    for (std::size_t word = 1; word < bytes.size(); word += 4) {
        if (random() % 2 == 0) continue;
        for (std::size_t i = 0; i < 4; ++i)
            bytes[word + i] = static_cast<unsigned char>(random());
    }
    return bytes;
}

unsigned int pairsFor(unsigned int bits) {
    return (bits + 31) / 32;
}

unsigned int byteOf(unsigned int plane, unsigned int bit) {
    return 8 * (bit / 32) + 4 * plane + bit % 32 / 8;
}

// Bit by bit, as the change reads.
std::vector<unsigned char> mergedBitByBit(const unsigned char* current, const unsigned char* bits,
                                          unsigned int first, unsigned int end) {
    std::vector<unsigned char> merged(current, current + 8 * pairsFor(end));
    for (unsigned int plane = 0; plane < 2; ++plane) {
        for (unsigned int i = first; i < end; ++i) {
            const unsigned int mask = 1u << i % 8;
            const bool isSet = (bits[byteOf(plane, i - first)] >> (i - first) % 8 & 1) != 0;
            unsigned char& byte = merged[byteOf(plane, i)];
            byte = static_cast<unsigned char>(isSet ? byte | mask : byte & ~mask);
        }
    }
    merged.erase(merged.begin(), merged.begin() + 8 * (first / 32));
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
        const std::vector<unsigned char> current = randomPairs(pairsFor(end), random);
        const std::vector<unsigned char> bits = randomPairs(pairsFor(end - first), random);
        const auto expected = mergedBitByBit(&current[1], &bits[1], first, end);
        const unsigned char* merged = merger.merge(&current[1], &bits[1], first, end);
        ASSERT_EQ(std::vector<unsigned char>(merged, merged + expected.size()), expected)
            << "[" << first << ", " << end << ")";
        merger.trim();
    }
}

TEST(VlogMerge, keepsOnlyABufferOfUsualSize) {
    const std::vector<unsigned char> wide(8 * (LargestKept + 1));
    WdbVlogMerge merger;
    const struct {
        unsigned int pairs;
        unsigned int kept;
    } cases[] = {{3, 3}, {2, 3}, {LargestKept, LargestKept}, {1, LargestKept}, {101, 0}};
    for (const auto& row : cases) {
        merger.merge(wide.data(), wide.data(), 0, 32 * row.pairs);
        merger.trim();
        EXPECT_EQ(merger.getCapacity(), row.kept);
    }
}

}  // namespace
}  // namespace Korvel

#pragma once

#include <array>
#include <cstdint>
#include <limits>
#include <vector>

#include "drawing/WdbWordPair.h"

namespace Korvel {

class WdbEventBlock;
class WdbGapBTree;
class WdbScalarBTree;

/// Bytes of the data space that trees are interested in, and what becomes of them.
///
/// A cell is the byte of one tree, or a Verilog word pair with the trees of its bits. Events are
/// matched to cells without looking at every cell: the cells are sorted, and where they lie within
/// a bucket or a few, a table leads from an address to the first cell behind it.
class WdbScalarCells {
public:
    /// What an event does to one cell; 24 bytes, because a scan makes one for every match.
    struct Change {
        long long time;
        std::uint32_t cell;
        std::uint8_t first;  // byte of the cell that bytes begins with
        std::uint8_t count;
        std::array<unsigned char, 8> bytes;
    };
    static_assert(sizeof(Change) == 24);

    /// @param trees  Not owned. What their newest records tell is where their cells begin from.
    explicit WdbScalarCells(const std::vector<WdbScalarBTree*>& trees);

    bool isEmpty() const { return m_bytes.empty() && m_pairs.empty(); }

    /// Whether an event over these addresses concerns a cell.
    bool concerns(long long address, unsigned int length) const;

    /// Appends what the events of a block do to the cells. Changes nothing here: any threads may
    /// call.
    void collect(const WdbEventBlock& block, std::vector<Change>& changes) const;

    /// Hands a change on to its cell's trees. In the order of the events; one thread at a time.
    void apply(const Change& change);

    /// Hands an event on to the trees that it concerns.
    void applyEvent(long long time, long long address, unsigned int length,
                    const unsigned char* values);

private:
    static constexpr long long LargestTable = 1 << 16;

    struct ByteCell {
        long long address;
        WdbGapBTree* tree;
    };
    struct PairCell {
        long long address;
        std::uint64_t value = 0;  // bits in the low half, second plane in the high one
        long long time = std::numeric_limits<long long>::min();  // of the newest change
        std::uint32_t wanted = 0;
        bool isKnown = true;  // all wanted bits have been told of the value
        std::array<WdbGapBTree*, PairBits> trees = {};  // null for a bit that is not wanted
    };
    // Where to begin looking for the cells of an address.
    struct Start {
        std::uint32_t byte;  // the first cell at or behind it
        std::uint32_t pair;  // the first pair that ends behind it
    };

    // Calls visit(cell number, first byte of the cell, index of its value in the event, number of
    // bytes) for each cell that an event touches. Bytes are numbered first, then pairs.
    template <typename Visitor>
    void visitCells(long long address, unsigned int length, Visitor&& visit) const;

    void makeTable();
    Start search(long long address) const;
    Start startOf(long long address) const;
    void setPair(PairCell& cell, long long time, std::uint64_t value);

    std::vector<ByteCell> m_bytes;  // by address
    std::vector<PairCell> m_pairs;  // by address
    long long m_tableAddress = 0;   // what m_table begins with
    std::vector<Start> m_table;     // empty where the cells lie too far apart
};

}  // namespace Korvel

#pragma once

// The records of one scalar, append-only, as a B-tree over time whose inner entries know the
// largest gap below them. A drawing query skips any run of changes that are closer together than a
// pixel in a number of steps that grows with the logarithm of the run's length.
//
//   leaf page             offset  size  field
//                              0     4  number of records n, at least 1
//                              4     4  bytes of a time, w: 4, or 8 where the times lie far apart
//                              8     8  first time, signed
//                             16    wC  times minus the first time, unsigned
//                          16+wC     C  values                     C = (page size - 16) / (w + 1)
//
//   inner page                 0     4  number of children n
//                             16    8C  first time of each child, signed
//                          16+8C    8C  largest gap of each child, unsigned
//                         16+16C    4C  page of each child         C = (page size - 16) / 20
//
// A gap is the time from a record to the next one, the first record behind the child included.
//
// Invariants
//   1. Pages are full and never change. The right edge of the tree, one unfinished node a level,
//      is kept in memory; its last child is the unfinished node one level below.
//   2. The newest record is pending: it may still be replaced or taken back by a write of the same
//      time, and goes into a leaf when a later one arrives. Hence every gap in a page is final.
//   3. Where there is a full page, the unfinished leaf is not empty.

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <vector>

#include "indexes/WdbIndexPages.h"

namespace Korvel {

/// From one time to another that is not before it.
inline unsigned long long timeBetween(long long earlier, long long later) {
    return static_cast<unsigned long long>(later) - static_cast<unsigned long long>(earlier);
}

/// A run of records, in a page or in the unfinished leaf.
struct WdbLeafView {
    const char* times = nullptr;  // distances from the first time
    const unsigned char* values = nullptr;
    long long firstTime = 0;
    unsigned int count = 0;
    bool isWide = false;  // distances take 8 bytes

    unsigned long long distance(unsigned int index) const {
        return isWide ? reinterpret_cast<const std::uint64_t*>(times)[index]
                      : reinterpret_cast<const std::uint32_t*>(times)[index];
    }
    long long time(unsigned int index) const {
        return static_cast<long long>(static_cast<unsigned long long>(firstTime) + distance(index));
    }

    /// Number of records at or before @p time.
    unsigned int countUpTo(long long time) const;

    /// The first of the records from @p index on whose successor in this leaf follows after at
    /// least @p gap; the last record when there is none.
    unsigned int findGap(unsigned int index, unsigned long long gap) const;
};

/// The children of an inner node, in a page or on the right edge.
struct WdbInnerView {
    const long long* firstTimes = nullptr;
    const unsigned long long* gaps = nullptr;
    const WdbIndexPages::Handle* pages = nullptr;
    unsigned int count = 0;
};

/// Grows by one thread at a time, while nobody reads it.
class WdbGapBTree {
public:
    explicit WdbGapBTree(std::shared_ptr<WdbIndexPages> pages);

    // --- Once per value change that concerns a scalar. ---

    /// Notes the scalar's value from @p time on.
    ///
    /// A value equal to the one before is no record. Of several values at one time the last counts.
    /// A time before the newest record's is ignored. Throws Veld::OpenException when a full page
    /// cannot be stored; the tree is then as before.
    void add(long long time, unsigned char value) {
        if (m_isPending && time > m_pendingTime) {
            if (value == m_pendingValue) return;
            commit();
            m_pendingTime = time;
            m_pendingValue = value;
            return;
        }
        addToNewestTime(time, value);
    }

    // --- End of the path that runs once per value change. ---

    bool isEmpty() const { return !m_isPending && m_leafCount == 0; }
    unsigned long long getRecordCount() const { return m_committed + (m_isPending ? 1 : 0); }

    /// Time of the newest record; 0 when there is none.
    long long getLastTime() const { return m_isPending ? m_pendingTime : m_lastTime; }

    /// Value of the newest record; 0 when there is none.
    unsigned char getLastValue() const { return m_isPending ? m_pendingValue : m_lastValue; }

    bool isPending() const { return m_isPending; }
    long long getPendingTime() const { return m_pendingTime; }
    unsigned char getPendingValue() const { return m_pendingValue; }

    /// Levels of inner nodes.
    unsigned int getHeight() const { return static_cast<unsigned int>(m_edges.size()); }
    WdbInnerView getEdge(unsigned int level) const;
    WdbLeafView getOpenLeaf() const;
    WdbInnerView getInner(WdbIndexPages::Handle page) const;
    WdbLeafView getLeaf(WdbIndexPages::Handle page) const;

    /// First time below the unfinished node of a level; level 0 is the leaf, which is not empty.
    long long getEdgeFirstTime(unsigned int level) const;

private:
    struct Edge {
        std::vector<long long> firstTimes;
        std::vector<unsigned long long> gaps;
        std::vector<WdbIndexPages::Handle> pages;
    };

    void addToNewestTime(long long time, unsigned char value);
    void commit();
    bool leafTakes(unsigned long long distance);
    void makeRoom(bool isWide);
    void closeLeaf(long long nextTime);
    void addChild(unsigned int level, long long firstTime, unsigned long long gap,
                  WdbIndexPages::Handle page);
    unsigned int leafLimit(bool isWide) const;
    unsigned int innerLimit() const;

    std::shared_ptr<WdbIndexPages> m_pages;

    long long m_pendingTime = 0;  // of the newest record, also of one that was taken back
    long long m_lastTime = 0;     // of the newest record in the leaf; 0 when it is empty
    unsigned char m_pendingValue = 0;
    unsigned char m_lastValue = 0;
    bool m_isPending = false;
    bool m_isWide = false;

    // The unfinished leaf: m_leafRoom distances, then as many values.
    unsigned int m_leafCount = 0;
    unsigned int m_leafRoom = 0;
    long long m_leafFirstTime = 0;
    unsigned long long m_leafGap = 0;  // largest between its records
    std::unique_ptr<char[]> m_leaf;

    unsigned long long m_committed = 0;
    std::vector<Edge> m_edges;  // unfinished inner nodes, lowest first
};

}  // namespace Korvel

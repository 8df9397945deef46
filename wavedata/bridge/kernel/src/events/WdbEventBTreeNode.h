#pragma once

// What an event B-tree keeps in the file, besides its event blocks. Little-endian, no alignment
// assumed; what is not in use is zero.
//
// Invariants that a reader of a killed or a growing file relies on
//   1. A node or a record block is in the file before anything names it.
//   2. Every node but the last one of its level is full.
//   3. The children of a level lie in the file in the order of their times.
//   4. What an entry says of a child equals the child, but for the last entry of the last node of a
//      level, which may be older than its child.

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "events/WdbEventBlock.h"
#include "events/WdbTimeSums.h"

namespace Korvel {

/// First block of a tree, which the bucket table names.
///
///   offset  size  field
///        0     8  root node's offset, signed; 0 while there is none
///        8     8  start time, signed: times in the tree count from it
///       16   256  zero
struct WdbEventBTreeState {
    long long rootNode = 0;
    long long startTime = 0;
    unsigned char reserved[256] = {};
};
static_assert(sizeof(WdbEventBTreeState) == 272);

/// What a leaf entry names: one event block.
///
///   offset  size  field
///        0     8  event block's offset, signed
///        8     4  event block's size as stored
///       12     4  zero
///       16     8  largest time between two changes of one address in the block, signed
struct WdbEventBTreeRecordBlock {
    long long blockOffset = 0;
    unsigned int compressedSize = 0;
    unsigned int padding = 0;
    long long largestDiff = 0;
};
static_assert(sizeof(WdbEventBTreeRecordBlock) == 24);

/// A record while it is in memory: what the leaf entry that names it says as well.
struct WdbEventBTreeRecord {
    WdbEventBTreeRecordBlock stored;
    long long timeLength = 0;
    long long startTime = 0;  // absolute
    unsigned char key[WdbEventBlock::KeySize] = {};
};

/// Node of N entries. An entry covers the times from the running time of the entry before it up to,
/// not including, its own.
///
///     offset  size  field
///          0    8N  children, signed offsets: of record blocks in a leaf, else of nodes
///         8N    8N  running times, signed: the sum of the entries' time lengths so far
///        16N     8  largest gap, signed: the largest of all entries' largest differences
///      16N+8  256N  occupancy keys: one bit for each address of the bucket that changes below
///     272N+8     4  number of entries in use
///    272N+12     4  1 in a leaf, else 0
template <typename Key, unsigned int N>
struct WdbEventBTreeNode {
    static constexpr unsigned int Capacity = N;

    /// Length of the time that the entries cover.
    Key totalTime() const { return m_count == 0 ? 0 : m_runningTimes[m_count - 1]; }

    /// What lies before an entry.
    Key timeBefore(unsigned int index) const { return index == 0 ? 0 : m_runningTimes[index - 1]; }

    void collectKeys(unsigned char key[WdbEventBlock::KeySize]) const {
        for (unsigned int i = 0; i < m_count; ++i) {
            for (unsigned int byte = 0; byte < WdbEventBlock::KeySize; ++byte)
                key[byte] = static_cast<unsigned char>(key[byte] | m_keys[i][byte]);
        }
    }

    /// There is room.
    void append(long long child, Key timeLength, Key largestDiff,
                const unsigned char key[WdbEventBlock::KeySize]) {
        m_children[m_count] = child;
        m_runningTimes[m_count] = addTimes(totalTime(), timeLength);
        m_largestGap = std::max(m_largestGap, largestDiff);
        std::memcpy(m_keys[m_count], key, WdbEventBlock::KeySize);
        ++m_count;
    }

    long long m_children[N] = {};
    Key m_runningTimes[N] = {};
    Key m_largestGap = 0;
    unsigned char m_keys[N][WdbEventBlock::KeySize] = {};
    unsigned int m_count = 0;
    unsigned int m_isLeaf = 0;
};
static_assert(sizeof(WdbEventBTreeNode<long long, 100>) == 27216);

}  // namespace Korvel

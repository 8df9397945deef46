#pragma once

#include "container/WdbNodeChain.h"
#include "events/WdbEventBTreeNode.h"
#include "events/WdbEventDatabaseHeader.h"
#include "inspect/Inspection.h"

#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

namespace Korvel {

/// Goes through the event blocks of a bucket's B-tree in the order of time, and judges the state
/// block, nodes and record blocks on the way.
///
/// A kill leaves the right edge - the root, its last child, and so on - in an older state than what
/// lies below it, and one of its nodes perhaps half rewritten. Elsewhere a tree is exact.
///
/// With every node's bytes claimed once, a walk ends on any bytes; it keeps one node a level.
class TreeCursor {
public:
    using Entry = WdbBlockListNode<WdbEventDatabaseHeader::NodeCapacity>::Entry;

    /// @param owner        Whose tree it is.
    /// @param stateBlock   Offset that the bucket's slot holds.
    /// @param baseAddress  What occupancy keys count from.
    TreeCursor(Inspection& inspection, const Place& owner, std::int64_t stateBlock,
               std::int64_t baseAddress);

    /// Moves to the next record. False at the end.
    bool next();

    /// The event block that the current record names.
    Entry entry() const { return {m_record.blockOffset, m_record.compressedSize}; }

    /// Of the current record.
    Place place() const;

    /// Judges what the tree says of the current block, which is not empty.
    void judgeBlock(const WdbEventBlock& block, std::int64_t firstTime, std::int64_t lastTime);

    std::uint64_t nodeCount() const { return m_nodeCount; }

    /// Levels of the tree; 0 while no leaf was met.
    std::size_t depth() const { return m_depth; }

private:
    using Node = WdbEventBTreeNode<long long, WdbEventDatabaseHeader::NodeCapacity>;

    struct Level {
        Node node;
        Place place;
        int index = -1;               // of the entry that the walk is at
        bool isEdge = false;          // on the right edge
        bool isCutShort = false;      // a rewrite has put more than is in use
        bool isWhole = true;          // all entries so far could be read
        std::int64_t largestGap = 0;  // of the entries so far

        bool isLeaf() const { return node.m_isLeaf != 0; }
        bool isAtEdgeEntry() const { return isEdge && index + 1 == static_cast<int>(node.m_count); }
        Place entryPlace() const;
        std::int64_t timeLength() const;
        bool mayLastTimeBeTorn() const;
    };

    // A record whose time length the next block's start decides.
    struct Covered {
        std::uint64_t number;  // of the record, from 1
        Place place;
        std::int64_t length;
        std::int64_t start;
        std::int64_t span;
        bool mayBeTorn;
    };

    void enter(std::int64_t offset, bool isEdge);
    bool readNode(Level& level);
    void leave();
    bool takeRecord(Level& leaf);
    void judgeNode(Level& level);
    void judgeUnused(Level& level);
    bool isEntryZero(const Node& node, unsigned int index) const;
    bool mayBeChild(const Node& node, unsigned int index) const;
    void judgeEntry(const Level& parent, const Level& child);
    void judgeGap(const Level& level);
    void judgeLength(std::int64_t nextStart);
    void judgeLastLength();

    Inspection& m_inspection;
    Place m_place;
    std::int64_t m_base;
    std::int64_t m_startTime = 0;
    std::deque<Level> m_path;                 // root first; a level stays where it is
    std::vector<std::int64_t> m_lastOfLevel;  // offset of the last node met, by level
    WdbEventBTreeRecordBlock m_record;
    std::int64_t m_lastRecord = 0;  // offset
    std::int64_t m_lastBlock = 0;   // offset
    std::optional<Covered> m_before;
    std::uint64_t m_recordCount = 0;  // with those that could not be read
    std::uint64_t m_nodeCount = 0;
    std::size_t m_depth = 0;
};

}  // namespace Korvel

#pragma once

#include <algorithm>
#include <cstddef>

#include "events/WdbAddressKey.h"
#include "events/WdbEventTreePath.h"

namespace Korvel {

/// A place among the records of an event B-tree as it was when the walk began; it stays valid while
/// the tree grows on. Copies share nodes.
///
/// Every node but the last one of its level is full, so a place has a number: that of the records
/// before it. Records that a damaged node lacks have numbers all the same; the first place of such
/// a gap is visited, and no record is found there.
template <typename Key, unsigned int N, typename Store>
class WdbEventTreeWalk {
public:
    using Path = WdbEventTreePath<Key, N, Store>;

    /// Stands at the end.
    /// @param edge   The tree's right edge; no node of it is read again.
    /// @param store  Where the other nodes are read from; outlives the walk.
    WdbEventTreeWalk(const Path& edge, Store& store) : m_edge(edge), m_path(store) {}

    /// Number of records.
    std::size_t size() const { return m_edge.countRecords(); }

    bool isEnd() const { return m_path.isEmpty(); }

    /// Number of records before the current place. Not at the end.
    std::size_t index() const {
        std::size_t index = 0;
        for (std::size_t i = 0; i < m_path.depth(); ++i)
            index += m_path.level(i).cursor * m_edge.spread(i);
        return index;
    }

    /// Whether a node was met that cannot be read, or that lacks entries.
    bool hasMetDamage() const { return m_hasMetDamage; }

    /// Offset of the current record; 0 at the end and in a gap.
    long long record() const {
        if (isEnd() || !isAtLeaf()) return 0;
        const auto& leaf = m_path.deepest();
        return leaf.cursor < leaf.node->m_count ? leaf.node->m_children[leaf.cursor] : 0;
    }

    void toEnd() {
        while (!m_path.isEmpty())
            m_path.pop();
    }

    /// Moves to a place by its number; to the end when there is none.
    void toIndex(std::size_t index) {
        if (!toRoot() || index >= size()) return toEnd();
        for (std::size_t i = 0;; ++i) {
            auto& level = m_path.deepest();
            level.cursor = static_cast<unsigned int>(index / m_edge.spread(i));
            index %= m_edge.spread(i);
            if (!descend()) return;
        }
    }

    void next() {
        while (!m_path.isEmpty()) {
            auto& level = m_path.deepest();
            // A gap begins behind the last entry of a node that should be full.
            const bool isWhole = level.node->m_count == N || isOnEdge(m_path.depth() - 1);
            if (level.cursor + 1 < level.node->m_count + (isWhole ? 0 : 1)) {
                ++level.cursor;
                toFirstBelow();
                return;
            }
            m_path.pop();
        }
    }

    /// Moves to the last record, not after the one that covers a time, whose key has a wanted
    /// address. An entry covers the times from its start up to the next one's; the last one all
    /// that follow. To the end when there is none, also for a time before the tree's.
    /// @param time  Counted from the tree's start.
    void toCovering(Key time, const WdbAddressKey& wanted) {
        if (time < 0 || !toRoot()) return toEnd();
        if (time >= m_edge.getIndexLength()) {
            m_path.deepest().cursor = m_path.deepest().node->m_count;
            return toPrevious(wanted);
        }
        // The first entry whose running time is greater than a time is longer than 0, so none
        // behind it starts with it: of several that do, the last one is found.
        for (;;) {
            auto& level = m_path.deepest();
            unsigned int entry = 0;
            while (entry < level.node->m_count && level.node->m_runningTimes[entry] <= time)
                ++entry;
            level.cursor = entry;
            if (entry == level.node->m_count || !wanted.isIn(level.node->m_keys[entry]))
                return toPrevious(wanted);
            if (isAtLeaf()) return;
            time = timeBetween(level.node->timeBefore(entry), time);
            if (!descend()) return toPrevious(wanted);
        }
    }

    /// Moves to the nearest record before the current place whose key has a wanted address, past
    /// whole subtrees that have none; to the end when there is none.
    void toPrevious(const WdbAddressKey& wanted) {
        while (!isEnd()) {
            if (!stepBack(m_path.deepest(), wanted)) {
                m_path.pop();
            } else if (isAtLeaf()) {
                return;
            } else if (descend()) {
                m_path.deepest().cursor = m_path.deepest().node->m_count;
            }
        }
    }

    /// The same for the records behind the current place.
    void toNext(const WdbAddressKey& wanted) {
        while (!isEnd()) {
            if (!stepForward(m_path.deepest(), wanted)) {
                m_path.pop();
            } else if (isAtLeaf()) {
                return;
            } else if (descend()) {
                m_path.deepest().cursor = BeforeFirst;
            }
        }
    }

    /// Whether there is a record at the current place whose key has a wanted address.
    bool isWanted(const WdbAddressKey& wanted) const {
        if (isEnd() || !isAtLeaf()) return false;
        const Level& level = m_path.deepest();
        return level.cursor < level.node->m_count && wanted.isIn(level.node->m_keys[level.cursor]);
    }

private:
    using Level = typename Path::Level;
    static constexpr unsigned int BeforeFirst = ~0u;  // the entry after it is 0

    static bool stepBack(Level& level, const WdbAddressKey& wanted) {
        level.cursor = std::min(level.cursor, level.node->m_count);
        while (level.cursor > 0) {
            if (wanted.isIn(level.node->m_keys[--level.cursor])) return true;
        }
        return false;
    }

    static bool stepForward(Level& level, const WdbAddressKey& wanted) {
        while (++level.cursor < level.node->m_count) {
            if (wanted.isIn(level.node->m_keys[level.cursor])) return true;
        }
        return false;
    }

    bool isLeafLevel(std::size_t level) const { return level + 1 == m_edge.depth(); }
    bool isAtLeaf() const { return m_path.depth() == m_edge.depth(); }
    bool isOnEdge(std::size_t level) const {
        return m_path.level(level).offset == m_edge.level(level).offset;
    }

    // False, and at the end, when there is no record at all.
    bool toRoot() {
        toEnd();
        if (m_edge.isEmpty() || m_edge.level(0).node->m_count == 0) return false;
        m_path.push(m_edge.level(0));
        m_path.deepest().cursor = 0;
        m_recent.resize(m_edge.depth());
        return true;
    }

    // Goes to the first entry of the child that the current entry names. False, and no move, at a
    // leaf, in a gap and where the child cannot be read.
    bool descend() {
        const Level& level = m_path.deepest();
        if (isAtLeaf() || level.cursor >= level.node->m_count) return false;
        const long long child = level.node->m_children[level.cursor];
        const std::size_t depth = m_path.depth();
        if (child == m_edge.level(depth).offset) {
            m_path.push(m_edge.level(depth));
        } else if (child == m_recent[depth].offset) {
            m_path.push(m_recent[depth]);
        } else if (!readChild(child)) {
            return false;
        }
        m_path.deepest().cursor = 0;
        return true;
    }

    bool readChild(long long child) {
        const std::size_t depth = m_path.depth();
        bool isSound = m_path.push(child);
        if (isSound && (m_path.deepest().node->m_isLeaf != 0) != isLeafLevel(depth)) {
            m_path.pop();
            isSound = false;
        }
        if (!isSound || m_path.deepest().node->m_count < N) m_hasMetDamage = true;
        if (isSound) m_recent[depth] = m_path.deepest();
        return isSound;
    }

    void toFirstBelow() {
        while (descend()) {
        }
    }

    Path m_edge;
    Path m_path;                  // to the current place; empty at the end; ends above a gap
    std::vector<Level> m_recent;  // the node read last, one a level
    bool m_hasMetDamage = false;
};

}  // namespace Korvel

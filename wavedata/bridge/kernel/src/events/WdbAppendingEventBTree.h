#pragma once

#include <cstddef>

#include "container/WdbNodeChain.h"
#include "events/WdbEventTreePath.h"
#include "events/WdbEventTreeWalk.h"

namespace Korvel {

/// Append-only B-tree over the records of one bucket's event blocks, N entries a node.
///
/// How long a record lasts is known only when the next block comes, so the newest record is held
/// back as pending. Publishing brings it into the tree with its block's own time span, to be put
/// right later, and writes the right edge. What is published can be found in the file.
///
/// A tree that has a root in the file is only read. One thread at a time.
template <typename Record, typename Key, unsigned int N, typename Store>
class WdbAppendingEventBTree {
public:
    using TreePointer = WdbEventTreePath<Key, N, Store>;
    using Walk = WdbEventTreeWalk<Key, N, Store>;
    using Node = typename TreePointer::Node;

    enum class Access { Append, Read };

    /// @param nodes     Keeps the nodes.
    /// @param blocks    Keeps the root's slot and the record blocks. What another process may be
    ///                  rewriting is read through it too, so it keeps no copies.
    /// @param rootSlot  Where the root's offset is kept, 8 bytes; 0 where there is nothing to read.
    /// @param access    Append makes the root of a new tree; Read changes nothing.
    WdbAppendingEventBTree(Store& nodes, Store& blocks, long long rootSlot, Access access)
        : m_pNodes(&nodes),
          m_pBlocks(&blocks),
          m_rootSlot(rootSlot),
          m_access(access),
          m_openPath(access == Access::Append ? nodes : blocks) {
        if (access == Access::Read) {
            readEdge();
        } else {
            m_openPath.makeRoot();
            putRoot();
        }
    }
    ~WdbAppendingEventBTree() { publish(); }
    WdbAppendingEventBTree(const WdbAppendingEventBTree&) = delete;
    WdbAppendingEventBTree& operator=(const WdbAppendingEventBTree&) = delete;

    long long getRootNode() const { return m_rootNode; }

    /// Whether a record was added.
    bool hasRecord() const { return m_isPending; }

    /// Whether something on the right edge could not be read.
    bool isCut() const { return m_isCut; }

    /// Adds a record; the one before it gets its final time length. Not for a tree that is only
    /// read.
    void append(const Record& record) {
        if (m_isPending) {
            m_pending.timeLength = timeBetween(m_pending.startTime, record.startTime);
            if (m_isPublished) {
                // Its record block does not tell the time length, so that stays as it is.
                m_openPath.setLastTimeLength(m_pending.timeLength);
            } else {
                bringIn();
            }
        }
        m_pending = record;
        m_isPending = true;
        m_isPublished = false;
    }

    /// Brings the pending record into the tree and writes what is newer than the file. Of a tree
    /// that is only read, finds what another process has published since.
    /// @return whether that was something.
    bool publish() {
        if (m_access == Access::Read) {
            if (!isOutdated()) return false;
            readEdge();
            return true;
        }
        if (m_isPending && !m_isPublished) {
            bringIn();
            m_isPublished = true;
        }
        if (m_openPath.isDirty()) {
            m_openPath.settle();
            m_openPath.writeAll();
        }
        return false;
    }

    /// A walk over what is published now.
    Walk walk() const { return Walk(m_openPath, *m_pNodes); }

private:
    void bringIn() {
        m_recordOffset = m_pBlocks->addBlock(reinterpret_cast<const char*>(&m_pending.stored),
                                             sizeof(m_pending.stored));
        m_openPath.append(m_recordOffset, m_pending.timeLength, m_pending.stored.largestDiff,
                          m_pending.key);
        putRoot();
    }

    void putRoot() {
        if (m_openPath.getRoot() == m_rootNode) return;
        m_rootNode = m_openPath.getRoot();
        writeHandleSlot(*m_pBlocks, m_rootSlot, m_rootNode);
    }

    // Reads the right edge. The last entry of a node on it may be older than its child in a file
    // that was not closed, and is made equal to it here. What cannot be read is left out.
    void readEdge() {
        TreePointer edge(*m_pBlocks);
        m_isCut = false;
        m_rootNode = m_rootSlot == 0 ? 0 : readHandleSlot(*m_pBlocks, m_rootSlot);
        if (m_rootNode != 0) m_isCut = !pushNode(edge, m_rootNode);
        for (unsigned int tries = MostTries; !isComplete(edge); --tries) {
            if (tries == 0) {
                m_isCut = true;
                edge = TreePointer(*m_pBlocks);
            } else if (!pushLastChild(edge)) {
                m_isCut = true;
                leaveOut(edge);
            }
        }
        for (std::size_t i = 0; i < edge.depth(); ++i)
            m_isCut = m_isCut || edge.level(i).node->m_count < edge.level(i).claimed;
        if (!edge.isEmpty()) edge.mendLastTime();
        edge.settle();
        m_openPath = edge;
    }

    static bool isComplete(const TreePointer& edge) {
        return edge.isEmpty() || (edge.deepest().node->m_isLeaf != 0 && edge.mayBeWhole());
    }

    bool pushLastChild(TreePointer& edge) const {
        const Node& node = *edge.deepest().node;
        if (node.m_count == 0 || node.m_isLeaf != 0 || !edge.mayBeDeeper() ||
            !pushNode(edge, node.m_children[node.m_count - 1])) {
            return false;
        }
        if (edge.deepest().node->m_count > 0) return true;
        edge.pop();
        return false;
    }

    // Its writer may be rewriting the node. The count is written last, so the entries that it
    // counted before the rest is read are there, unless the file is damaged.
    bool pushNode(TreePointer& edge, long long offset) const {
        return mayFollowHandle(*m_pBlocks, offset, sizeof(Node)) &&
               edge.push(offset, readCount(offset));
    }

    unsigned int readCount(long long node) const {
        unsigned int count = 0;
        m_pBlocks->getBlock(node + static_cast<long long>(offsetof(Node, m_count)),
                            reinterpret_cast<char*>(&count), sizeof(count));
        return count;
    }

    // The last entry of the deepest node cannot be followed.
    static void leaveOut(TreePointer& edge) {
        while (!edge.isEmpty() && edge.deepest().node->m_count == 0)
            edge.pop();
        if (!edge.isEmpty()) edge.dropLastEntry();
    }

    // Whether another process wrote to the right edge: all that it adds shows in the counts of
    // nodes that were there, or in the root.
    bool isOutdated() const {
        if (m_rootSlot == 0) return false;
        if (readHandleSlot(*m_pBlocks, m_rootSlot) != m_rootNode) return true;
        for (std::size_t i = 0; i < m_openPath.depth(); ++i) {
            const auto& level = m_openPath.level(i);
            if (readCount(level.offset) != level.claimed) return true;
        }
        return false;
    }

    // Of a damaged tree, how many entries of its right edge are tried before it counts as empty.
    static constexpr unsigned int MostTries = 10 * N;

    Store* m_pNodes;
    Store* m_pBlocks;
    long long m_rootSlot;
    long long m_rootNode = 0;
    Record m_pending;
    long long m_recordOffset = 0;  // of the pending record's block, once it is in the tree
    bool m_isPending = false;
    bool m_isPublished = false;
    Access m_access;
    bool m_isCut = false;
    TreePointer m_openPath;
};

}  // namespace Korvel

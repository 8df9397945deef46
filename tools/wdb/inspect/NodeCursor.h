#pragma once

#include "container/WdbNodeChain.h"
#include "inspect/Inspection.h"

#include <algorithm>
#include <cstdint>
#include <type_traits>

namespace Korvel {

/// Goes through the entries of a list, node by node, and judges each node on the way.
///
/// A chain only leads forward, because a file only grows at its end; with every node's bytes
/// claimed once, a walk ends on any bytes.
template <typename Node>
class NodeCursor {
public:
    using Entry = typename Node::Entry;

    /// @param owner      Whose list it is.
    /// @param firstNode  0 for an empty list.
    NodeCursor(Inspection& inspection, const Place& owner, std::int64_t firstNode)
        : m_inspection(inspection), m_place(owner) {
        if (firstNode != 0) m_isAtNode = load(firstNode);
    }

    /// Moves to the next entry that names something. False at the end.
    bool next() {
        while (m_isAtNode) {
            for (++m_index; m_index < m_used; ++m_index) {
                if (m_node.isEntryWhole(static_cast<unsigned int>(m_index))) return true;
                m_inspection.error(place(), "an entry in use names no block");
            }
            m_isAtNode = loadNext();
        }
        return false;
    }

    Entry entry() const { return m_node.entry(static_cast<unsigned int>(m_index)); }

    /// Of the current entry.
    Place place() const {
        Place place = m_place;
        place.entry = m_index;
        return place;
    }

    std::uint64_t nodeCount() const { return m_nodeCount; }

private:
    static constexpr int Capacity = static_cast<int>(Node::Capacity);

    bool load(std::int64_t offset) {
        m_place.node = offset;
        m_index = -1;
        m_used = 0;
        if (!m_inspection.takeRecord(m_place, offset, m_node)) return false;
        ++m_nodeCount;
        judge();
        return true;
    }

    bool loadNext() {
        if (m_node.m_next == 0) return false;
        if (m_node.m_next > m_place.node) return load(m_node.m_next);
        m_inspection.error(m_place, "the next node, at {}, does not lie behind this one",
                           m_node.m_next);
        return false;
    }

    void judge() {
        m_used = static_cast<int>(std::min(m_node.m_count, Node::Capacity));
        if (m_node.m_count > Node::Capacity) {
            m_inspection.error(m_place, "{} entries are more than the {} of a node", m_node.m_count,
                               Capacity);
        }
        if (m_node.m_next != 0 && m_used < Capacity) {
            m_inspection.error(m_place, "a node with {} of {} entries names a next one", m_used,
                               Capacity);
        }
        if (m_node.m_padding != 0) {
            m_inspection.error(m_place, "the padding behind the count is not zero");
        }
        judgeUnused();
    }

    // A rewrite of the node that a kill cut short has put the entries but not yet their count:
    // what it leaves is a run right behind the used ones, of blocks that are in the file.
    void judgeUnused() {
        int end = Capacity;
        while (end > m_used && isEntryZero(m_node.entry(static_cast<unsigned int>(end - 1))))
            --end;
        if (end == m_used) return;
        bool isCutShort = true;
        for (int i = m_used; i < end; ++i)
            isCutShort = isCutShort && mayBeBlock(m_node.entry(static_cast<unsigned int>(i)));
        if (isCutShort) {
            m_inspection.warning(m_place,
                                 "{} entries behind the {} in use: a rewrite of the node "
                                 "was cut short",
                                 end - m_used, m_used);
        } else {
            m_inspection.error(m_place, "unused entry {} is not zero", end - 1);
        }
    }

    static bool isEntryZero(const Entry& entry) {
        if constexpr (requires { entry.handle; }) {
            return entry.handle == 0 && entry.size == 0;
        } else {
            return entry.firstHandle == 0 && entry.firstSize == 0 && entry.secondHandle == 0 &&
                   entry.secondSize == 0;
        }
    }

    bool mayBeBlock(const Entry& entry) const {
        if constexpr (requires { entry.handle; }) {
            return entry.handle > 0 && m_inspection.bytes().holds(entry.handle, entry.size);
        } else {
            return entry.firstHandle > 0 &&
                   m_inspection.bytes().holds(entry.firstHandle, entry.firstSize);
        }
    }

    Inspection& m_inspection;
    Place m_place;  // of the current node
    Node m_node;
    int m_index = -1;  // of the current entry
    int m_used = 0;    // entries in use
    bool m_isAtNode = false;
    std::uint64_t m_nodeCount = 0;
};

}  // namespace Korvel

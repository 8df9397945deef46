#include "events/WdbEventBlockList.h"

#include <algorithm>

#include "events/WdbTimeSums.h"

namespace Korvel {

long long latestStoredTime(const WdbEventBlockList& list, const WdbIBlockManager& store,
                           unsigned int blockSize, long long fallback) {
    const WdbEventBlockList::Node& node = list.getCurrentNode();
    if (node.m_count == 0) return fallback;
    const WdbEventBlockList::Node::Entry last = node.entry(node.m_count - 1);
    WdbEventBlock block(blockSize, 0);
    block.loadBlock(last.handle, last.size, store);
    if (block.isEmpty()) return fallback;
    return addTimes(block.getStartTime(), block.getTimeLength());
}

WdbEventBlockListIterator::WdbEventBlockListIterator(const WdbIBlockManager& store,
                                                     const WdbEventBlockList& list,
                                                     long long baseAddress)
    : WdbStoredBlockIterator(store, baseAddress),
      m_isCut(list.isCut()),
      m_nodes(list.getNodes()),
      m_lastNode(list.getCurrentNode()) {
    openNode(0);
}

bool WdbEventBlockListIterator::isEof() const {
    return isAtLastNode() && m_index >= node().m_count;
}

WdbEventBlockListIterator& WdbEventBlockListIterator::operator++() {
    if (m_index < node().m_count) ++m_index;
    if (m_index >= node().m_count && !isAtLastNode()) {
        openNode(m_nodeIndex + 1);
        m_index = 0;
    }
    return *this;
}

WdbStoredBlock WdbEventBlockListIterator::getStoredBlock() const {
    if (m_index >= node().m_count) return {};
    const Node::Entry entry = node().entry(m_index);
    return {entry.handle, entry.size};
}

std::size_t WdbEventBlockListIterator::getBlockCount() const {
    if (m_nodes.empty()) return 0;
    return (m_nodes.size() - 1) * Node::Capacity + m_lastNode.m_count;
}

void WdbEventBlockListIterator::moveTo(std::size_t index) {
    const std::size_t position = std::min(index, getBlockCount());
    const std::size_t last = m_nodes.empty() ? 0 : m_nodes.size() - 1;
    // The end behind a full last node is still in that node.
    openNode(std::min(position / Node::Capacity, last));
    m_index = static_cast<unsigned int>(position - m_nodeIndex * Node::Capacity);
}

void WdbEventBlockListIterator::openNode(std::size_t nodeIndex) {
    m_nodeIndex = nodeIndex;
    if (isAtLastNode() || m_loadedNode == nodeIndex) return;
    m_loadedNode = nodeIndex;
    m_node = Node();
    // The file may have become shorter since the handle was met.
    if (mayFollowHandle(store(), m_nodes[nodeIndex], sizeof(Node))) {
        readNode(store(), m_nodes[nodeIndex], m_node);
    }
}

}  // namespace Korvel

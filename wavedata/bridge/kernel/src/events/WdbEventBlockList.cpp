#include "events/WdbEventBlockList.h"

#include <algorithm>

namespace Korvel {

void saveEventInNextBlock(WdbEventBlockList& list, bool filter, long long time, long long address,
                          unsigned int valueLength, const unsigned char* value) {
    WdbEventBlock& block = list.openRecord();
    if (filter) {
        block.filterOutRepeatedValue();
        if (block.canAdd(valueLength)) {
            block.addEvent(time, address, valueLength, value);
            return;
        }
    }
    list.closeRecord();
    if (list.openRecord().hasRoomFor(valueLength)) {
        block.addEvent(time, address, valueLength, value);
        return;
    }
    const unsigned int longest =
        block.getMaxEventBlockSize() - WdbEventBlock::HeaderSize - WdbEvent::HeaderSize;
    while (valueLength > 0) {
        const unsigned int length = std::min(valueLength, longest);
        saveEventInList(list, filter, time, address, length, value);
        address += length;
        value += length;
        valueLength -= length;
    }
}

long long latestStoredTime(const WdbEventBlockList& list, const WdbIBlockManager& store,
                           unsigned int blockSize, long long fallback) {
    const WdbEventBlockList::Node& node = list.getCurrentNode();
    if (node.m_count == 0) return fallback;
    const WdbEventBlockList::Node::Entry last = node.entry(node.m_count - 1);
    WdbEventBlock block(blockSize, 0);
    block.loadBlock(last.handle, last.size, store);
    if (block.isEmpty()) return fallback;
    return static_cast<long long>(static_cast<unsigned long long>(block.getStartTime()) +
                                  static_cast<unsigned long long>(block.getTimeLength()));
}

WdbEventBlockListIterator::WdbEventBlockListIterator(const WdbIBlockManager& store,
                                                     long long firstNode, long long baseAddress)
    : m_pStore(&store), m_baseAddress(baseAddress), m_walker(store, firstNode) {}

bool WdbEventBlockListIterator::isEof() const {
    return m_index >= entryCount() && !m_walker.hasNext();
}

WdbEventBlockListIterator& WdbEventBlockListIterator::operator++() {
    if (m_index < entryCount()) ++m_index;
    if (m_index >= entryCount() && m_walker.next()) m_index = 0;
    return *this;
}

void WdbEventBlockListIterator::getEventBlock(WdbEventBlock& block) const {
    block.setBaseAddress(m_baseAddress);
    if (m_index < entryCount()) {
        const WdbEventBlockList::Node::Entry entry = m_walker.node().entry(m_index);
        block.loadBlock(entry.handle, entry.size, *m_pStore);
    } else {
        block.loadBlock(0, 0, *m_pStore);
    }
}

}  // namespace Korvel

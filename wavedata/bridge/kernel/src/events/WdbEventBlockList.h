#pragma once

#include "container/WdbAppendingBlockList.h"
#include "events/WdbEventBlock.h"
#include "events/WdbEventDatabaseHeader.h"
#include "events/WdbIEventBlockIterator.h"

namespace Korvel {

/// The event blocks of one bucket in the order of their times.
using WdbEventBlockList =
    WdbAppendingBlockList<WdbEventBlock, WdbEventDatabaseHeader::NodeCapacity>;

/// saveEventInList() for an event that the current block cannot take.
void saveEventInNextBlock(WdbEventBlockList& list, bool filter, long long time, long long address,
                          unsigned int valueLength, const unsigned char* value);

/// Adds an event to the list's current block. A block that cannot take it is stored first, after
/// the superseded writes in it were dropped when @p filter is set and that was not enough. An event
/// that no block can take is cut into events over consecutive addresses.
/// Runs once per value change.
inline void saveEventInList(WdbEventBlockList& list, bool filter, long long time, long long address,
                            unsigned int valueLength, const unsigned char* value) {
    WdbEventBlock& block = list.openRecord();
    if (block.canAdd(valueLength)) {
        block.addEvent(time, address, valueLength, value);
    } else {
        saveEventInNextBlock(list, filter, time, address, valueLength, value);
    }
}

/// Time of the last event that the list's stored blocks hold; @p fallback without one.
/// @param blockSize  Bytes of a block before compression.
long long latestStoredTime(const WdbEventBlockList& list, const WdbIBlockManager& store,
                           unsigned int blockSize, long long fallback);

/// Goes through the blocks of a list as they were stored when the iterator was made.
class WdbEventBlockListIterator : public WdbIEventBlockIterator {
public:
    /// @param firstNode    Of the list; 0 for an empty one.
    /// @param baseAddress  What the addresses of the list's blocks count from.
    WdbEventBlockListIterator(const WdbIBlockManager& store, long long firstNode,
                              long long baseAddress);

    bool isEof() const override;
    operator bool() const override { return !isEof(); }
    WdbEventBlockListIterator& operator++() override;

    /// Leaves @p block empty at the end.
    void getEventBlock(WdbEventBlock& block) const override;

private:
    unsigned int entryCount() const { return m_walker.isAtNode() ? m_walker.node().m_count : 0; }

    const WdbIBlockManager* m_pStore;
    long long m_baseAddress;
    WdbEventBlockList::Walker m_walker;  // holds a copy of the node that is being read
    unsigned int m_index = 0;            // of the current entry in it
};

}  // namespace Korvel

#pragma once

#include <cstddef>
#include <vector>

#include "container/WdbAppendingBlockList.h"
#include "events/WdbEventBlock.h"
#include "events/WdbEventDatabaseHeader.h"
#include "events/WdbEventSaving.h"
#include "events/WdbStoredBlockIterator.h"

namespace Korvel {

/// The event blocks of one bucket in the order of their times.
using WdbEventBlockList =
    WdbAppendingBlockList<WdbEventBlock, WdbEventDatabaseHeader::NodeCapacity>;

/// saveEventInBlock() for the list's current block. Runs once per value change.
inline void saveEventInList(WdbEventBlockList& list, bool filter, long long time, long long address,
                            unsigned int valueLength, const unsigned char* value) {
    const auto storeBlock = [&list] {
        list.closeRecord();
        list.openRecord();
    };
    saveEventInBlock(list.openRecord(), filter, storeBlock, time, address, valueLength, value);
}

/// Time of the last event that the list's stored blocks hold; @p fallback without one.
/// @param blockSize  Bytes of a block before compression.
long long latestStoredTime(const WdbEventBlockList& list, const WdbIBlockManager& store,
                           unsigned int blockSize, long long fallback);

/// Goes through the blocks of a list as they were stored when the iterator was made.
class WdbEventBlockListIterator : public WdbStoredBlockIterator {
public:
    /// @param list         Flushed; need not outlive the iterator.
    /// @param baseAddress  What the addresses of the list's blocks count from.
    WdbEventBlockListIterator(const WdbIBlockManager& store, const WdbEventBlockList& list,
                              long long baseAddress);

    bool isEof() const override;
    operator bool() const override { return !isEof(); }
    WdbEventBlockListIterator& operator++() override;

    WdbStoredBlock getStoredBlock() const override;

    /// A damaged node counts as a full one; what it lacks has a place, but no block.
    std::size_t getBlockCount() const override;
    bool isCut() const override { return m_isCut; }
    void moveTo(std::size_t index) override;

private:
    using Node = WdbEventBlockList::Node;
    static constexpr std::size_t NoNode = ~std::size_t{0};

    bool isAtLastNode() const { return m_nodeIndex + 1 >= m_nodes.size(); }
    const Node& node() const { return isAtLastNode() ? m_lastNode : m_node; }
    void openNode(std::size_t nodeIndex);

    bool m_isCut;                       // when the iterator was made
    std::vector<long long> m_nodes;     // handles
    Node m_lastNode;                    // a copy: its writer may go on with the stored one
    Node m_node;                        // a copy of another node, read when it was moved to
    std::size_t m_loadedNode = NoNode;  // which one
    std::size_t m_nodeIndex = 0;        // the node that the current entry is in
    unsigned int m_index = 0;           // of the current entry in it
};

}  // namespace Korvel

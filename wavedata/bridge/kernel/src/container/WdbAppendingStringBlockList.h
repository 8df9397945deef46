#pragma once

#include <memory>

#include "container/WdbNodeChain.h"

namespace Korvel {

/// List of records of type T whose entries hold two handles and two sizes, N entries a node.
///
/// T is made with one parameter, the owner's block size, and empties itself with `clear()`. It
/// stores itself with `long long addBlock(WdbIBlockManager&, unsigned int& firstSize,
/// long long& secondHandle, unsigned int& secondSize)` (handle 0: nothing to store).
/// One thread at a time.
template <typename T, unsigned int N>
class WdbAppendingStringBlockList {
public:
    using Node = WdbStringBlockListNode<N>;
    using Walker = WdbNodeWalker<Node>;

    /// Stores an empty node and returns its handle.
    static long long createAnEmptyIndexTable(WdbIBlockManager& store) {
        return WdbNodeChain<Node>::addEmptyNode(store);
    }

    /// Opens the list that begins at @p firstNode; 0 is an empty list.
    WdbAppendingStringBlockList(WdbIBlockManager& store, long long firstNode,
                                unsigned int recordSize)
        : m_pStore(&store), m_recordSize(recordSize), m_chain(store, firstNode) {}

    /// The record to fill in; allocated on first use.
    T& openRecord() {
        if (!m_record) m_record = std::make_unique<T>(m_recordSize);
        m_recordOpen = true;
        return *m_record;
    }

    /// Stores the open record and appends its entry; without one there is nothing to do.
    void closeRecord() {
        if (!m_recordOpen) return;
        unsigned int firstSize = 0;
        long long secondHandle = 0;
        unsigned int secondSize = 0;
        const long long handle = m_record->addBlock(*m_pStore, firstSize, secondHandle, secondSize);
        if (handle != 0) appendIndex(handle, firstSize, secondHandle, secondSize);
        m_record->clear();
        m_recordOpen = false;
    }

    void appendIndex(long long firstHandle, unsigned int firstSize, long long secondHandle,
                     unsigned int secondSize) {
        m_chain.append({firstHandle, firstSize, secondHandle, secondSize});
    }

    /// Writes the current node when it changed.
    void flush() { m_chain.flush(); }

    /// Closes the record and writes the current node: all that was added can now be walked.
    void settle() {
        closeRecord();
        flush();
    }

    long long getFirstNode() const { return m_chain.getFirstNode(); }
    const Node& getCurrentNode() const { return m_chain.getLastNode(); }

    /// Walks the stored nodes; call settle() before where the newest entries matter.
    Walker walk() const { return Walker(*m_pStore, getFirstNode()); }

private:
    WdbIBlockManager* m_pStore;
    unsigned int m_recordSize;
    std::unique_ptr<T> m_record;  // null until first used
    bool m_recordOpen = false;
    WdbNodeChain<Node> m_chain;
};

}  // namespace Korvel

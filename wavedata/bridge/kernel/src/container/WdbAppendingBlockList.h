#pragma once

#include <memory>
#include <type_traits>
#include <vector>

#include "container/WdbNodeChain.h"

namespace Korvel {

/// Whether a list may be appended to. A list that is only read never writes, not even the node that
/// an empty one lacks.
enum class WdbListAccess { Append, Read };

/// List of records of type T that grows at its end, N entries a node.
///
/// The first node's handle lives in an 8-byte slot that the owner names. T is made with the owner's
/// two parameters where it has such a constructor. It stores itself with
/// `long long addBlock(WdbIBlockManager&, unsigned int& size)` (handle 0: nothing to store) and
/// empties itself with `clear()`; one T serves all records of the list in turn.
///
/// The owner flushes before it reads the list and when it is done. One thread at a time.
template <typename T, unsigned int N>
class WdbAppendingBlockList {
public:
    using Node = WdbBlockListNode<N>;
    using Walker = WdbNodeWalker<Node>;

    /// Opens the list whose first node is named at @p headSlot. Where the slot holds 0 and the list
    /// may grow, an empty node is stored and named there first.
    WdbAppendingBlockList(WdbIBlockManager& store, long long headSlot, unsigned int firstParameter,
                          long long secondParameter, WdbListAccess access = WdbListAccess::Append)
        : m_pStore(&store),
          m_head(openHead(store, headSlot, access)),
          m_firstParameter(firstParameter),
          m_secondParameter(secondParameter),
          m_chain(store, m_head) {}

    /// The record to fill in; allocated on first use.
    T& openRecord() {
        if (!m_record) makeRecord();
        m_recordOpen = true;
        return *m_record;
    }

    /// The open record, or null.
    T* getOpenRecord() const { return m_recordOpen ? m_record.get() : nullptr; }

    /// Stores the open record and appends its entry; without one there is nothing to do.
    void closeRecord() {
        if (!m_recordOpen) return;
        unsigned int size = 0;
        m_lastRecord = m_record->addBlock(*m_pStore, size);
        if (m_lastRecord != 0) append(m_lastRecord, size);
        m_record->clear();
        m_recordOpen = false;
    }

    /// Appends an entry for a block that the caller stored itself.
    void append(long long handle, unsigned int size) { m_chain.append({handle, size}); }

    /// Writes the current node when it changed.
    void flush() { m_chain.flush(); }

    /// Closes the record and writes the current node: all that was appended can now be walked.
    void settle() {
        closeRecord();
        flush();
    }

    /// Finds what another process appended since. Only for a list that is only read.
    void lookAgain() { m_chain.lookAgain(); }

    bool isDirty() const { return m_chain.isDirty(); }
    long long getFirstNode() const { return m_chain.getFirstNode(); }
    long long getLastRecord() const { return m_lastRecord; }
    const Node& getCurrentNode() const { return m_chain.getLastNode(); }
    const std::vector<long long>& getNodes() const { return m_chain.getNodes(); }
    bool isCut() const { return m_chain.isCut(); }

    /// Walks the stored nodes; call settle() before where the newest entries matter.
    Walker walk() const { return Walker(*m_pStore, getFirstNode()); }

private:
    static long long openHead(WdbIBlockManager& store, long long headSlot, WdbListAccess access) {
        long long head = readHandleSlot(store, headSlot);
        if (head == 0 && access == WdbListAccess::Append) {
            head = WdbNodeChain<Node>::addEmptyNode(store);
            writeHandleSlot(store, headSlot, head);
        }
        return head;
    }

    void makeRecord() {
        if constexpr (std::is_constructible_v<T, unsigned int, long long>) {
            m_record = std::make_unique<T>(m_firstParameter, m_secondParameter);
        } else {
            m_record = std::make_unique<T>();
        }
    }

    WdbIBlockManager* m_pStore;
    long long m_head;
    long long m_lastRecord = 0;  // handle of the record stored last; 0 before any
    unsigned int m_firstParameter;
    long long m_secondParameter;
    std::unique_ptr<T> m_record;  // null until first used
    bool m_recordOpen = false;
    WdbNodeChain<Node> m_chain;
};

}  // namespace Korvel

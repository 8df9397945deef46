#pragma once

// The chain of nodes under every appending list. A list grows by entries; the entries live in
// nodes of a fixed capacity; each node names the next.
//
// Invariants that a reader of a killed or a growing file relies on
//   1. A node is in the store before anything names it.
//   2. Only the last node of a chain has room. A node that names a next one is full.
//   3. An entry in use has a handle and a size that are not 0, and entries are used in order.
//
// Little-endian, no alignment assumed. Unused entries are zero.

#include <cstddef>
#include <vector>

#include "container/WdbIBlockManager.h"
#include "container/WdbIHandleCheck.h"

namespace Korvel {

/// Node whose entries name one block each.
///
///   offset    size  field
///        0       8  next node's handle, signed; 0 in the last node
///        8      8N  handles of the blocks, signed
///     8+8N      4N  sizes of the blocks in bytes, unsigned
///    8+12N       4  number of entries in use
///   12+12N       4  zero
template <unsigned int N>
struct WdbBlockListNode {
    static constexpr unsigned int Capacity = N;

    struct Entry {
        long long handle;
        unsigned int size;
    };

    Entry entry(unsigned int index) const { return {m_handles[index], m_sizes[index]}; }

    void append(const Entry& entry) {
        m_handles[m_count] = entry.handle;
        m_sizes[m_count] = entry.size;
        ++m_count;
    }

    bool isEntryWhole(unsigned int index) const {
        return m_handles[index] != 0 && m_sizes[index] != 0;
    }

    long long m_next = 0;
    long long m_handles[N] = {};
    unsigned int m_sizes[N] = {};
    unsigned int m_count = 0;
    unsigned int m_padding = 0;
};

/// Node whose entries have two handles and two sizes.
///
///   offset    size  field
///        0       8  next node's handle, signed; 0 in the last node
///        8      8N  first handles, signed
///     8+8N      8N  second handles, signed
///    8+16N      4N  first sizes, unsigned
///    8+20N      4N  second sizes, unsigned
///    8+24N       4  number of entries in use
///   12+24N       4  zero
template <unsigned int N>
struct WdbStringBlockListNode {
    static constexpr unsigned int Capacity = N;

    struct Entry {
        long long firstHandle;
        unsigned int firstSize;
        long long secondHandle;
        unsigned int secondSize;
    };

    Entry entry(unsigned int index) const {
        return {m_firstHandles[index], m_firstSizes[index], m_secondHandles[index],
                m_secondSizes[index]};
    }

    void append(const Entry& entry) {
        m_firstHandles[m_count] = entry.firstHandle;
        m_firstSizes[m_count] = entry.firstSize;
        m_secondHandles[m_count] = entry.secondHandle;
        m_secondSizes[m_count] = entry.secondSize;
        ++m_count;
    }

    bool isEntryWhole(unsigned int index) const {
        return m_firstHandles[index] != 0 && m_firstSizes[index] != 0;
    }

    long long m_next = 0;
    long long m_firstHandles[N] = {};
    long long m_secondHandles[N] = {};
    unsigned int m_firstSizes[N] = {};
    unsigned int m_secondSizes[N] = {};
    unsigned int m_count = 0;
    unsigned int m_padding = 0;
};

static_assert(sizeof(WdbBlockListNode<10>) == 136 && sizeof(WdbBlockListNode<100>) == 1216);
static_assert(sizeof(WdbStringBlockListNode<100>) == 2416);

/// Number of leading entries of a node that can be used, whatever its count claims.
template <typename Node>
unsigned int usableEntries(const Node& node) {
    unsigned int usable = 0;
    while (usable < node.m_count && usable < Node::Capacity && node.isEntryWhole(usable))
        ++usable;
    return usable;
}

/// Reads a node and cuts its count to the entries that can be used.
///
/// Its writer may be rewriting the node at this moment, or may have been killed while it did. A
/// node that mixes two states shows an entry with a zero in it; what lies before is the older
/// state.
template <typename Node>
void readNode(const WdbIBlockManager& store, long long handle, Node& node) {
    store.getBlock(handle, reinterpret_cast<char*>(&node), sizeof(Node));
    node.m_count = usableEntries(node);
}

/// Goes through the nodes of a chain, first to last. Finite and safe on any bytes: it ends at a
/// handle that the store does not hold or, in a file, at one that does not lie behind its node.
template <typename Node>
class WdbNodeWalker {
public:
    WdbNodeWalker(const WdbIBlockManager& store, long long firstNode)
        : m_pStore(&store), m_pCheck(WdbIHandleCheck::of(store)), m_named(firstNode) {
        if (mayFollow(firstNode)) load(firstNode);
    }

    bool isAtNode() const { return m_handle != 0; }
    const Node& node() const { return m_node; }
    long long handle() const { return m_handle; }

    /// Whether a next node exists and can be read.
    bool hasNext() const {
        return isAtNode() && mayFollow(m_node.m_next) &&
               (m_pCheck == nullptr || m_node.m_next > m_handle);
    }

    /// Whether a node is named that cannot be read: the chain is damaged here.
    bool isCut() const { return (isAtNode() ? m_node.m_next : m_named) != 0 && !hasNext(); }

    /// Moves to the next node. False, and no move, when there is none.
    bool next() {
        if (!hasNext()) return false;
        load(m_node.m_next);
        return true;
    }

private:
    bool mayFollow(long long handle) const {
        return handle != 0 && (m_pCheck == nullptr || m_pCheck->mayFollow(handle, sizeof(Node)));
    }

    void load(long long handle) {
        readNode(*m_pStore, handle, m_node);
        m_handle = handle;
    }

    const WdbIBlockManager* m_pStore;
    const WdbIHandleCheck* m_pCheck;  // null where handles come from this process alone
    Node m_node;
    long long m_named;       // the chain's first node as its owner names it
    long long m_handle = 0;  // 0 while there is no node at all
};

/// Reads the handle of a chain's first node from the 8-byte slot that its owner keeps.
inline long long readHandleSlot(const WdbIBlockManager& store, long long slot) {
    long long handle = 0;
    store.getBlock(slot, reinterpret_cast<char*>(&handle), sizeof(handle));
    return handle;
}

inline void writeHandleSlot(WdbIBlockManager& store, long long slot, long long handle) {
    store.putBlock(slot, reinterpret_cast<const char*>(&handle), sizeof(handle));
}

/// The writing end of a chain: its last node in memory, and where each of its nodes lies, so that
/// whoever looks for one entry of many need not walk to it.
template <typename Node>
class WdbNodeChain {
public:
    using Entry = typename Node::Entry;

    /// Opens the chain that begins at @p firstNode and walks to its last node; 0 is an empty chain
    /// that can only be read.
    WdbNodeChain(WdbIBlockManager& store, long long firstNode) : m_pStore(&store) {
        walkOn(firstNode);
    }

    /// Finds what another process appended since. Not for a chain that is appended to here.
    void lookAgain() {
        if (!m_nodes.empty()) walkOn(m_nodes.back());
    }

    /// Stores an empty node and returns its handle.
    static long long addEmptyNode(WdbIBlockManager& store) { return addNode(store, Node()); }

    /// Appends an entry. A full last node is written, and only then told of its successor, which is
    /// in the store by then: cut short anywhere, the chain still ends with whole entries.
    void append(const Entry& entry) {
        if (m_last.m_count < Node::Capacity) {
            m_last.append(entry);
            m_dirty = true;
            return;
        }
        Node fresh;
        fresh.append(entry);
        const long long next = addNode(*m_pStore, fresh);
        flush();
        static_assert(offsetof(Node, m_next) == 0);
        writeHandleSlot(*m_pStore, m_nodes.back(), next);
        m_last = fresh;
        m_nodes.push_back(next);
    }

    /// Writes the last node when it changed: in place, or as a new block when it has no place yet.
    void flush() {
        if (!m_dirty) return;
        if (m_nodes.empty()) {
            m_nodes.push_back(addNode(*m_pStore, m_last));
        } else {
            m_pStore->putBlock(m_nodes.back(), reinterpret_cast<const char*>(&m_last),
                               sizeof(Node));
        }
        m_dirty = false;
    }

    bool isDirty() const { return m_dirty; }
    long long getFirstNode() const { return m_nodes.empty() ? 0 : m_nodes.front(); }
    const Node& getLastNode() const { return m_last; }

    /// Handles of the stored nodes, first to last. All but the last hold as many entries as they
    /// can unless they are damaged.
    const std::vector<long long>& getNodes() const { return m_nodes; }

    /// Whether nodes are missing because the chain is damaged.
    bool isCut() const { return m_isCut; }

private:
    // From the last node known, or the first.
    void walkOn(long long node) {
        WdbNodeWalker<Node> walker(*m_pStore, node);
        m_isCut = walker.isCut();
        if (!walker.isAtNode()) return;
        if (m_nodes.empty()) m_nodes.push_back(node);
        while (walker.next())
            m_nodes.push_back(walker.handle());
        m_last = walker.node();
        m_isCut = walker.isCut();
    }

    static long long addNode(WdbIBlockManager& store, const Node& node) {
        return store.addBlock(reinterpret_cast<const char*>(&node), sizeof(Node));
    }

    WdbIBlockManager* m_pStore;
    std::vector<long long> m_nodes;  // handles; the last is where m_last is stored
    Node m_last;                     // entries are appended here
    bool m_dirty = false;            // m_last is newer than the store
    bool m_isCut = false;            // a node is named behind the last one that could be read
};

}  // namespace Korvel

#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "container/WdbIBlockManager.h"
#include "events/WdbAddressKey.h"
#include "events/WdbAppendingEventBTree.h"
#include "events/WdbEventBlock.h"
#include "events/WdbEventDatabaseHeader.h"
#include "events/WdbIEventBlockIterator.h"
#include "events/WdbIEventSource.h"

namespace Korvel {

/// The event blocks of one bucket and a tree over them, by which the block that holds the value of
/// an address at a time is found without reading those before it.
///
/// A tree is made by whoever fills it, in a slot that holds 0; one that is in the file already is
/// only read. Blocks come in the order of their times. What is in the current block is not found
/// before it is saved. One thread at a time, with all its iterators while the tree grows.
class WdbEventBtree {
public:
    using Nodes = WdbAppendingEventBTree<WdbEventBTreeRecord, long long,
                                         WdbEventDatabaseHeader::NodeCapacity, WdbIBlockManager>;
    class EventBlockIterator;
    class EventIterator;
    class ValueIterator;

    /// @param blocks         Keeps event blocks, record blocks, the state and its slot; no copies.
    /// @param nodes          Keeps the nodes. Both outlive the tree and its iterators.
    /// @param slotOffset     Where the offset of the state is kept, 8 bytes.
    /// @param blockCapacity  Bytes of an event block before compression.
    /// @param baseAddress    First address of the bucket.
    WdbEventBtree(WdbIBlockManager& blocks, WdbIBlockManager& nodes, long long slotOffset,
                  unsigned int blockCapacity, long long baseAddress);

    /// Publishes the pending record. The current block has to be saved before.
    ~WdbEventBtree() = default;
    WdbEventBtree(const WdbEventBtree&) = delete;
    WdbEventBtree& operator=(const WdbEventBtree&) = delete;

    /// The current block, which the owner fills. That of a tree that is only read has no room.
    WdbEventBlock& getEventBlock() const { return m_block; }

    long long getBaseAddress() const { return m_baseAddress; }

    /// Whether blocks are missing at the end because the tree is damaged.
    bool isCut() const { return m_isCut || m_nodes->isCut(); }

    /// What times in the tree count from; set before the first block is saved, which sets it again
    /// where it starts at another time: an event without values came first.
    void setStartTime(long long time);

    /// Stores the current block and empties it; nothing happens when it is empty.
    void saveEventBlock();

    /// The same after the superseded writes in it were dropped.
    void filterAndSaveBlock();

    /// Adds a record for the current block, which was stored just now.
    void appendEventBTreeRecord(long long offset, unsigned int compressedSize);

    /// Makes all saved blocks findable in the file. Of a tree that is only read, finds what another
    /// process has published since.
    void publish() const;

    /// Loads the last block, not after the one that covers @p time, in which @p address changes.
    /// The change may still lie after the time; it is then looked for in the blocks before. Not for
    /// an address that keys have no bit for.
    /// @return 0, with @p block empty, when there is none.
    int findEventBlock(long long address, long long time, WdbEventBlock& block) const;

    /// Stands at the end, from where it is moved.
    EventBlockIterator getEventBlockIterator() const;

    /// Stands at the block that covers @p time; at the first one when all start later.
    EventBlockIterator getEventBlockIterator(long long time) const;

    /// The values of @p address, from the one in effect at @p time on; from the first one where
    /// there is none yet.
    ValueIterator getValueBlockIterator(long long address, long long time) const;

private:
    void readState() const;

    WdbIBlockManager* m_pBlocks;
    long long m_slotOffset;
    long long m_stateOffset;
    long long m_baseAddress;
    bool m_isCut = false;           // the state cannot be read
    mutable WdbEventBlock m_block;  // the current one
    unsigned int m_blockCapacity;
    std::unique_ptr<Nodes> m_nodes;
    mutable WdbEventBTreeState m_state;  // but for the root, which the nodes know
};

/// Goes through the blocks of a tree as they were when the iterator was made, both ways. A plain
/// value; the tree need not outlive it.
class WdbEventBtree::EventBlockIterator {
public:
    /// To the next block; from before the first one to the first.
    EventBlockIterator& operator++();

    /// To the block before; from the first one to before it, where isEof() too.
    EventBlockIterator& operator--();

    explicit operator bool() const { return !isEof(); }
    bool isEof() const { return m_walk.isEnd(); }

    /// Where the current block is stored; none at the end and where the tree is damaged.
    WdbStoredBlock operator*() const;

    /// Loads the current block, and sets the base address that its addresses count from. Leaves it
    /// empty where there is none.
    void getEventBlock(WdbEventBlock& block) const;

    /// To the last block; to the end when there is none.
    void seekLast();

    /// Blocks have numbers from 0 on, in the order of their times.
    std::size_t getBlockCount() const { return m_count; }
    void moveTo(std::size_t index);

    /// Number of the current block; of blocks in all at the end.
    std::size_t getIndex() const;

    /// To the last block, not after the one that covers @p time, that changes a wanted address.
    void seek(long long time, const WdbAddressKey& wanted);

    /// To the nearest other block that changes a wanted address; to the end when there is none.
    void toPrevious(const WdbAddressKey& wanted) { m_walk.toPrevious(wanted); }
    void toNext(const WdbAddressKey& wanted) { m_walk.toNext(wanted); }

    /// Whether a node was met that cannot be read, or that lacks entries.
    bool hasMetDamage() const { return m_walk.hasMetDamage(); }

    /// Whether the current block changes a wanted address.
    bool isWanted(const WdbAddressKey& wanted) const { return !isEof() && m_walk.isWanted(wanted); }

private:
    friend class WdbEventBtree;
    EventBlockIterator(const WdbIBlockManager& blocks, const Nodes& nodes, long long baseAddress,
                       long long startTime);

    const WdbIBlockManager* m_pBlocks;
    long long m_baseAddress;
    long long m_startTime;  // of the tree
    Nodes::Walk m_walk;
    std::size_t m_count;
    bool m_isBeforeFirst = false;
};

/// Goes through the events that change one address, in the order in which they were written. Can
/// be moved, not copied.
class WdbEventBtree::EventIterator {
public:
    /// Begins with the first event of @p blocks' current block, or a later one.
    /// @param wanted  The address.
    /// @param blockCapacity  Bytes of a block before compression.
    EventIterator(const EventBlockIterator& blocks, long long address, const WdbAddressKey& wanted,
                  unsigned int blockCapacity);

    /// The event; lives until the next step. Not at the end.
    WdbEvent operator*() const { return *m_event; }
    long long getTime() const { return (*m_event).getTime(); }
    bool isEof() const { return m_blocks.isEof(); }
    EventIterator& operator++();

private:
    friend class WdbEventBtree;
    EventIterator(EventBlockIterator blocks, long long address, const WdbAddressKey& wanted,
                  std::unique_ptr<WdbEventBlock> current);  // holds the current block already
    void skipOthers();

    EventBlockIterator m_blocks;
    long long m_address;
    WdbAddressKey m_wanted;
    std::unique_ptr<WdbEventBlock> m_block;  // the current one; the event points into it
    WdbEventBlock::Iterator m_event;
};

/// Goes through the values of one address, one for each time at which it was written: of several
/// writes at one time the last.
class WdbEventBtree::ValueIterator : public WdbIEventSource::Iterator {
public:
    /// Has nothing to deliver.
    explicit ValueIterator(long long address) : m_address(address) {}

    /// Begins with the last value that @p events give up to @p time, or else with the first.
    ValueIterator(long long address, EventIterator events, long long time);

    bool isEof() const override { return m_isEof; }
    void operator++() override;
    WdbEventValue operator*() const override;
    long long getTime() const override { return m_time; }
    long long getEndTime() const override;

private:
    void take();

    static constexpr long long NoEnd = -1;

    long long m_address;
    std::unique_ptr<EventIterator> m_next;  // the first event behind the current value
    bool m_isEof = true;
    long long m_time = 0;
    std::string m_value;
};

}  // namespace Korvel

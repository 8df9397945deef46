#pragma once

#include <memory>
#include <vector>

#include "container/WdbFileBlockManagerWithCache.h"
#include "container/WdbLockedBlockManager.h"
#include "events/WdbBucketedEventDatabase.h"
#include "events/WdbEventBtree.h"
#include "events/WdbMultipleBucketBtreeEventSource.h"
#include "events/WdbStoredBlockIterator.h"

namespace Korvel {

/// One event B-tree for each bucket (type 1002): the block that holds the value of an address at a
/// time is found without reading those before it.
///
/// Unlike the list databases it shows a reader saved blocks only, and saves the current ones when
/// it is destroyed. A section that has trees is only read.
class WdbMultipleBucketBtreeDatabase : public WdbBucketedEventDatabase {
public:
    class Iterator;

    WdbMultipleBucketBtreeDatabase(WdbFileManager& fileManager, int typeId);
    ~WdbMultipleBucketBtreeDatabase() override;

    /// Also throws Veld::OpenException where a section with trees is to be written to, and where
    /// the file has no room for so many trees.
    void initialize(long long headerOffset, bool writable) override;

    /// Does nothing: blocks are saved when they are full and when the database is destroyed.
    void flush() override {}

    /// Does nothing: full blocks drop superseded writes in any case.
    void setFilterRepeatedValue(bool) override {}

    /// Never null.
    WdbIEventSource* getIEventDataSource() override { return &m_eventSource; }

    void checkpoint() override;

    /// A negative address and one beyond the last belong to the last bucket. The address right
    /// behind the last one still counts as in range, also where its bucket does not exist.
    bool addressHash(long long address, unsigned int& bucket, long long& firstAddress,
                     long long& lastAddress) const override;

    // These throw std::out_of_range where there is no such bucket.

    /// Makes the tree of a bucket that has none.
    void createEventBtree(int bucket);

    /// The tree of a bucket; null when the bucket never received an event. Makes nothing.
    WdbEventBtree* loadEventBtree(int bucket) const;

    /// loadEventBtree() for the bucket of an address.
    WdbEventBtree* loadTreeOf(long long address) const;

    /// @param tree  One that was made here, not one that is only read.
    void saveEvent(WdbEventBtree* tree, long long time, long long address, unsigned int valueLength,
                   const unsigned char* value);

    /// Loads the block that WdbEventBtree::findEventBlock() finds; empty when it finds none. A
    /// block stays as it is where the bucket has no tree.
    /// @return always 0: callers look at the block.
    int findEventBlock(long long address, long long time, WdbEventBlock& block) const;

private:
    WdbEventBlock& openBlock(unsigned int bucket, long long time) override;
    void saveInBucket(unsigned int bucket, long long time, long long address,
                      unsigned int valueLength, const unsigned char* value) override;
    IteratorPtr makeIterator(unsigned int bucket) const override;
    std::unique_ptr<WdbEventBtree> openTree(unsigned int bucket) const;
    bool hasTree(unsigned int bucket) const;
    void raiseLatestTime(const WdbEventBtree& tree);

    WdbFileManager* m_pFileManager;
    std::unique_ptr<WdbFileBlockManagerWithCache> m_cachedNodes;  // null before initialize
    std::unique_ptr<WdbLockedBlockManager> m_nodes;               // the same for several threads
    mutable std::vector<std::unique_ptr<WdbEventBtree>> m_trees;  // a bucket; null: not open
    WdbMultipleBucketBtreeEventSource m_eventSource;
};

/// Goes through the blocks of one tree. Goes to the first one only when it is asked about: a search
/// moves elsewhere at once.
class WdbMultipleBucketBtreeDatabase::Iterator : public WdbStoredBlockIterator {
public:
    /// @param blocks       Of the tree; stands anywhere.
    /// @param store        Holds the blocks.
    /// @param baseAddress  What the addresses of the blocks count from.
    /// @param isCut        Whether the tree could not be read whole.
    Iterator(WdbEventBtree::EventBlockIterator blocks, const WdbIBlockManager& store,
             long long baseAddress, bool isCut);

    bool isEof() const override { return current().isEof(); }
    operator bool() const override { return static_cast<bool>(current()); }
    Iterator& operator++() override;
    WdbStoredBlock getStoredBlock() const override { return *current(); }
    std::size_t getBlockCount() const override { return m_blocks.getBlockCount(); }
    bool isCut() const override { return m_isCut || m_blocks.hasMetDamage(); }
    void moveTo(std::size_t index) override { movable().moveTo(index); }

    std::optional<std::size_t> countUpTo(long long time) override;
    void lookFor(const std::vector<long long>& addresses) override;
    std::optional<std::size_t> findBefore(std::size_t index) override;
    std::optional<std::size_t> findFrom(std::size_t index) override;

private:
    WdbEventBtree::EventBlockIterator& current() const;
    WdbEventBtree::EventBlockIterator& movable();
    std::optional<std::size_t> foundIndex() const;

    mutable WdbEventBtree::EventBlockIterator m_blocks;
    mutable bool m_isMoved = false;  // until then it stands at the first block
    bool m_isCut;
    WdbAddressKey m_wanted;
};

}  // namespace Korvel

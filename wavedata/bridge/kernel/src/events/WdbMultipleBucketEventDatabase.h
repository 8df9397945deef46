#pragma once

#include <atomic>
#include <memory>

#include "events/WdbEventBlockList.h"
#include "events/WdbEventSection.h"
#include "events/WdbIEventBlockDatabase.h"
#include "support/WdbICheckpoint.h"

namespace Korvel {

/// One list of event blocks for each bucket of consecutive addresses (type 1001), so that a reader
/// of a few addresses reads the blocks of their buckets only.
///
/// An event is cut at bucket ends. Writing does not touch the latest time: the writers tell it,
/// because a simulator's time also passes while nothing changes.
class WdbMultipleBucketEventDatabase : public WdbIEventBlockDatabase, public WdbICheckpoint {
public:
    using Iterator = WdbEventBlockListIterator;

    WdbMultipleBucketEventDatabase(WdbFileManager& fileManager, int typeId);
    ~WdbMultipleBucketEventDatabase() override;
    WdbMultipleBucketEventDatabase(const WdbMultipleBucketEventDatabase&) = delete;
    WdbMultipleBucketEventDatabase& operator=(const WdbMultipleBucketEventDatabase&) = delete;

    void initialize(long long headerOffset, bool writable) override;

    /// Throws std::out_of_range when the section has no bucket at all; nothing is written then.
    void writeEvent(long long time, long long address, unsigned int valueLength,
                    const unsigned char* value) override;
    void flush() override;
    void setLatestTime(long long time) override {
        m_latestTime.store(time, std::memory_order_relaxed);
    }
    void setFilterRepeatedValue(bool filter) override { m_filter = filter; }
    std::vector<IteratorPtr> getAllEventBlockDatabaseIterator() const override;

    /// One iterator for each bucket that has blocks, in bucket order.
    std::vector<IteratorPtr> getEventBlockDatabaseIterator(
        const std::vector<long long>& addresses) const override;
    void getEventBlockDatabaseIterator(
        const std::vector<WdbScalarBTree*>& trees, std::vector<IteratorPtr>& iterators,
        std::vector<std::vector<WdbScalarBTree*>>& treeGroups) const override;
    long long getLatestTime() const override {
        return m_latestTime.load(std::memory_order_relaxed);
    }
    const WdbEventDatabaseHeader& getEventDatabaseHeader() const override;
    void setAddressMapFileOffsetAndSize(long long offset, long long size) override;
    WdbIEventSource* getIEventDataSource() override { return nullptr; }

    void checkpoint() override;

    /// Finds the bucket of an address, and the first and last address of that bucket.
    ///
    /// False for an address that has no bucket of its own: the bucket is then the last one, and
    /// first and last stay untouched. The address right behind the last one still counts as in
    /// range where its bucket exists.
    bool addressHash(long long address, unsigned int& bucket, long long& firstAddress,
                     long long& lastAddress) const;

    void saveEvent(WdbEventBlockList* list, long long time, long long address,
                   unsigned int valueLength, const unsigned char* value);

    /// The list of a bucket, made when the bucket has none yet.
    WdbEventBlockList* getOrCreateEventBlockList(int bucket) const;

    /// The list of a bucket; null when the bucket never received an event. Makes nothing.
    WdbEventBlockList* loadEventBlockList(int bucket) const;

private:
    WdbEventBlockList* openList(unsigned int bucket, WdbListAccess access) const;
    long long baseAddressOf(unsigned int bucket) const;
    IteratorPtr makeIterator(unsigned int bucket) const;
    void writeAcrossBuckets(long long time, long long address, unsigned int valueLength,
                            const unsigned char* value);
    void closeBlock(unsigned int bucket) const;

    WdbEventSection m_section;
    mutable std::vector<std::unique_ptr<WdbEventBlockList>> m_lists;  // a bucket; null: not open
    // Read also by threads that do not hold the lock of whoever records.
    std::atomic<long long> m_latestTime{0};
    bool m_filter = false;
    // The lists' current blocks, so that an event finds its block in one step. Null where a bucket
    // has none yet, and in a section that is only read.
    mutable std::vector<WdbEventBlock*> m_blocks;
    // The next three are the header's, kept at hand for every event.
    long long m_addressesPerBucket = WdbEventDatabaseHeader::AddressesPerBucket;
    long long m_numberOfAddresses = 0;
    int m_bucketShift = -1;  // bits of an address below its bucket; -1: not a power of two
};

}  // namespace Korvel

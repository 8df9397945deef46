#pragma once

#include <atomic>
#include <vector>

#include "events/WdbEventSection.h"
#include "events/WdbIEventBlockDatabase.h"
#include "support/WdbICheckpoint.h"

namespace Korvel {

class WdbEventBlock;

/// What the databases share that keep their events by buckets of consecutive addresses, so that a
/// reader of a few addresses reads the blocks of their buckets only.
///
/// An event is cut at bucket ends. Writing does not touch the latest time: the writers tell it,
/// because a simulator's time also passes while nothing changes.
class WdbBucketedEventDatabase : public WdbIEventBlockDatabase, public WdbICheckpoint {
public:
    WdbBucketedEventDatabase(const WdbBucketedEventDatabase&) = delete;
    WdbBucketedEventDatabase& operator=(const WdbBucketedEventDatabase&) = delete;

    /// Throws std::out_of_range where there is no bucket for the event. Of one that was cut, the
    /// pieces before that are recorded. Not for a section that is only read.
    void writeEvent(long long time, long long address, unsigned int valueLength,
                    const unsigned char* value) override;
    void setLatestTime(long long time) override {
        m_latestTime.store(time, std::memory_order_relaxed);
    }
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

    /// Finds the bucket of an address, and the first and last address of that bucket. False for an
    /// address that has no bucket of its own: first and last stay untouched.
    virtual bool addressHash(long long address, unsigned int& bucket, long long& firstAddress,
                             long long& lastAddress) const = 0;

protected:
    WdbBucketedEventDatabase(WdbFileManager& fileManager, int typeId);

    /// Reads the section's header; all buckets are closed.
    void load(long long headerOffset, bool writable);

    WdbEventSection& section() { return m_section; }
    const WdbEventSection& section() const { return m_section; }
    unsigned int numberOfBuckets() const { return static_cast<unsigned int>(m_blocks.size()); }
    long long addressesPerBucket() const { return m_addressesPerBucket; }
    long long numberOfAddresses() const { return m_numberOfAddresses; }

    /// Number of the bucket that an address falls into, whether there is such a bucket or not.
    long long quotientOf(long long address) const {
        return m_bucketShift >= 0 && address >= 0 ? address >> m_bucketShift
                                                  : address / m_addressesPerBucket;
    }

    /// The current block of a bucket, which is made for an event at @p time when it has none yet.
    virtual WdbEventBlock& openBlock(unsigned int bucket, long long time) = 0;

    /// Whether events go into the bucket.
    bool hasBlock(unsigned int bucket) const { return m_blocks[bucket] != nullptr; }

    /// Adds an event to the current block, or to the next one.
    virtual void saveInBucket(unsigned int bucket, long long time, long long address,
                              unsigned int valueLength, const unsigned char* value) = 0;

    /// Null for a bucket that never received an event.
    virtual IteratorPtr makeIterator(unsigned int bucket) const = 0;

private:
    void writeAcrossBuckets(long long time, long long address, unsigned int valueLength,
                            const unsigned char* value);
    unsigned int bucketOf(long long address) const;

    WdbEventSection m_section;
    // Read also by threads that do not hold the lock of whoever records.
    std::atomic<long long> m_latestTime{0};
    // The buckets' current blocks, so that an event finds its block in one step. Null where a
    // bucket has none yet, and in a section that is only read.
    std::vector<WdbEventBlock*> m_blocks;
    // The next three are the header's, kept at hand for every event.
    long long m_addressesPerBucket = WdbEventDatabaseHeader::AddressesPerBucket;
    long long m_numberOfAddresses = 0;
    int m_bucketShift = -1;  // bits of an address below its bucket; -1: not a power of two
};

}  // namespace Korvel

#pragma once

#include <atomic>
#include <memory>

#include "events/WdbEventBlockList.h"
#include "events/WdbEventSection.h"
#include "events/WdbIEventBlockDatabase.h"
#include "support/WdbICheckpoint.h"

namespace Korvel {

/// All events of all addresses in one list (type 1000). Addresses count from 0.
///
/// Its latest time rises with every event; its blocks are never filtered.
class WdbSingleBucketEventDatabase : public WdbIEventBlockDatabase, public WdbICheckpoint {
public:
    using Iterator = WdbEventBlockListIterator;

    WdbSingleBucketEventDatabase(WdbFileManager& fileManager, int typeId);
    ~WdbSingleBucketEventDatabase() override;
    WdbSingleBucketEventDatabase(const WdbSingleBucketEventDatabase&) = delete;
    WdbSingleBucketEventDatabase& operator=(const WdbSingleBucketEventDatabase&) = delete;

    void initialize(long long headerOffset, bool writable) override;
    void writeEvent(long long time, long long address, unsigned int valueLength,
                    const unsigned char* value) override;
    void flush() override;
    void setLatestTime(long long time) override {
        m_latestTime.store(time, std::memory_order_relaxed);
    }
    void setFilterRepeatedValue(bool) override {}
    std::vector<IteratorPtr> getAllEventBlockDatabaseIterator() const override;
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

private:
    IteratorPtr makeIterator() const;

    WdbEventSection m_section;
    std::unique_ptr<WdbEventBlockList> m_list;  // null before initialize
    // Read also by threads that do not hold the lock of whoever records.
    std::atomic<long long> m_latestTime{0};
};

}  // namespace Korvel

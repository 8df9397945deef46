#pragma once

#include <memory>
#include <vector>

#include "events/WdbBucketedEventDatabase.h"
#include "events/WdbEventBlockList.h"

namespace Korvel {

/// One list of event blocks for each bucket (type 1001).
class WdbMultipleBucketEventDatabase : public WdbBucketedEventDatabase {
public:
    using Iterator = WdbEventBlockListIterator;

    WdbMultipleBucketEventDatabase(WdbFileManager& fileManager, int typeId);
    ~WdbMultipleBucketEventDatabase() override;

    void initialize(long long headerOffset, bool writable) override;
    void flush() override;
    void setFilterRepeatedValue(bool filter) override { m_filter = filter; }
    WdbIEventSource* getIEventDataSource() override { return nullptr; }

    void checkpoint() override;

    /// The bucket of an address that has none of its own is the last one. The address right behind
    /// the last one still counts as in range where its bucket exists.
    bool addressHash(long long address, unsigned int& bucket, long long& firstAddress,
                     long long& lastAddress) const override;

    void saveEvent(WdbEventBlockList* list, long long time, long long address,
                   unsigned int valueLength, const unsigned char* value);

    /// The list of a bucket, made when the bucket has none yet.
    WdbEventBlockList* getOrCreateEventBlockList(int bucket) const;

    /// The list of a bucket; null when the bucket never received an event. Makes nothing.
    WdbEventBlockList* loadEventBlockList(int bucket) const;

private:
    WdbEventBlock& openBlock(unsigned int bucket, long long time) override;
    void saveInBucket(unsigned int bucket, long long time, long long address,
                      unsigned int valueLength, const unsigned char* value) override;
    IteratorPtr makeIterator(unsigned int bucket) const override;
    WdbEventBlockList* openList(unsigned int bucket, WdbListAccess access) const;
    long long baseAddressOf(unsigned int bucket) const;
    void closeBlock(unsigned int bucket) const;

    mutable std::vector<std::unique_ptr<WdbEventBlockList>> m_lists;  // a bucket; null: not open
    bool m_filter = false;
};

}  // namespace Korvel

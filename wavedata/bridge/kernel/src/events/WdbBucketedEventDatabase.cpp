#include "events/WdbBucketedEventDatabase.h"

#include <bit>
#include <map>
#include <set>

#include "events/WdbEventBlock.h"
#include "korvel/WdbScalarBTree.h"

namespace Korvel {

WdbBucketedEventDatabase::WdbBucketedEventDatabase(WdbFileManager& fileManager, int typeId)
    : m_section(fileManager, typeId) {}

void WdbBucketedEventDatabase::load(long long headerOffset, bool writable) {
    m_section.load(headerOffset, writable);
    const WdbEventDatabaseHeader& header = m_section.header();
    m_addressesPerBucket = static_cast<long long>(header.addressesPerBucket);
    m_numberOfAddresses = static_cast<long long>(header.numberOfAddresses);
    m_bucketShift = std::has_single_bit(header.addressesPerBucket)
                        ? std::countr_zero(header.addressesPerBucket)
                        : -1;
    m_blocks.assign(header.numberOfBuckets, nullptr);
}

// --- Once per value change: no allocation, no lock, no stream while blocks have room. ---

void WdbBucketedEventDatabase::writeEvent(long long time, long long address,
                                          unsigned int valueLength, const unsigned char* value) {
    if (m_bucketShift >= 0 && address >= 0 && address <= m_numberOfAddresses) {
        const auto bucket = static_cast<std::size_t>(address >> m_bucketShift);
        const long long left = m_addressesPerBucket - (address & (m_addressesPerBucket - 1));
        if (bucket < m_blocks.size() && valueLength <= left) {
            WdbEventBlock* block = m_blocks[bucket];
            if (block != nullptr && block->canAdd(valueLength)) {
                block->addEvent(time, address, valueLength, value);
                return;
            }
        }
    }
    writeAcrossBuckets(time, address, valueLength, value);
}

// --- End of the path that runs once per value change. ---

// Any event, whether it fits its bucket's current block or not.
void WdbBucketedEventDatabase::writeAcrossBuckets(long long time, long long address,
                                                  unsigned int valueLength,
                                                  const unsigned char* value) {
    for (;;) {
        unsigned int bucket = 0;
        long long first = 0;
        long long last = 0;
        const bool inRange = addressHash(address, bucket, first, last);
        m_blocks.at(bucket) = &openBlock(bucket, time);
        if (!inRange || last >= address + static_cast<long long>(valueLength) - 1) {
            saveInBucket(bucket, time, address, valueLength, value);
            return;
        }
        const auto length = static_cast<unsigned int>(last + 1 - address);
        saveInBucket(bucket, time, address, length, value);
        address += length;
        value += length;
        valueLength -= length;
    }
}

std::vector<WdbIEventBlockDatabase::IteratorPtr>
WdbBucketedEventDatabase::getAllEventBlockDatabaseIterator() const {
    std::vector<IteratorPtr> iterators;
    for (unsigned int bucket = 0; bucket < numberOfBuckets(); ++bucket) {
        if (IteratorPtr iterator = makeIterator(bucket)) iterators.push_back(iterator);
    }
    return iterators;
}

// Asking never throws: where there is no bucket, there are no blocks.
std::vector<WdbIEventBlockDatabase::IteratorPtr>
WdbBucketedEventDatabase::getEventBlockDatabaseIterator(
    const std::vector<long long>& addresses) const {
    std::vector<IteratorPtr> iterators;
    std::set<unsigned int> buckets;
    for (const long long address : addresses)
        buckets.insert(bucketOf(address));
    for (const unsigned int bucket : buckets) {
        if (bucket >= numberOfBuckets()) continue;
        if (IteratorPtr iterator = makeIterator(bucket)) iterators.push_back(iterator);
    }
    return iterators;
}

void WdbBucketedEventDatabase::getEventBlockDatabaseIterator(
    const std::vector<WdbScalarBTree*>& trees, std::vector<IteratorPtr>& iterators,
    std::vector<std::vector<WdbScalarBTree*>>& treeGroups) const {
    std::map<unsigned int, std::vector<WdbScalarBTree*>> treesOfBucket;
    for (WdbScalarBTree* tree : trees)
        treesOfBucket[bucketOf(tree->getAddress())].push_back(tree);
    for (auto& [bucket, group] : treesOfBucket) {
        if (bucket >= numberOfBuckets()) continue;
        IteratorPtr iterator = makeIterator(bucket);
        if (!iterator) continue;
        iterators.push_back(iterator);
        treeGroups.push_back(std::move(group));
    }
}

unsigned int WdbBucketedEventDatabase::bucketOf(long long address) const {
    unsigned int bucket = 0;
    long long first = 0;
    long long last = 0;
    addressHash(address, bucket, first, last);
    return bucket;
}

const WdbEventDatabaseHeader& WdbBucketedEventDatabase::getEventDatabaseHeader() const {
    return m_section.header();
}

void WdbBucketedEventDatabase::setAddressMapFileOffsetAndSize(long long offset, long long size) {
    m_section.putAddressMap(offset, size);
}

}  // namespace Korvel

#include "events/WdbMultipleBucketEventDatabase.h"

#include <algorithm>
#include <bit>
#include <map>
#include <set>
#include <stdexcept>

#include <boost/make_shared.hpp>

#include "container/WdbFileManager.h"
#include "korvel/WdbScalarBTree.h"

namespace Korvel {

WdbMultipleBucketEventDatabase::WdbMultipleBucketEventDatabase(WdbFileManager& fileManager,
                                                               int typeId)
    : m_section(fileManager, typeId) {}

WdbMultipleBucketEventDatabase::~WdbMultipleBucketEventDatabase() {
    if (!m_section.isWritable()) return;
    m_section.putLatestTime(getLatestTime());
    for (const auto& list : m_lists) {
        if (list) list->settle();
    }
}

void WdbMultipleBucketEventDatabase::initialize(long long headerOffset, bool writable) {
    m_section.load(headerOffset, writable);
    const WdbEventDatabaseHeader& header = m_section.header();
    m_addressesPerBucket = static_cast<long long>(header.addressesPerBucket);
    m_numberOfAddresses = static_cast<long long>(header.numberOfAddresses);
    m_bucketShift = std::has_single_bit(header.addressesPerBucket)
                        ? std::countr_zero(header.addressesPerBucket)
                        : -1;
    m_lists.clear();
    m_lists.resize(header.numberOfBuckets);
    m_blocks.assign(header.numberOfBuckets, nullptr);
    long long latestTime = header.latestTime;
    // The header of a recording that was killed still says less than its blocks.
    for (unsigned int bucket = 0; bucket < header.numberOfBuckets; ++bucket) {
        const WdbEventBlockList* list = loadEventBlockList(static_cast<int>(bucket));
        if (list == nullptr) continue;
        latestTime = std::max(latestTime, latestStoredTime(*list, m_section.store(),
                                                           header.eventBlockSize, latestTime));
    }
    setLatestTime(latestTime);
}

// --- Once per value change: no allocation, no lock, no stream while blocks have room. ---

bool WdbMultipleBucketEventDatabase::addressHash(long long address, unsigned int& bucket,
                                                 long long& firstAddress,
                                                 long long& lastAddress) const {
    const auto numberOfBuckets = static_cast<unsigned int>(m_lists.size());
    if (address <= m_numberOfAddresses) {
        const long long quotient = m_bucketShift >= 0 && address >= 0
                                       ? address >> m_bucketShift
                                       : address / m_addressesPerBucket;
        if (quotient >= 0 && quotient < numberOfBuckets) {
            bucket = static_cast<unsigned int>(quotient);
            firstAddress = quotient * m_addressesPerBucket;
            lastAddress = firstAddress + m_addressesPerBucket - 1;
            return true;
        }
    }
    bucket = numberOfBuckets - 1;
    return false;
}

void WdbMultipleBucketEventDatabase::writeEvent(long long time, long long address,
                                                unsigned int valueLength,
                                                const unsigned char* value) {
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

// Any event, whether it fits its bucket's current block or not.
void WdbMultipleBucketEventDatabase::writeAcrossBuckets(long long time, long long address,
                                                        unsigned int valueLength,
                                                        const unsigned char* value) {
    if (m_lists.empty()) throw std::out_of_range("The event section has no bucket.");
    for (;;) {
        unsigned int bucket = 0;
        long long first = 0;
        long long last = 0;
        const bool inRange = addressHash(address, bucket, first, last);
        WdbEventBlockList* list = getOrCreateEventBlockList(static_cast<int>(bucket));
        m_blocks[bucket] = &list->openRecord();
        if (!inRange || last >= address + static_cast<long long>(valueLength) - 1) {
            saveEvent(list, time, address, valueLength, value);
            return;
        }
        const auto length = static_cast<unsigned int>(last + 1 - address);
        saveEvent(list, time, address, length, value);
        address += length;
        value += length;
        valueLength -= length;
    }
}

void WdbMultipleBucketEventDatabase::saveEvent(WdbEventBlockList* list, long long time,
                                               long long address, unsigned int valueLength,
                                               const unsigned char* value) {
    saveEventInList(*list, m_filter, time, address, valueLength, value);
}

WdbEventBlockList* WdbMultipleBucketEventDatabase::getOrCreateEventBlockList(int bucket) const {
    const auto index = static_cast<unsigned int>(bucket);
    WdbEventBlockList* list = m_lists[index].get();
    return list != nullptr ? list : openList(index, WdbListAccess::Append);
}

// --- End of the path that runs once per value change. ---

WdbEventBlockList* WdbMultipleBucketEventDatabase::loadEventBlockList(int bucket) const {
    const auto index = static_cast<unsigned int>(bucket);
    if (m_lists[index]) return m_lists[index].get();
    if (readHandleSlot(m_section.store(), m_section.slotOf(index)) == 0) return nullptr;
    return openList(index, m_section.isWritable() ? WdbListAccess::Append : WdbListAccess::Read);
}

WdbEventBlockList* WdbMultipleBucketEventDatabase::openList(unsigned int bucket,
                                                            WdbListAccess access) const {
    m_lists[bucket] = std::make_unique<WdbEventBlockList>(
        m_section.store(), m_section.slotOf(bucket), m_section.header().eventBlockSize,
        baseAddressOf(bucket), access);
    return m_lists[bucket].get();
}

void WdbMultipleBucketEventDatabase::flush() {
    for (unsigned int bucket = 0; bucket < m_lists.size(); ++bucket) {
        if (m_lists[bucket]) closeBlock(bucket);
    }
}

void WdbMultipleBucketEventDatabase::checkpoint() {
    for (const auto& list : m_lists) {
        if (list) list->flush();
    }
    m_section.putLatestTime(getLatestTime());
}

std::vector<WdbIEventBlockDatabase::IteratorPtr>
WdbMultipleBucketEventDatabase::getAllEventBlockDatabaseIterator() const {
    std::vector<IteratorPtr> iterators;
    for (unsigned int bucket = 0; bucket < m_lists.size(); ++bucket) {
        if (IteratorPtr iterator = makeIterator(bucket)) iterators.push_back(iterator);
    }
    return iterators;
}

std::vector<WdbIEventBlockDatabase::IteratorPtr>
WdbMultipleBucketEventDatabase::getEventBlockDatabaseIterator(
    const std::vector<long long>& addresses) const {
    std::vector<IteratorPtr> iterators;
    if (m_lists.empty()) return iterators;
    std::set<unsigned int> buckets;
    for (const long long address : addresses) {
        unsigned int bucket = 0;
        long long first = 0;
        long long last = 0;
        addressHash(address, bucket, first, last);
        buckets.insert(bucket);
    }
    for (const unsigned int bucket : buckets) {
        if (IteratorPtr iterator = makeIterator(bucket)) iterators.push_back(iterator);
    }
    return iterators;
}

void WdbMultipleBucketEventDatabase::getEventBlockDatabaseIterator(
    const std::vector<WdbScalarBTree*>& trees, std::vector<IteratorPtr>& iterators,
    std::vector<std::vector<WdbScalarBTree*>>& treeGroups) const {
    if (m_lists.empty()) return;
    std::map<unsigned int, std::vector<WdbScalarBTree*>> treesOfBucket;
    for (WdbScalarBTree* tree : trees) {
        unsigned int bucket = 0;
        long long first = 0;
        long long last = 0;
        addressHash(tree->getAddress(), bucket, first, last);
        treesOfBucket[bucket].push_back(tree);
    }
    for (auto& [bucket, group] : treesOfBucket) {
        IteratorPtr iterator = makeIterator(bucket);
        if (!iterator) continue;
        iterators.push_back(iterator);
        treeGroups.push_back(std::move(group));
    }
}

const WdbEventDatabaseHeader& WdbMultipleBucketEventDatabase::getEventDatabaseHeader() const {
    return m_section.header();
}

void WdbMultipleBucketEventDatabase::setAddressMapFileOffsetAndSize(long long offset,
                                                                    long long size) {
    m_section.putAddressMap(offset, size);
}

long long WdbMultipleBucketEventDatabase::baseAddressOf(unsigned int bucket) const {
    return bucket * m_addressesPerBucket;
}

// Stores the current block. A block that writeEvent() fills directly stays open for the next event.
void WdbMultipleBucketEventDatabase::closeBlock(unsigned int bucket) const {
    m_lists[bucket]->closeRecord();
    if (m_blocks[bucket] != nullptr) m_lists[bucket]->openRecord();
}

// Null for a bucket that never received an event.
WdbIEventBlockDatabase::IteratorPtr WdbMultipleBucketEventDatabase::makeIterator(
    unsigned int bucket) const {
    WdbEventBlockList* list = loadEventBlockList(static_cast<int>(bucket));
    if (list == nullptr) return {};
    closeBlock(bucket);
    list->flush();
    if (!m_section.isWritable()) list->lookAgain();
    return boost::make_shared<Iterator>(m_section.store(), *list, baseAddressOf(bucket));
}

}  // namespace Korvel

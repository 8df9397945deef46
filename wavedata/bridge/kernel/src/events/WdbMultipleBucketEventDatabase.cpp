#include "events/WdbMultipleBucketEventDatabase.h"

#include <algorithm>

#include <boost/make_shared.hpp>

#include "container/WdbFileBlockManager.h"

namespace Korvel {

WdbMultipleBucketEventDatabase::WdbMultipleBucketEventDatabase(WdbFileManager& fileManager,
                                                               int typeId)
    : WdbBucketedEventDatabase(fileManager, typeId) {}

WdbMultipleBucketEventDatabase::~WdbMultipleBucketEventDatabase() {
    if (!section().isWritable()) return;
    section().putLatestTime(getLatestTime());
    for (const auto& list : m_lists) {
        if (list) list->settle();
    }
}

void WdbMultipleBucketEventDatabase::initialize(long long headerOffset, bool writable) {
    load(headerOffset, writable);
    const WdbEventDatabaseHeader& header = section().header();
    m_lists.clear();
    m_lists.resize(header.numberOfBuckets);
    long long latestTime = header.latestTime;
    // The header of a recording that was killed still says less than its blocks.
    for (unsigned int bucket = 0; bucket < header.numberOfBuckets; ++bucket) {
        const WdbEventBlockList* list = loadEventBlockList(static_cast<int>(bucket));
        if (list == nullptr) continue;
        latestTime = std::max(latestTime, latestStoredTime(*list, section().store(),
                                                           header.eventBlockSize, latestTime));
    }
    setLatestTime(latestTime);
}

bool WdbMultipleBucketEventDatabase::addressHash(long long address, unsigned int& bucket,
                                                 long long& firstAddress,
                                                 long long& lastAddress) const {
    if (address <= numberOfAddresses()) {
        const long long quotient = quotientOf(address);
        if (quotient >= 0 && quotient < numberOfBuckets()) {
            bucket = static_cast<unsigned int>(quotient);
            firstAddress = quotient * addressesPerBucket();
            lastAddress = firstAddress + addressesPerBucket() - 1;
            return true;
        }
    }
    bucket = numberOfBuckets() - 1;
    return false;
}

WdbEventBlock& WdbMultipleBucketEventDatabase::openBlock(unsigned int bucket, long long) {
    return getOrCreateEventBlockList(static_cast<int>(bucket))->openRecord();
}

void WdbMultipleBucketEventDatabase::saveInBucket(unsigned int bucket, long long time,
                                                  long long address, unsigned int valueLength,
                                                  const unsigned char* value) {
    saveEvent(m_lists[bucket].get(), time, address, valueLength, value);
}

void WdbMultipleBucketEventDatabase::saveEvent(WdbEventBlockList* list, long long time,
                                               long long address, unsigned int valueLength,
                                               const unsigned char* value) {
    saveEventInList(*list, m_filter, time, address, valueLength, value);
}

WdbEventBlockList* WdbMultipleBucketEventDatabase::getOrCreateEventBlockList(int bucket) const {
    const auto index = static_cast<unsigned int>(bucket);
    WdbEventBlockList* list = m_lists.at(index).get();
    return list != nullptr ? list : openList(index, WdbListAccess::Append);
}

WdbEventBlockList* WdbMultipleBucketEventDatabase::loadEventBlockList(int bucket) const {
    const auto index = static_cast<unsigned int>(bucket);
    if (m_lists[index]) return m_lists[index].get();
    if (readHandleSlot(section().store(), section().slotOf(index)) == 0) return nullptr;
    return openList(index, section().isWritable() ? WdbListAccess::Append : WdbListAccess::Read);
}

WdbEventBlockList* WdbMultipleBucketEventDatabase::openList(unsigned int bucket,
                                                            WdbListAccess access) const {
    m_lists[bucket] = std::make_unique<WdbEventBlockList>(
        section().store(), section().slotOf(bucket), section().header().eventBlockSize,
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
    section().putLatestTime(getLatestTime());
}

long long WdbMultipleBucketEventDatabase::baseAddressOf(unsigned int bucket) const {
    return bucket * addressesPerBucket();
}

// Stores the current block. A block that writeEvent() fills directly stays open for the next event.
void WdbMultipleBucketEventDatabase::closeBlock(unsigned int bucket) const {
    m_lists[bucket]->closeRecord();
    if (hasBlock(bucket)) m_lists[bucket]->openRecord();
}

WdbIEventBlockDatabase::IteratorPtr WdbMultipleBucketEventDatabase::makeIterator(
    unsigned int bucket) const {
    WdbEventBlockList* list = loadEventBlockList(static_cast<int>(bucket));
    if (list == nullptr) return {};
    closeBlock(bucket);
    list->flush();
    if (!section().isWritable()) list->lookAgain();
    return boost::make_shared<Iterator>(section().store(), *list, baseAddressOf(bucket));
}

}  // namespace Korvel

#include "events/WdbSingleBucketEventDatabase.h"

#include <algorithm>

#include <boost/make_shared.hpp>

#include "container/WdbFileManager.h"
#include "support/WdbOpenFailure.h"

namespace Korvel {
namespace {

const char ClassFile[] = "wavedata/bridge/kernel/src/WdbSingleBucketEventDatabase";
constexpr long long BaseAddress = 0;
constexpr unsigned int OnlyBucket = 0;

}  // namespace

WdbSingleBucketEventDatabase::WdbSingleBucketEventDatabase(WdbFileManager& fileManager, int typeId)
    : m_section(fileManager, typeId) {}

WdbSingleBucketEventDatabase::~WdbSingleBucketEventDatabase() {
    if (!m_list || !m_section.isWritable()) return;
    m_section.putLatestTime(getLatestTime());
    m_list->settle();
}

void WdbSingleBucketEventDatabase::initialize(long long headerOffset, bool writable) {
    m_section.load(headerOffset, writable);
    const WdbEventDatabaseHeader& header = m_section.header();
    if (header.numberOfBuckets == 0) {
        throwOpenException(ClassFile, __LINE__, "The event section has no slot for its one list.");
    }
    m_list = std::make_unique<WdbEventBlockList>(
        m_section.store(), m_section.slotOf(OnlyBucket), header.eventBlockSize, BaseAddress,
        writable ? WdbListAccess::Append : WdbListAccess::Read);
    // The header of a recording that was killed still says less than its blocks.
    setLatestTime(std::max(
        header.latestTime,
        latestStoredTime(*m_list, m_section.store(), header.eventBlockSize, header.latestTime)));
}

void WdbSingleBucketEventDatabase::writeEvent(long long time, long long address,
                                              unsigned int valueLength,
                                              const unsigned char* value) {
    saveEventInList(*m_list, /*filter=*/false, time, address, valueLength, value);
    if (time > getLatestTime()) setLatestTime(time);
}

void WdbSingleBucketEventDatabase::flush() {
    m_list->closeRecord();
}

std::vector<WdbIEventBlockDatabase::IteratorPtr>
WdbSingleBucketEventDatabase::getAllEventBlockDatabaseIterator() const {
    return {makeIterator()};
}

std::vector<WdbIEventBlockDatabase::IteratorPtr>
WdbSingleBucketEventDatabase::getEventBlockDatabaseIterator(const std::vector<long long>&) const {
    return {makeIterator()};
}

void WdbSingleBucketEventDatabase::getEventBlockDatabaseIterator(
    const std::vector<WdbScalarBTree*>& trees, std::vector<IteratorPtr>& iterators,
    std::vector<std::vector<WdbScalarBTree*>>& treeGroups) const {
    iterators.push_back(makeIterator());
    treeGroups.push_back(trees);
}

const WdbEventDatabaseHeader& WdbSingleBucketEventDatabase::getEventDatabaseHeader() const {
    return m_section.header();
}

void WdbSingleBucketEventDatabase::setAddressMapFileOffsetAndSize(long long offset,
                                                                  long long size) {
    m_section.putAddressMap(offset, size);
}

void WdbSingleBucketEventDatabase::checkpoint() {
    m_list->flush();
    m_section.putLatestTime(getLatestTime());
}

WdbIEventBlockDatabase::IteratorPtr WdbSingleBucketEventDatabase::makeIterator() const {
    m_list->settle();
    if (!m_section.isWritable()) m_list->lookAgain();
    return boost::make_shared<Iterator>(m_section.store(), *m_list, BaseAddress);
}

}  // namespace Korvel

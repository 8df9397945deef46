#include "events/WdbEventSection.h"

#include "container/WdbFileManager.h"
#include "support/WdbOpenFailure.h"

namespace Korvel {
namespace {

const char ClassFile[] = "wavedata/bridge/kernel/src/WdbEventSection";

// An event block is unpacked whole, and one event of one byte must fit.
constexpr unsigned int SmallestBlock = 64;
constexpr unsigned int LargestBlock = 1u << 24;

// Keeps every sum of an address and a length inside 64 bits.
constexpr unsigned long long MostAddresses = 1ull << 62;

constexpr unsigned long long SlotSize = sizeof(long long);

}  // namespace

WdbEventSection::WdbEventSection(WdbFileManager& fileManager, int typeId)
    : m_pStore(&fileManager.getBlockManager()), m_typeId(typeId) {}

void WdbEventSection::load(long long headerOffset, bool writable) {
    if (!m_pStore->mayFollow(headerOffset, sizeof(m_header))) {
        throwOpenException(ClassFile, __LINE__,
                           "The event section's header lies outside the file.");
    }
    m_pStore->getBlock(headerOffset, reinterpret_cast<char*>(&m_header), sizeof(m_header));
    if (!isSound()) {
        throwOpenException(ClassFile, __LINE__, "The event section's header is damaged.");
    }
    m_headerOffset = headerOffset;
    m_writable = writable;
}

bool WdbEventSection::isSound() const {
    const unsigned long long buckets = m_header.numberOfBuckets;
    const unsigned long long perBucket = m_header.addressesPerBucket;
    return m_header.databaseTypeId == m_typeId && m_header.eventBlockSize >= SmallestBlock &&
           m_header.eventBlockSize <= LargestBlock && perBucket >= 1 &&
           perBucket <= MostAddresses / (buckets + 1) &&
           m_header.numberOfAddresses <= MostAddresses &&
           (buckets == 0 || m_pStore->mayFollow(m_header.bucketTableOffset, buckets * SlotSize));
}

long long WdbEventSection::slotOf(unsigned int bucket) const {
    return m_header.bucketTableOffset + static_cast<long long>(bucket * SlotSize);
}

void WdbEventSection::putLatestTime(long long time) {
    if (!m_writable) return;
    m_header.latestTime = time;
    m_pStore->putBlock(m_headerOffset, reinterpret_cast<const char*>(&time), sizeof(time));
}

void WdbEventSection::putAddressMap(long long offset, long long size) {
    m_header.addressMapOffset = offset;
    m_header.addressMapSize = size;
    if (!m_writable) return;
    m_pStore->putBlock(m_headerOffset, reinterpret_cast<const char*>(&m_header), sizeof(m_header));
}

}  // namespace Korvel

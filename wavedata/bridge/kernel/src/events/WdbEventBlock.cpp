#include "events/WdbEventBlock.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <ostream>
#include <stdexcept>
#include <vector>

#include "container/WdbBlockCodec.h"
#include "events/WdbEventKey.h"
#include "events/WdbLiveEvent.h"
#include "events/WdbTimeSums.h"

namespace Korvel {
namespace {

const WdbStoreTexts StoreTexts = {
    "WDB FATAL ERROR: failed to add event block for the following reason: ",
    "WDB FATAL ERROR: unspecified exception thrown for the following reason: ",
    "WDB FATAL ERROR: caught unspecified exception in WdbEventBlock::addBlock for the following "
    "reason: ",
};

WdbEventKey keyOf(const WdbEvent& event) {
    return {event.getTime(), event.getStartAddress(), event.getValuelength()};
}

std::size_t hashOf(const WdbEventKey& key) {
    constexpr unsigned long long Odd = 0x9E3779B97F4A7C15ull;
    unsigned long long hash = static_cast<unsigned long long>(key.time) * Odd;
    hash = (hash ^ (hash >> 32) ^ static_cast<unsigned long long>(key.startAddress)) * Odd;
    hash = (hash ^ key.valueLength) * Odd;
    return static_cast<std::size_t>(hash >> 32);
}

// Puts the key of event @p index into a table of indices plus one, whose size is a power of two and
// larger than the number of keys. False when an equal key is there already.
template <typename Table, typename Keys>
bool insertKey(Table& table, unsigned int index, const Keys& keys) {
    const std::size_t mask = table.size() - 1;
    for (std::size_t slot = hashOf(keys[index]) & mask;; slot = (slot + 1) & mask) {
        if (table[slot] == 0) {
            table[slot] = static_cast<typename Table::value_type>(index + 1);
            return true;
        }
        if (keys[table[slot] - 1] == keys[index]) return false;
    }
}

// A block without a repeat among this many events counts as one without repeats.
constexpr unsigned int EventsLookedAt = 102;

// For each event whether no later one has the same key.
std::vector<bool> findLastWrites(const std::vector<WdbEventKey>& keys) {
    std::size_t tableSize = 16;
    while (tableSize < 2 * keys.size())
        tableSize *= 2;
    std::vector<unsigned int> table(tableSize);
    std::vector<bool> isLast(keys.size());
    for (unsigned int i = static_cast<unsigned int>(keys.size()); i-- > 0;) {
        isLast[i] = insertKey(table, i, keys);
    }
    return isLast;
}

}  // namespace

WdbEventBlock::WdbEventBlock(unsigned int capacity, long long baseAddress)
    : m_baseAddress(baseAddress),
      m_capacity(std::max(capacity, HeaderSize)),
      m_image(std::make_unique<char[]>(m_capacity)) {}

WdbEventBlock::WdbEventBlock(const WdbEventBlock& other)
    : WdbEventBlock(other.m_capacity, other.m_baseAddress) {
    *this = other;
}

WdbEventBlock& WdbEventBlock::operator=(const WdbEventBlock& other) {
    if (this == &other) return *this;
    if (m_capacity != other.m_capacity) m_image = std::make_unique<char[]>(other.m_capacity);
    m_capacity = other.m_capacity;
    clear();
    m_fileOffset = other.m_fileOffset;
    m_baseAddress = other.m_baseAddress;
    std::memcpy(m_image.get(), other.m_image.get(), m_capacity);
    walkImage(other.size());
    return *this;
}

void WdbEventBlock::addEvent(const WdbLiveEvent* event) {
    addEvent(event->m_time, event->m_address, event->m_valueLength, event->getValue());
}

void WdbEventBlock::addEvent(char* encoded, unsigned int size) {
    if (size == 0) return;
    std::memcpy(m_image.get() + m_usedSize, encoded, size);
    recordEvent(size);
}

void WdbEventBlock::clear() {
    std::memset(m_image.get(), 0, m_capacity);
    m_usedSize = HeaderSize;
    m_eventCount = 0;
    m_lastEvent = 0;
    m_offsets.setSize(0);
}

WdbEventBlock::Iterator WdbEventBlock::getIterator() const {
    storeCount();
    return {m_image.get(), m_baseAddress, offsets()};
}

WdbEventIterator WdbEventBlock::getEventIterator() const {
    storeCount();
    return {m_image.get(), m_baseAddress, offsets()};
}

long long WdbEventBlock::addBlock(WdbIBlockManager& store, unsigned int& compressedSize) const {
    if (isEmpty()) return 0;
    fillHeader();
    return storeDeflated(store, m_image.get(), m_capacity, compressedSize, StoreTexts);
}

void WdbEventBlock::loadBlock(long long offset, unsigned int compressedSize,
                              const WdbIBlockManager& store) {
    clear();
    if (!loadInflated(store, offset, compressedSize, m_image.get(), m_capacity)) return;
    walkImage(claimedCount());
}

bool WdbEventBlock::peek(long long offset, unsigned int compressedSize,
                         const WdbIBlockManager& store, WdbEventBlockHeader& header) {
    char image[HeaderSize];
    if (!loadFirstInflated(store, offset, compressedSize, image, sizeof(image))) return false;
    std::memcpy(&header.startTime, image + StartTimeOffset, sizeof(header.startTime));
    std::memcpy(&header.timeLength, image + TimeLengthOffset, sizeof(header.timeLength));
    std::memcpy(&header.eventCount, image + CountOffset, sizeof(header.eventCount));
    return true;
}

void WdbEventBlock::putBlock(long long offset, WdbIBlockManager& store) const {
    if (isEmpty()) return;
    fillHeader();
    store.putBlock(offset, m_image.get(), m_capacity);
}

void WdbEventBlock::getkeyMap(long long baseAddress, unsigned char key[KeySize]) const {
    std::memset(key, 0, KeySize);
    for (unsigned int i = 0; i < size(); ++i) {
        const WdbEvent event = eventAt(i);
        const long long first = event.getStartAddress() - baseAddress;
        const long long end = first + event.getValuelength();
        for (long long p = std::max(first, 0ll); p < std::min<long long>(end, KeyAddresses); ++p) {
            key[p / 8] = static_cast<unsigned char>(key[p / 8] | 1u << (p % 8));
        }
    }
}

bool WdbEventBlock::isAddressInKey(long long address, long long baseAddress,
                                   const unsigned char* key) {
    const int p = static_cast<int>(address - baseAddress);
    if (p < 0 || p >= static_cast<int>(KeyAddresses)) return false;
    return (key[p / 8] >> (p % 8) & 1) != 0;
}

// What a block tells of the changes of each address of a bucket. Made for every block that a tree
// gets, so without an allocation, and the addresses of an event are taken many at a time.
class WdbEventBlock::GapTable {
public:
    GapTable(const WdbEventBlock& block, long long baseAddress)
        : m_pBlock(&block), m_baseAddress(baseAddress) {
        block.forEachEvent([this](const WdbEvent& event) {
            const std::size_t end = firstOf(event) + event.getValuelength();
            if (end > KeyAddresses) throw std::out_of_range("An address is not in the key.");
            for (std::size_t p = firstOf(event); p < end;) {
                const std::size_t bits = std::min(end - p, WordBits - p % WordBits);
                const std::uint64_t changed = AllBits >> (WordBits - bits) << p % WordBits;
                m_seenTwice[p / WordBits] |= m_seen[p / WordBits] & changed;
                m_seen[p / WordBits] |= changed;
                p += bits;
            }
        });
    }

    // An address that changes only once has no gap of its own, so that the times of the others do
    // not matter: nearly always.
    long long largestGap() const {
        return m_seen != m_seenTwice ? m_pBlock->timeSpan() : largestGapOfAll();
    }

    void fillKey(unsigned char key[KeySize]) const { std::memcpy(key, m_seen.data(), KeySize); }

private:
    static constexpr std::size_t WordBits = 64;
    static constexpr std::uint64_t AllBits = ~std::uint64_t{0};
    using Bits = std::array<std::uint64_t, KeyAddresses / WordBits>;

    std::size_t firstOf(const WdbEvent& event) const {
        return static_cast<unsigned int>(event.getStartAddress()) -
               static_cast<unsigned int>(m_baseAddress);
    }

    // Of the addresses of an event, the one that changed longest ago has the largest gap.
    long long largestGapOfAll() const {
        constexpr long long Never = std::numeric_limits<long long>::max();
        std::array<long long, KeyAddresses> lastTimes;
        lastTimes.fill(Never);
        long long largest = 0;
        m_pBlock->forEachEvent([&](const WdbEvent& event) {
            long long earliest = Never;
            const std::size_t first = firstOf(event);
            for (std::size_t p = first; p < first + event.getValuelength(); ++p) {
                earliest = std::min(earliest, lastTimes[p]);
                lastTimes[p] = event.getTime();
            }
            if (earliest != Never)
                largest = std::max(largest, timeBetween(earliest, event.getTime()));
        });
        return largest;
    }

    const WdbEventBlock* m_pBlock;
    long long m_baseAddress;
    Bits m_seen = {};  // bit p is address p, as in a key
    Bits m_seenTwice = {};
};

long long WdbEventBlock::getLargestDiff(long long baseAddress) const {
    return GapTable(*this, baseAddress).largestGap();
}

void WdbEventBlock::getLargestDiffAndKey(long long baseAddress, long long& largestDiff,
                                         unsigned char key[KeySize]) const {
    const GapTable table(*this, baseAddress);
    table.fillKey(key);
    largestDiff = table.largestGap();
}

// Looked at for every block that fills up, so without an allocation.
bool WdbEventBlock::hasRepeatEarlyOn() const {
    std::array<WdbEventKey, EventsLookedAt> keys;
    std::array<unsigned char, 256> table = {};
    unsigned int offset = HeaderSize;
    for (unsigned int i = 0; i < std::min(size(), EventsLookedAt); ++i) {
        const WdbEvent event = eventAtOffset(offset);
        keys[i] = keyOf(event);
        if (!insertKey(table, i, keys)) return true;
        offset += event.sizeofEvent();
    }
    return false;
}

void WdbEventBlock::filterOutRepeatedValue() {
    if (!hasRepeatEarlyOn()) return;
    std::vector<WdbEventKey> keys;
    keys.reserve(size());
    for (unsigned int i = 0; i < size(); ++i)
        keys.push_back(keyOf(eventAt(i)));

    const std::vector<bool> isLast = findLastWrites(keys);
    WdbEventBlock kept(m_capacity, m_baseAddress);
    for (unsigned int i = 0; i < size(); ++i) {
        WdbEvent event = eventAt(i);
        if (isLast[i]) kept.addEvent(event.getValue() - WdbEvent::HeaderSize, event.sizeofEvent());
    }
    *this = kept;
}

void WdbEventBlock::dump(std::ostream& out, bool withEvents) const {
    out << "--WdbEventBlock:dump()" << std::endl
        << "  m_startTime = " << getStartTime() << std::endl
        << "  m_timeLength = " << getTimeLength() << std::endl
        << "  numberOfEvents = " << size() << std::endl;
    if (!withEvents) return;
    WdbEventIterator events = getEventIterator();
    while (events.hasNext()) {
        // Always 0: scripts in the field match this line as it is.
        out << "--current Event Index = " << 0 << std::endl;
        events.next()->dump(out);
    }
}

void WdbEventBlock::storeCount() const {
    const unsigned int count = size();
    std::memcpy(m_image.get() + CountOffset, &count, sizeof(count));
}

void WdbEventBlock::fillHeader() const {
    const long long startTime = eventAtOffset(HeaderSize).getTime();
    const long long timeLength = timeSpan();
    std::memcpy(m_image.get() + StartTimeOffset, &startTime, sizeof(startTime));
    std::memcpy(m_image.get() + TimeLengthOffset, &timeLength, sizeof(timeLength));
    storeCount();
}

unsigned int WdbEventBlock::claimedCount() const {
    unsigned int count;
    std::memcpy(&count, m_image.get() + CountOffset, sizeof(count));
    return count;
}

// Finds the events of an image that was copied or read. Neither the count nor a length is trusted.
void WdbEventBlock::walkImage(unsigned int eventCount) {
    for (unsigned int i = 0; i < eventCount; ++i) {
        if (!hasRoomFor(0)) return;
        const unsigned int length = WdbEvent(m_image.get() + m_usedSize).getValuelength();
        if (!hasRoomFor(length)) return;
        recordEvent(WdbEvent::HeaderSize + length);
    }
}

const CArray& WdbEventBlock::offsets() const {
    if (m_offsets.size() == m_eventCount) return m_offsets;
    if (m_offsets.capacity() < m_eventCount) {
        m_offsets.grow(std::max(m_eventCount, ReservedOffsets));
    }
    unsigned int offset = m_offsets.empty()
                              ? HeaderSize
                              : m_offsets.back() + eventAtOffset(m_offsets.back()).sizeofEvent();
    while (m_offsets.size() < m_eventCount) {
        m_offsets.push_back(offset);
        offset += eventAtOffset(offset).sizeofEvent();
    }
    return m_offsets;
}

WdbEvent WdbEventBlock::eventAtOffset(unsigned int offset) const {
    WdbEvent event(m_image.get() + offset);
    event.setBaseAddress(m_baseAddress);
    return event;
}

long long WdbEventBlock::timeSpan() const {
    if (isEmpty()) return 0;
    return timeBetween(eventAtOffset(HeaderSize).getTime(), eventAtOffset(m_lastEvent).getTime());
}

}  // namespace Korvel

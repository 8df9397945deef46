#include "inspect/StoredEvents.h"

#include "events/WdbEventBlockDatabaseFactory.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace Korvel {

namespace {

using Header = WdbEventDatabaseHeader;

constexpr unsigned int SmallestBlock = 64;
constexpr unsigned int LargestBlock = 1U << 24;
constexpr std::uint64_t SlotSize = 8;
constexpr std::uint64_t IntervalSize = 16;  // of the address map

// Keeps every sum of an address and a length inside 64 bits.
constexpr std::uint64_t MostAddresses = std::uint64_t{1} << 62;

class EventSectionReader {
public:
    EventSectionReader(Inspection& inspection, StoredEvents& events)
        : m_inspection(inspection), m_events(events), m_header(events.header) {}

    void judge();
    void readTable();

private:
    Place at(std::size_t field) const {
        Place place = m_events.place;
        place.offset += static_cast<std::int64_t>(field);
        return place;
    }
    bool judgeSizes();
    void judgeAddressMap();
    std::uint64_t expectedBuckets() const;

    Inspection& m_inspection;
    StoredEvents& m_events;
    const Header& m_header;
};

void EventSectionReader::judge() {
    if (!m_events.isTypeKnown) {
        m_inspection.error(at(offsetof(Header, databaseTypeId)),
                           "type {} is not known to this build: its blocks are not looked at",
                           m_header.databaseTypeId);
    }
    if (m_header.reserved != 0) {
        m_inspection.error(at(offsetof(Header, reserved)), "reserved bytes are not zero");
    }
    if (m_header.nodeCapacity != Header::NodeCapacity) {
        m_inspection.error(at(offsetof(Header, nodeCapacity)), "{} entries a node instead of {}",
                           m_header.nodeCapacity, Header::NodeCapacity);
    }
    judgeAddressMap();
    if (judgeSizes()) readTable();
}

void EventSectionReader::judgeAddressMap() {
    const Place place = at(offsetof(Header, addressMapSize));
    const std::int64_t count = m_header.addressMapSize;
    if (count == 0 && m_header.addressMapOffset == 0) return;
    if (count < 0 || static_cast<std::uint64_t>(count) > MostAddresses / IntervalSize) {
        m_inspection.error(place, "an address map of {} intervals", count);
        return;
    }
    m_inspection.claim(place, m_header.addressMapOffset,
                       static_cast<std::uint64_t>(count) * IntervalSize);
}

// Whether the buckets can be looked at.
bool EventSectionReader::judgeSizes() {
    bool isUsable = m_events.isTypeKnown;
    if (m_header.eventBlockSize < SmallestBlock || m_header.eventBlockSize > LargestBlock) {
        m_inspection.error(at(offsetof(Header, eventBlockSize)), "an event block of {} bytes",
                           m_header.eventBlockSize);
        isUsable = false;
    } else if (m_header.eventBlockSize != Header::EventBlockSize) {
        m_inspection.warning(at(offsetof(Header, eventBlockSize)),
                             "event blocks of {} bytes instead of the usual {}",
                             m_header.eventBlockSize, Header::EventBlockSize);
    }
    const std::uint64_t perBucket = m_header.addressesPerBucket;
    if (perBucket == 0 || perBucket > MostAddresses / (m_header.numberOfBuckets + 1ULL)) {
        m_inspection.error(at(offsetof(Header, addressesPerBucket)), "{} addresses a bucket",
                           perBucket);
        return false;
    }
    if (m_events.hasTrees() && perBucket != WdbEventBlock::KeyAddresses) {
        m_inspection.error(at(offsetof(Header, addressesPerBucket)),
                           "{} addresses a bucket instead of the {} of a tree", perBucket,
                           WdbEventBlock::KeyAddresses);
    }
    if (m_header.numberOfAddresses > MostAddresses) {
        m_inspection.error(at(offsetof(Header, numberOfAddresses)), "{} addresses",
                           m_header.numberOfAddresses);
        return false;
    }
    if (m_events.isTypeKnown && m_header.numberOfBuckets != expectedBuckets()) {
        m_inspection.error(at(offsetof(Header, numberOfBuckets)),
                           "{} buckets instead of the {} that {} addresses need",
                           m_header.numberOfBuckets, expectedBuckets(), m_header.numberOfAddresses);
    }
    return isUsable;
}

std::uint64_t EventSectionReader::expectedBuckets() const {
    if (m_events.hasOneBucket()) return 1;
    const std::uint64_t perBucket = m_header.addressesPerBucket;
    return m_header.numberOfAddresses / perBucket + (m_header.numberOfAddresses % perBucket != 0);
}

void EventSectionReader::readTable() {
    Place place = at(offsetof(Header, bucketTableOffset));
    const std::uint64_t size = m_header.numberOfBuckets * SlotSize;
    if (!m_inspection.claim(place, m_header.bucketTableOffset, size)) return;
    constexpr std::size_t ChunkSlots = 8192;
    std::vector<std::int64_t> slots;
    for (std::uint64_t first = 0; first < m_header.numberOfBuckets; first += slots.size()) {
        slots.resize(std::min<std::uint64_t>(ChunkSlots, m_header.numberOfBuckets - first));
        const auto offset =
            m_header.bucketTableOffset + static_cast<std::int64_t>(first * SlotSize);
        if (!m_inspection.bytes().read(offset, slots.data(), slots.size() * SlotSize)) return;
        for (std::size_t i = 0; i < slots.size(); ++i) {
            if (slots[i] == 0) continue;
            const auto bucket = static_cast<unsigned int>(first + i);
            if (!m_events.hasOneBucket() || bucket == 0) {
                m_events.buckets.push_back({bucket, slots[i]});
                continue;
            }
            place.bucket = bucket;
            m_inspection.error(place, "a second list in a section that has only one");
        }
    }
}

}  // namespace

bool StoredEvents::hasOneBucket() const {
    return header.databaseTypeId == WdbEventBlockDatabaseFactory::SingleBucket;
}

bool StoredEvents::hasTrees() const {
    return header.databaseTypeId == WdbEventBlockDatabaseFactory::MultipleBtree;
}

std::int64_t StoredEvents::baseOf(unsigned int bucket) const {
    if (hasTrees()) return std::int64_t{bucket} * WdbEventBlock::KeyAddresses;
    return hasOneBucket() ? 0 : static_cast<std::int64_t>(bucket * header.addressesPerBucket);
}

const char* nameOfEventType(int typeId) {
    switch (typeId) {
        case WdbEventBlockDatabaseFactory::SingleBucket:
            return "one list of blocks";
        case WdbEventBlockDatabaseFactory::MultipleBucket:
            return "one list of blocks a bucket";
        case WdbEventBlockDatabaseFactory::MultipleBtree:
            return "one B-tree of blocks a bucket";
        default:
            return nullptr;
    }
}

std::optional<StoredEvents> readEvents(Inspection& inspection, const SectionEntry& section) {
    StoredEvents events;
    events.place = section.place;
    if (section.item.m_size != sizeof(events.header)) {
        inspection.error(section.place, "a header of {} bytes instead of {}", section.item.m_size,
                         sizeof(events.header));
    }
    if (!inspection.takeRecord(section.place, section.item.m_offset, events.header)) {
        return std::nullopt;
    }
    events.isTypeKnown = nameOfEventType(events.header.databaseTypeId) != nullptr;
    EventSectionReader(inspection, events).judge();
    return events;
}

EventBlockCursor::EventBlockCursor(Inspection& inspection, const StoredEvents& events,
                                   const UsedBucket& bucket)
    : m_inspection(inspection),
      m_events(events),
      m_bucket(bucket),
      m_base(events.baseOf(bucket.index)),
      m_walk(makeWalk()),
      m_image(events.header.eventBlockSize) {}

EventBlockCursor::Walk EventBlockCursor::makeWalk() {
    const Place place{.part = m_events.place.part, .bucket = m_bucket.index};
    if (m_events.hasTrees()) return TreeCursor(m_inspection, place, m_bucket.head, m_base);
    return ListCursor(m_inspection, place, m_bucket.head);
}

bool EventBlockCursor::nextStored() {
    return std::visit([](auto& walk) { return walk.next(); }, m_walk);
}

bool EventBlockCursor::next() {
    while (nextStored()) {
        if (unpack()) return true;
    }
    return false;
}

Place EventBlockCursor::place() const {
    Place place = std::visit([](const auto& walk) { return walk.place(); }, m_walk);
    place.block = offset();
    return place;
}

TreeCursor::Entry EventBlockCursor::entry() const {
    return std::visit([](const auto& walk) { return walk.entry(); }, m_walk);
}

std::uint64_t EventBlockCursor::nodeCount() const {
    return std::visit([](const auto& walk) { return walk.nodeCount(); }, m_walk);
}

std::size_t EventBlockCursor::treeDepth() const {
    const auto* tree = std::get_if<TreeCursor>(&m_walk);
    return tree == nullptr ? 0 : tree->depth();
}

WdbEvent EventBlockCursor::event(std::size_t index) const {
    // The view can write where it reads; nobody here does.
    auto* image = const_cast<std::uint8_t*>(m_image.data());
    WdbEvent event(reinterpret_cast<char*>(image) + m_offsets[index]);
    event.setBaseAddress(m_base);
    return event;
}

bool EventBlockCursor::unpack() {
    if (!m_inspection.claim(place(), offset(), storedSize()) ||
        !m_inspection.unpack(place(), offset(), storedSize(), m_image)) {
        return false;
    }
    findEvents();
    // Only the first fault of a block is worth a line.
    bool isGood = true;
    for (std::size_t i = 0; i < m_offsets.size(); ++i) {
        isGood = isGood && judgeEvent(i);
        m_lastTime = event(i).getTime();
        m_latestTime = m_latestTime ? std::max(*m_latestTime, *m_lastTime) : *m_lastTime;
    }
    auto* tree = std::get_if<TreeCursor>(&m_walk);
    if (tree != nullptr && !m_offsets.empty()) judgeInTree(*tree);
    return true;
}

void EventBlockCursor::judgeInTree(TreeCursor& tree) {
    WdbEventBlock block(m_events.header.eventBlockSize, m_base);
    for (std::size_t i = 0; i < m_offsets.size(); ++i) {
        block.addEvent(reinterpret_cast<char*>(m_image.data()) + m_offsets[i],
                       event(i).sizeofEvent());
    }
    tree.judgeBlock(block, event(0).getTime(), event(m_offsets.size() - 1).getTime());
}

void EventBlockCursor::findEvents() {
    std::uint32_t claimedCount = 0;
    std::memcpy(&m_startTime, m_image.data(), sizeof(m_startTime));
    std::memcpy(&m_timeLength, m_image.data() + 8, sizeof(m_timeLength));
    std::memcpy(&claimedCount, m_image.data() + 16, sizeof(claimedCount));
    constexpr std::size_t HeaderSize = 20;
    m_offsets.clear();
    m_usedSize = HeaderSize;
    while (m_offsets.size() < claimedCount) {
        std::size_t room = m_image.size() - m_usedSize;
        if (room < WdbEvent::HeaderSize) break;
        room -= WdbEvent::HeaderSize;
        m_offsets.push_back(static_cast<std::uint32_t>(m_usedSize));
        const std::uint32_t length = event(m_offsets.size() - 1).getValuelength();
        if (length > room) {
            m_offsets.pop_back();
            break;
        }
        m_usedSize += WdbEvent::HeaderSize + length;
    }
    judgeHeader(claimedCount);
}

void EventBlockCursor::judgeHeader(std::uint32_t claimedCount) {
    if (claimedCount == 0) m_inspection.error(place(), "a block without events");
    if (m_offsets.size() < claimedCount) {
        m_inspection.error(placeOf(m_offsets.size()),
                           "reaches past the block's end, of {} events that are claimed",
                           claimedCount);
        return;  // the tail holds what could not be told apart
    }
    judgeTail();
    if (m_offsets.empty()) return;
    const std::int64_t first = event(0).getTime();
    const std::int64_t last = event(m_offsets.size() - 1).getTime();
    const std::uint64_t length =
        static_cast<std::uint64_t>(last) - static_cast<std::uint64_t>(first);
    if (m_startTime != first) {
        m_inspection.error(place(), "start time {} is not the first event's, {}", m_startTime,
                           first);
    }
    if (static_cast<std::uint64_t>(m_timeLength) != length) {
        m_inspection.error(place(), "time length {} instead of {}", m_timeLength,
                           static_cast<std::int64_t>(length));
    }
}

void EventBlockCursor::judgeTail() {
    const auto tail = m_image.begin() + static_cast<std::ptrdiff_t>(m_usedSize);
    if (std::all_of(tail, m_image.end(), [](std::uint8_t byte) { return byte == 0; })) return;
    m_inspection.error(place(), "the bytes behind the last event are not zero");
}

bool EventBlockCursor::judgeEvent(std::size_t index) {
    const WdbEvent event = this->event(index);
    const std::int64_t time = event.getTime();
    if (event.getValuelength() == 0) {
        m_inspection.error(placeOf(index), "has no values");
        return false;
    }
    if (m_lastTime && time < *m_lastTime) {
        m_inspection.error(placeOf(index), "time {} is before the {} of the event before it", time,
                           *m_lastTime);
        return false;
    }
    return judgeAddresses(index, event);
}

// A bucket's events lie inside it. The last bucket also takes, uncut, what belongs to none: the
// address right behind the last one where that begins a bucket, and all that lie further away. The
// first one takes negative addresses of which a bucket's worth would reach it, unless it is a tree.
bool EventBlockCursor::judgeAddresses(std::size_t index, const WdbEvent& event) {
    const auto addresses = static_cast<std::int64_t>(m_events.header.numberOfAddresses);
    const auto perBucket = static_cast<std::int64_t>(m_events.header.addressesPerBucket);
    std::int64_t begin = event.getStartAddress();
    const auto wrapped = static_cast<std::int32_t>(begin - m_base);
    const bool takesNegative = m_bucket.index == 0 && !m_events.hasTrees();
    if (takesNegative && wrapped < 0 && wrapped > -perBucket) begin = wrapped;
    const std::int64_t end = begin + event.getValuelength();
    const std::int64_t bucketEnd = m_base + perBucket;
    const bool isLast = m_bucket.index + 1 == m_events.header.numberOfBuckets;
    const bool hasBucket = begin <= addresses && begin < bucketEnd;
    if (!m_events.hasOneBucket() && end > bucketEnd && (hasBucket || !isLast)) {
        m_inspection.error(placeOf(index), "addresses {} to {} reach past the bucket's {} to {}",
                           begin, end - 1, m_base, bucketEnd - 1);
        return false;
    }
    if ((begin < 0 || end > addresses) && !m_isOutsideReported) {
        m_isOutsideReported = true;
        m_inspection.warning(placeOf(index),
                             "addresses {} to {} are not all among the {} there are", begin,
                             end - 1, addresses);
    }
    return true;
}

Place EventBlockCursor::placeOf(std::size_t event) const {
    Place place = this->place();
    place.event = static_cast<std::int64_t>(event);
    return place;
}

}  // namespace Korvel

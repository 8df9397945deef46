#include "transport/WdbCircularBuffer.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>

#include "events/WdbLiveEvent.h"
#include "transport/WdbLivePacket.h"
#include "transport/WdbLivePacketContainer.h"

namespace Korvel {
namespace {

constexpr unsigned int OffsetsSize = 8;
constexpr int MostStarts =
    100;  // a side that empties the ring all the time must not hang the other

// Both offsets at once.
using OffsetPair = std::uint64_t __attribute__((may_alias));
static_assert(sizeof(OffsetPair) == OffsetsSize);

std::atomic_ref<unsigned int> shared(unsigned int* offset) {
    return std::atomic_ref<unsigned int>(*offset);
}

// Of two offsets that both lie in the ring.
unsigned int distance(unsigned int from, unsigned int to, unsigned int capacity) {
    return to >= from ? to - from : capacity - from + to;
}

}  // namespace

WdbCircularBuffer::WdbCircularBuffer(char* region, unsigned int size, bool create)
    : m_data(region != nullptr && size > OffsetsSize ? region + OffsetsSize : nullptr),
      m_capacity(m_data != nullptr ? size - OffsetsSize : 0),
      m_pWrite(reinterpret_cast<unsigned int*>(region)),
      m_pRead(m_data != nullptr ? m_pWrite + 1 : nullptr) {
    if (create) clear();
}

// At once, so that the other side never sees one offset of the old and one of the new state.
void WdbCircularBuffer::clear() {
    if (m_data == nullptr) return;
    __atomic_store_n(reinterpret_cast<OffsetPair*>(m_pWrite), 0, __ATOMIC_SEQ_CST);
}

void WdbCircularBuffer::forget() {
    if (m_data == nullptr) return;
    const unsigned int write = shared(m_pWrite).load(std::memory_order_relaxed);
    shared(m_pRead).store(write, std::memory_order_release);
}

void WdbCircularBuffer::takeOver(const char* memory) {
    if (m_data == nullptr) return;
    std::uint64_t offsets = 0;
    std::memcpy(&offsets, memory, sizeof(offsets));
    std::memcpy(m_data, memory + OffsetsSize, m_capacity);
    __atomic_store_n(reinterpret_cast<OffsetPair*>(m_pWrite), offsets, __ATOMIC_SEQ_CST);
}

// --- The consumer. ---

bool WdbCircularBuffer::canRead(unsigned int& read, unsigned int& write,
                                unsigned int& available) const {
    read = write = available = 0;
    if (m_data == nullptr) return false;
    // In this order: a read offset from before a clear() does not stand when it is published, one
    // from after it comes with a write offset from after it.
    read = shared(m_pRead).load(std::memory_order_acquire);
    write = shared(m_pWrite).load(std::memory_order_acquire);
    if (!areInRing(read, write)) return false;
    available = distance(read, write, m_capacity);
    return available != 0;
}

bool WdbCircularBuffer::getPackets(void* dest, unsigned int& available) {
    unsigned int read = 0;
    unsigned int write = 0;
    if (!canRead(read, write, available)) {
        // Only somebody else can have set such an offset. What is in the ring is lost.
        if (m_data != nullptr && read >= m_capacity && write < m_capacity)
            shared(m_pRead).compare_exchange_strong(read, write);
        return false;
    }
    const unsigned int upToEnd = std::min(available, m_capacity - read);
    std::memcpy(dest, m_data + read, upToEnd);
    std::memcpy(static_cast<char*>(dest) + upToEnd, m_data, available - upToEnd);
    if (!isEmptiedSince(read, write) &&
        shared(m_pRead).compare_exchange_strong(read, write, std::memory_order_release,
                                                std::memory_order_relaxed)) {
        return true;
    }
    available = 0;  // of a run that was given up
    return false;
}

// The read offset tells of a clear() too, but not where it was 0 anyway.
bool WdbCircularBuffer::isEmptiedSince(unsigned int read, unsigned int write) const {
    const unsigned int now = shared(m_pWrite).load(std::memory_order_acquire);
    return now >= m_capacity || distance(read, now, m_capacity) < distance(read, write, m_capacity);
}

// --- The producer: once per value change. ---

bool WdbCircularBuffer::areInRing(unsigned int read, unsigned int write) const {
    return read < m_capacity && write < m_capacity;
}

bool WdbCircularBuffer::canWrite(unsigned int& write, unsigned int& newWrite,
                                 unsigned int n) const {
    write = newWrite = 0;
    if (m_data == nullptr || !isRecordSize(n)) return false;
    const unsigned int read = shared(m_pRead).load(std::memory_order_acquire);
    write = shared(m_pWrite).load(std::memory_order_relaxed);
    if (!areInRing(read, write)) return false;
    newWrite = write + n;
    if (newWrite >= m_capacity) newWrite -= m_capacity;

    const int half = static_cast<int>(m_capacity / 2);
    const auto ahead = static_cast<int>(write - read);
    if (0 <= ahead && ahead < half) return true;
    if (ahead < -half) return true;
    const auto newAhead = static_cast<int>(newWrite - read);
    if (0 <= newAhead && newAhead < half) return false;
    return newAhead > 0 || -newAhead <= half;
}

bool WdbCircularBuffer::putPacket(const WdbLivePacketContainer& event) {
    const unsigned int valueSize = event.m_valueSize;
    const unsigned int length = valueSize + WdbLiveEvent::HeaderSize;
    return put(0ull + valueSize + WdbLivePacketContainer::RecordOverhead,
               [&](unsigned int offset, bool isInOnePiece) {
                   char header[WdbLivePacketContainer::RecordOverhead];
                   std::memcpy(header, &length, sizeof(length));
                   std::memcpy(header + 4, &event.m_time, sizeof(event.m_time));
                   std::memcpy(header + 12, &event.m_address, sizeof(event.m_address));
                   std::memcpy(header + 20, &valueSize, sizeof(valueSize));
                   if (isInOnePiece) {
                       char* record = m_data + offset;
                       std::memcpy(record, header, sizeof(header));
                       copyValue(record + sizeof(header), event.m_value, valueSize);
                   } else {
                       copyIn(offset, header, sizeof(header));
                       copyIn(offset + sizeof(header), event.m_value, valueSize);
                   }
               });
}

bool WdbCircularBuffer::putPacket(const WdbLivePacket& packet) {
    return putPayload(packet.getPayload(), packet.getLength());
}

bool WdbCircularBuffer::putPayload(const void* bytes, unsigned int n) {
    return put(0ull + n + WdbLivePacket::LengthSize, [&](unsigned int offset, bool) {
        copyIn(offset, &n, WdbLivePacket::LengthSize);
        copyIn(offset + WdbLivePacket::LengthSize, bytes, n);
    });
}

template <typename Copy>
bool WdbCircularBuffer::put(unsigned long long n, Copy&& copy) {
    if (!isRecordSize(n)) return false;
    const auto size = static_cast<unsigned int>(n);
    for (int i = 0; i < MostStarts; ++i) {
        unsigned int write = 0;
        unsigned int newWrite = 0;
        if (!canWrite(write, newWrite, size)) {
            repairOffsets();
            return false;
        }
        copy(write, newWrite > write);
        if (shared(m_pWrite).compare_exchange_strong(write, newWrite, std::memory_order_release,
                                                     std::memory_order_relaxed)) {
            return true;
        }
    }
    return false;
}

// Values of one scalar, a word pair or two are nearly all there are.
void WdbCircularBuffer::copyValue(char* to, const unsigned char* value, unsigned int size) {
    switch (size) {
        case 1:
            *to = static_cast<char>(*value);
            break;
        case 4:
            std::memcpy(to, value, 4);
            break;
        case 8:
            std::memcpy(to, value, 8);
            break;
        case 16:
            std::memcpy(to, value, 16);
            break;
        case 0:
            break;
        default:
            std::memcpy(to, value, size);
    }
}

// Goes on at the start of the ring where its end is reached.
void WdbCircularBuffer::copyIn(unsigned int offset, const void* bytes, unsigned int n) {
    if (n == 0) return;
    if (offset >= m_capacity) offset -= m_capacity;
    const unsigned int upToEnd = std::min(n, m_capacity - offset);
    std::memcpy(m_data + offset, bytes, upToEnd);
    std::memcpy(m_data, static_cast<const char*>(bytes) + upToEnd, n - upToEnd);
}

// Offsets out of the ring, which somebody else must have set, would stop the simulation for ever.
void WdbCircularBuffer::repairOffsets() {
    if (m_data == nullptr) return;
    if (!areInRing(shared(m_pRead).load(), shared(m_pWrite).load())) clear();
}

}  // namespace Korvel

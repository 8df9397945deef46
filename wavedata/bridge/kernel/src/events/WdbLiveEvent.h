#pragma once

#include <cstddef>
#include <iosfwd>

namespace Korvel {

/// One event as it travels from the simulator to a viewer.
///
///   offset  size  field
///        0     8  time            signed
///        8     8  start address   absolute
///       16     4  value length n  unsigned
///       20     n  values          directly behind the length, beyond the members below
struct WdbLiveEvent {
    static constexpr std::size_t HeaderSize = 20;

    /// Room for the header on top of what is asked for, which is the room for the values.
    static void* operator new(std::size_t size);
    static void operator delete(void* memory);

    unsigned char* getValue() { return reinterpret_cast<unsigned char*>(this) + HeaderSize; }
    const unsigned char* getValue() const {
        return reinterpret_cast<const unsigned char*>(this) + HeaderSize;
    }

    /// Stores time and address and copies the values; their length must be set before, and the
    /// memory behind the header must hold them.
    void setFields(long long time, long address, unsigned char* value);

    void dump(std::ostream& out) const;

    long long m_time;
    long long m_address;
    unsigned int m_valueLength;
};
static_assert(offsetof(WdbLiveEvent, m_address) == 8 &&
              offsetof(WdbLiveEvent, m_valueLength) == 16);

}  // namespace Korvel

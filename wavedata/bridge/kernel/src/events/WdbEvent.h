#pragma once

#include <cstring>
#include <iosfwd>

namespace Korvel {

/// View over one encoded event: one time, one value byte for each of several consecutive addresses.
///
///   offset  size  field
///        0     8  time            signed
///        8     4  start address   unsigned, minus the base address of the event's block
///       12     4  value length n  unsigned, the number of addresses that changed
///       16     n  values          for addresses start, start + 1, ...
///
/// Little-endian, unaligned. The view owns nothing and checks nothing: whoever makes it has made
/// sure that the bytes are there.
class WdbEvent {
public:
    static constexpr unsigned int HeaderSize = 16;

    explicit WdbEvent(char* base = nullptr) : m_pBase(base) {}

    void setBase(char* base) { m_pBase = base; }
    void setBaseAddress(long long address) { m_baseAddress = address; }
    long long getBaseAddress() const { return m_baseAddress; }

    long long getTime() const { return read<long long>(TimeOffset); }

    /// Absolute: the stored address counts upwards from the base, never below it.
    long long getStartAddress() const {
        return static_cast<long long>(static_cast<unsigned long long>(m_baseAddress) +
                                      read<unsigned int>(AddressOffset));
    }
    unsigned int getValuelength() const { return read<unsigned int>(LengthOffset); }
    unsigned int sizeofEvent() const { return HeaderSize + getValuelength(); }
    char* getValue() const { return m_pBase + HeaderSize; }

    /// The value byte of @p address, which must lie in the event.
    unsigned char getValue(long long address) const {
        return getValueWithStartAddress(getStartAddress(), address);
    }

    /// As getValue(), for a caller that already knows where the event starts.
    unsigned char getValueWithStartAddress(long long start, long long address) const {
        const auto index = static_cast<unsigned int>(address) - static_cast<unsigned int>(start);
        return static_cast<unsigned char>(getValue()[index]);
    }

    /// The values from @p address on.
    char* getValues(long long address) const { return getValue() + (address - getStartAddress()); }

    bool isWithinRange(long long address) const;

    /// Whether the first or the last address of the range lies in the event. A range that reaches
    /// beyond both ends of the event does not count: callers ask for objects and cut their changes
    /// at object ends, and they rely on this exact test.
    bool isWithinRange(long long address, long long width) const;

    /// Whether low <= x <= high; the event is not looked at.
    bool isWithinRange(long long low, long long high, long long x) const {
        return low <= x && x <= high;
    }

    void dump(std::ostream& out) const;

private:
    static constexpr unsigned int TimeOffset = 0;
    static constexpr unsigned int AddressOffset = 8;
    static constexpr unsigned int LengthOffset = 12;

    template <typename Integer>
    Integer read(unsigned int offset) const {
        Integer value;
        std::memcpy(&value, m_pBase + offset, sizeof(value));
        return value;
    }

    char* m_pBase;                // first byte of the encoded event, not owned
    long long m_baseAddress = 0;  // added to the stored address
};

/// Writes the values of an event as a dump shows them: hexadecimal, each followed by a blank.
void dumpValues(std::ostream& out, const char* values, unsigned int count);

}  // namespace Korvel

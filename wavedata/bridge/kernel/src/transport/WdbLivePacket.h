#pragma once

#include <cstddef>
#include <iosfwd>

namespace Korvel {

/// One record of the ring as a heap object: the number of bytes that follow, then those bytes.
///
///   new (length) WdbLivePacket(length)
class WdbLivePacket {
public:
    static constexpr unsigned int LengthSize = 4;
    static constexpr unsigned int MarkLength = 8;  ///< of a mark's payload, its time; no event's

    /// Room for the length word on top of the payload.
    static void* operator new(std::size_t size, unsigned int payloadLength);
    static void operator delete(void* memory);
    static void operator delete(void* memory, unsigned int payloadLength);

    explicit WdbLivePacket(unsigned int length) : m_length(length) {}
    WdbLivePacket(const WdbLivePacket&) = delete;
    WdbLivePacket& operator=(const WdbLivePacket&) = delete;

    /// Copies as many bytes as the payload has.
    void putData(const char* bytes);

    unsigned int getLength() const { return m_length; }
    const char* getPayload() const { return reinterpret_cast<const char*>(this) + LengthSize; }

    void printPacket(std::ostream& out) const;

    /// Fills the payload with @p byte and following ones, for tests of a transport; where
    /// @p isPrinted, shows the packet as well.
    void populatePacket(char byte, std::ostream& out, bool isPrinted);

private:
    char* payload() { return reinterpret_cast<char*>(this) + LengthSize; }

    unsigned int m_length;  // the payload follows
};
static_assert(sizeof(WdbLivePacket) == WdbLivePacket::LengthSize);

}  // namespace Korvel

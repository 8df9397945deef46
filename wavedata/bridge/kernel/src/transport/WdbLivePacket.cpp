#include "transport/WdbLivePacket.h"

#include <cstring>
#include <new>
#include <ostream>

namespace Korvel {

void* WdbLivePacket::operator new(std::size_t, unsigned int payloadLength) {
    return ::operator new (std::size_t{payloadLength} + LengthSize);
}

void WdbLivePacket::operator delete(void* memory) {
    ::operator delete(memory);
}

void WdbLivePacket::operator delete(void* memory, unsigned int) {
    ::operator delete(memory);
}

void WdbLivePacket::putData(const char* bytes) {
    if (m_length != 0) std::memcpy(payload(), bytes, m_length);
}

void WdbLivePacket::printPacket(std::ostream& out) const {
    const unsigned long long total = 0ull + m_length + LengthSize;
    out << "Bytes " << total << " " << m_length << std::hex;
    for (unsigned int i = 0; i < m_length; ++i)
        out << static_cast<unsigned int>(static_cast<unsigned char>(getPayload()[i])) << " ";
    out << std::dec;
}

void WdbLivePacket::populatePacket(char byte, std::ostream& out, bool isPrinted) {
    for (unsigned int i = 0; i < m_length; ++i)
        payload()[i] = static_cast<char>(static_cast<unsigned int>(byte) + i);
    if (isPrinted) printPacket(out);
}

}  // namespace Korvel

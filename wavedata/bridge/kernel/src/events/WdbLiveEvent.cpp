#include "events/WdbLiveEvent.h"

#include <cstring>
#include <new>
#include <ostream>

#include "events/WdbEvent.h"

namespace Korvel {

void* WdbLiveEvent::operator new(std::size_t size) {
    return ::operator new(size + HeaderSize);
}

void WdbLiveEvent::operator delete(void* memory) {
    ::operator delete(memory);
}

void WdbLiveEvent::setFields(long long time, long address, unsigned char* value) {
    m_time = time;
    m_address = address;
    std::memcpy(getValue(), value, m_valueLength);
}

void WdbLiveEvent::dump(std::ostream& out) const {
    out << "--WdbLiveEvent::dump()" << std::endl
        << "  m_pTime = " << m_time << std::endl
        << "  m_pStartAddress = " << m_address << std::endl
        << "  m_pLength = " << m_valueLength << std::endl
        << "  m_value = ";
    dumpValues(out, reinterpret_cast<const char*>(getValue()), m_valueLength);
    out << std::endl;
}

}  // namespace Korvel

#include "events/WdbEvent.h"

#include <ostream>

namespace Korvel {

bool WdbEvent::isWithinRange(long long address) const {
    const long long start = getStartAddress();
    return isWithinRange(start, start + getValuelength() - 1, address);
}

bool WdbEvent::isWithinRange(long long address, long long width) const {
    return isWithinRange(address) || isWithinRange(address + width - 1);
}

void WdbEvent::dump(std::ostream& out) const {
    out << "--WdbEvent::dump()" << std::endl
        << "  m_pTime = " << getTime() << std::endl
        << "  m_pStartAddress = " << getStartAddress() << std::endl
        << "  m_pLength = " << getValuelength() << std::endl
        << "  m_value = ";
    dumpValues(out, getValue(), getValuelength());
    out << std::endl;
}

void dumpValues(std::ostream& out, const char* values, unsigned int count) {
    out << std::hex;
    for (unsigned int i = 0; i < count; ++i) {
        out << static_cast<unsigned int>(static_cast<unsigned char>(values[i])) << ' ';
    }
    out << std::dec;
}

}  // namespace Korvel

#pragma once

#include <list>

namespace Korvel {

/// One event on its way into the ring, before it is serialised. The value is not owned.
struct WdbLivePacketContainer {
    /// Bytes of an event's record besides its value: length word, time, address, value length.
    static constexpr unsigned int RecordOverhead = 24;

    /// Appends the parts of an event whose record has @p maxBytes or more: events of the same time
    /// over consecutive addresses. Appends nothing where the record is shorter: such an event is
    /// sent whole.
    ///
    /// The parts' records are about half as long as the limit, or shorter, as long as that is at
    /// least twice the overhead. A limit that no value byte fits into gives one byte a part.
    void splitContainer(std::list<WdbLivePacketContainer>& parts, unsigned int maxBytes) const;

    long long m_time = 0;
    unsigned int m_valueSize = 0;
    unsigned long long m_address = 0;
    const unsigned char* m_value = nullptr;
};

}  // namespace Korvel

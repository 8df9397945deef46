#include "transport/WdbLiveBatch.h"

#include <algorithm>
#include <cstring>

#include "transport/WdbLivePacket.h"

namespace Korvel {

WdbLiveBatch::Record WdbLiveBatch::next() {
    constexpr unsigned int LengthSize = WdbLivePacket::LengthSize;
    if (m_left == 0) return Record::End;
    unsigned int length = 0;
    if (m_left < LengthSize) return Record::Nonsense;
    std::memcpy(&length, m_bytes, LengthSize);
    if (length > m_left - LengthSize) return Record::Nonsense;
    const bool isMark = length == WdbLivePacket::MarkLength;
    if (!isMark && !isEvent(m_bytes + LengthSize, length)) return Record::Nonsense;
    m_payload = m_bytes + LengthSize;
    m_length = length;
    std::memcpy(&m_time, m_payload, sizeof(m_time));
    m_bytes += getRecordSize();
    m_left -= getRecordSize();
    return isMark ? Record::Mark : Record::Event;
}

unsigned int WdbLiveBatch::getRecordSize() const {
    return WdbLivePacket::LengthSize + m_length;
}

bool WdbLiveBatch::isEvent(const char* payload, unsigned int length) {
    unsigned int valueLength = 0;
    if (length < WdbLiveEvent::HeaderSize) return false;
    std::memcpy(&valueLength, payload + offsetof(WdbLiveEvent, m_valueLength), sizeof(valueLength));
    return valueLength == length - WdbLiveEvent::HeaderSize;
}

const WdbLiveEvent* WdbLiveBatch::getEvent() {
    if (m_event.size() < m_length) {
        m_event.resize(std::max<std::size_t>(m_length, 2 * m_event.size()));
    }
    std::memcpy(m_event.data(), m_payload, m_length);
    return reinterpret_cast<const WdbLiveEvent*>(m_event.data());
}

}  // namespace Korvel

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
    const char* payload = m_bytes + LengthSize;
    Record record = Record::Mark;
    if (length == WdbLivePacket::MarkLength) {
        std::memcpy(&m_time, payload, sizeof(m_time));
    } else {
        if (!takeEvent(payload, length)) return Record::Nonsense;
        record = Record::Event;
    }
    m_bytes += LengthSize + length;
    m_left -= LengthSize + length;
    return record;
}

bool WdbLiveBatch::takeEvent(const char* payload, unsigned int length) {
    unsigned int valueLength = 0;
    if (length < WdbLiveEvent::HeaderSize) return false;
    std::memcpy(&valueLength, payload + offsetof(WdbLiveEvent, m_valueLength), sizeof(valueLength));
    if (valueLength != length - WdbLiveEvent::HeaderSize) return false;
    if (m_event.size() < length) m_event.resize(std::max<std::size_t>(length, 2 * m_event.size()));
    std::memcpy(m_event.data(), payload, length);
    return true;
}

const WdbLiveEvent* WdbLiveBatch::getEvent() const {
    return reinterpret_cast<const WdbLiveEvent*>(m_event.data());
}

}  // namespace Korvel

#include "transport/WdbLiveBatch.h"

#include <algorithm>
#include <cstring>

namespace Korvel {
namespace {

constexpr unsigned int LengthSize = 4;
constexpr unsigned int MarkLength = 8;

}  // namespace

WdbLiveBatch::Record WdbLiveBatch::next() {
    if (m_left == 0) return Record::End;
    unsigned int length = 0;
    if (m_left < LengthSize) return Record::Nonsense;
    std::memcpy(&length, m_bytes, LengthSize);
    if (length > m_left - LengthSize) return Record::Nonsense;
    const char* payload = m_bytes + LengthSize;
    Record record = Record::Mark;
    if (length == MarkLength) {
        std::memcpy(&m_time, payload, MarkLength);
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

#include "events/WdbEventIterator.h"

namespace Korvel {

WdbEventIterator::WdbEventIterator(char* image, long long baseAddress, const CArray& offsets)
    : m_baseAddress(baseAddress),
      m_pImage(image),
      m_count(offsets.size()),
      m_event(image),
      m_offsets(offsets) {
    m_event.setBaseAddress(m_baseAddress);
}

WdbEvent* WdbEventIterator::next() {
    m_event.setBase(m_pImage + m_offsets[m_index]);
    ++m_index;
    return &m_event;
}

}  // namespace Korvel

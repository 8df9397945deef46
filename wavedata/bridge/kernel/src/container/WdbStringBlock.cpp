#include "container/WdbStringBlock.h"

#include <algorithm>
#include <cassert>
#include <cstring>

#include "container/WdbBlockCodec.h"

namespace Korvel {
namespace {

constexpr unsigned int StartIdOffset = 0;
constexpr unsigned int CountOffset = 8;
constexpr unsigned int ReservedOffsets = 1024;

// The first text speaks of an event block, as it does for events: tools that watch for a full disk
// look for one line, not for two.
const WdbStoreTexts StoreTexts = {
    "WDB FATAL ERROR: failed to add event block for the following reason: ",
    "WDB FATAL ERROR: unspecified exception thrown for the following reason: ",
    "WDB FATAL ERROR: caught unspecified exception in WdbStringBlock::addBlock for the following "
    "reason: ",
};

}  // namespace

bool WdbStringBlockIterator::hasNext() const {
    return m_index < m_pBlock->size();
}

void WdbStringBlockIterator::next() {
    // Unsigned, because a damaged block may start at any id.
    m_id =
        static_cast<long long>(static_cast<unsigned long long>(m_pBlock->getStartID()) + m_index);
    m_pText = m_pBlock->getText(m_index);
    ++m_index;
}

WdbStringBlock::WdbStringBlock(unsigned int maximumSize)
    : m_maximumSize(std::max(maximumSize, HeaderSize)),
      m_image(std::make_unique<char[]>(m_maximumSize)) {
    m_offsets.reserve(ReservedOffsets);
}

bool WdbStringBlock::canAdd(const std::string& text) const {
    return m_dataOffset + text.size() + 1 < m_maximumSize;
}

void WdbStringBlock::addString(long long id, const std::string& text) {
    // Whoever hands over a longer string has not asked canAdd() of an empty block.
    assert(canAdd(text));
    if (isEmpty()) setSetStartID(id);
    std::memcpy(m_image.get() + m_dataOffset, text.data(), text.size());
    record(m_dataOffset);
    m_dataOffset += static_cast<unsigned int>(text.size()) + 1;
    setCount(size());
}

void WdbStringBlock::clear() {
    std::memset(m_image.get(), 0, m_maximumSize);
    m_dataOffset = HeaderSize;
    m_offsets.clear();
}

long long WdbStringBlock::addBlock(WdbIBlockManager& store, unsigned int& size, long long& startId,
                                   unsigned int& count) {
    if (isEmpty()) return 0;
    setCount(m_offsets.size());
    startId = getStartID();
    count = m_offsets.size();
    return storeDeflated(store, m_image.get(), m_maximumSize, size, StoreTexts);
}

void WdbStringBlock::loadBlock(long long handle, unsigned int size, const WdbIBlockManager& store) {
    clear();
    if (!loadInflated(store, handle, size, m_image.get(), m_maximumSize)) return;
    const unsigned int count = getCount();
    for (unsigned int i = 0; i < count; ++i) {
        const char* text = m_image.get() + m_dataOffset;
        const std::size_t room = m_maximumSize - m_dataOffset;
        const std::size_t length = ::strnlen(text, room);
        if (length == room) break;
        record(m_dataOffset);
        m_dataOffset += static_cast<unsigned int>(length) + 1;
    }
}

void WdbStringBlock::setSetStartID(long long id) {
    std::memcpy(m_image.get() + StartIdOffset, &id, sizeof(id));
}

long long WdbStringBlock::getStartID() const {
    long long id = 0;
    std::memcpy(&id, m_image.get() + StartIdOffset, sizeof(id));
    return id;
}

void WdbStringBlock::setCount(unsigned int count) {
    std::memcpy(m_image.get() + CountOffset, &count, sizeof(count));
}

unsigned int WdbStringBlock::getCount() const {
    unsigned int count = 0;
    std::memcpy(&count, m_image.get() + CountOffset, sizeof(count));
    return count;
}

// A block of a damaged section may claim a larger image with more strings than are reserved for.
void WdbStringBlock::record(unsigned int offset) {
    if (m_offsets.size() == m_offsets.capacity()) m_offsets.grow(2 * m_offsets.capacity());
    m_offsets.push_back(offset);
}

}  // namespace Korvel

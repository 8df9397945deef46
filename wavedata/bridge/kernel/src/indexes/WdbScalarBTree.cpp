#include "korvel/WdbScalarBTree.h"

#include <limits>
#include <utility>

#include "indexes/WdbGapBTree.h"
#include "indexes/WdbGapCursor.h"
#include "indexes/WdbIndexPages.h"

namespace Korvel {

// --- Dense runs. ---

WdbScalarBTree::Iterator::Iterator(std::unique_ptr<WdbGapCursor> cursor,
                                   unsigned long long resolution, long long endTime)
    : m_cursor(std::move(cursor)), m_resolution(resolution), m_endTime(endTime) {
    show();
}

WdbScalarBTree::Iterator::~Iterator() = default;

WdbScalarBTree::Iterator& WdbScalarBTree::Iterator::operator++() {
    if (m_isAtEnd) return *this;
    if (m_current.type == WdbByteValue::DenseValue) {
        // The run's last record shows its value, however soon the window or the recording ends.
        m_cursor->skipRun(m_resolution, m_endTime);
        m_current = {m_cursor->getTime(), WdbByteValue::SingleValue, m_cursor->getValue()};
        return *this;
    }
    m_cursor->next();
    show();
    return *this;
}

// Takes the record that the cursor is at, as a single value or as the begin of a run.
void WdbScalarBTree::Iterator::show() {
    if (m_cursor->isAtEnd() || m_cursor->getTime() > m_endTime) {
        m_isAtEnd = true;
        m_current = {};
    } else if (m_resolution > 0 && m_cursor->isFollowedWithin(m_resolution, m_endTime)) {
        m_current = {m_cursor->getTime(), WdbByteValue::DenseValue, 0};
    } else {
        m_current = {m_cursor->getTime(), WdbByteValue::SingleValue, m_cursor->getValue()};
    }
}

// --- The tree. ---

WdbScalarBTree::WdbScalarBTree(long long address, int bit, std::shared_ptr<WdbIndexPages> pages)
    : m_address(address),
      m_bit(bit),
      m_records(std::make_unique<WdbGapBTree>(pages ? std::move(pages)
                                                    : std::make_shared<WdbIndexPages>())) {}

WdbScalarBTree::~WdbScalarBTree() = default;
WdbScalarBTree::WdbScalarBTree(WdbScalarBTree&&) noexcept = default;
WdbScalarBTree& WdbScalarBTree::operator=(WdbScalarBTree&&) noexcept = default;

bool WdbScalarBTree::isEmpty() const {
    return m_records->isEmpty();
}

unsigned long long WdbScalarBTree::getRecordCount() const {
    return m_records->getRecordCount();
}

long long WdbScalarBTree::getLastValueTime() const {
    return m_records->getLastTime();
}

WdbScalarBTree::Iterator* WdbScalarBTree::find(long long time, long long resolution, long long,
                                               long long endTime) const {
    auto cursor = std::make_unique<WdbGapCursor>(*m_records);
    cursor->seek(time);
    return new Iterator(std::move(cursor),
                        resolution > 0 ? static_cast<unsigned long long>(resolution) : 0,
                        endTime == NoEndTime ? std::numeric_limits<long long>::max() : endTime);
}

}  // namespace Korvel

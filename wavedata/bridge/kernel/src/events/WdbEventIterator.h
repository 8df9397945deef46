#pragma once

#include "container/CArray.h"
#include "events/WdbEvent.h"

namespace Korvel {

/// Goes through the events of something, first to last.
class WdbIEventIterator {
public:
    virtual ~WdbIEventIterator() = default;

    /// Moves to the next event; valid until the next call.
    virtual WdbEvent* next() = 0;
    virtual bool hasNext() const = 0;
};

/// Goes through the events that a block held when the iterator was made. The block must outlive it.
class WdbEventIterator : public WdbIEventIterator {
public:
    WdbEventIterator(char* image, long long baseAddress, const CArray& offsets);

    WdbEvent* next() override;
    bool hasNext() const override { return m_index < m_count; }

private:
    long long m_baseAddress;
    char* m_pImage;
    unsigned int m_index = 0;
    unsigned int m_count;
    WdbEvent m_event;
    CArray m_offsets;
};

}  // namespace Korvel

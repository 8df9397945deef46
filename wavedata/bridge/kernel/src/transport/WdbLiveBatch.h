#pragma once

#include <vector>

#include "events/WdbLiveEvent.h"

namespace Korvel {

/// Goes through the records of a batch that came out of the ring. The bytes are not trusted.
class WdbLiveBatch {
public:
    enum class Record {
        End,
        Mark,
        Event,
        Nonsense  ///< a length that fits neither a record nor the batch: its rest cannot be read
    };

    /// @param bytes  Not owned.
    WdbLiveBatch(const char* bytes, unsigned int size) : m_bytes(bytes), m_left(size) {}

    /// Moves to the next record. Nonsense stays.
    Record next();

    /// Of a mark.
    long long getTime() const { return m_time; }

    /// Of an event. Lives until the next call.
    const WdbLiveEvent* getEvent() const;

private:
    bool takeEvent(const char* payload, unsigned int length);

    const char* m_bytes;  // what has not been read
    unsigned int m_left;
    long long m_time = 0;
    // A copy of the event, because memory from the heap is aligned and the bytes of the ring are
    // not.
    std::vector<unsigned char> m_event = std::vector<unsigned char>(sizeof(WdbLiveEvent));
};

}  // namespace Korvel

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

    /// Of a mark, and of an event.
    long long getTime() const { return m_time; }

    /// Bytes that the record takes in the batch.
    unsigned int getRecordSize() const;

    /// A copy of the event, which lives until the next one is made.
    const WdbLiveEvent* getEvent();

private:
    static bool isEvent(const char* payload, unsigned int length);

    const char* m_bytes;  // what has not been read
    unsigned int m_left;
    const char* m_payload = nullptr;  // of the record
    unsigned int m_length = 0;        // of the payload
    long long m_time = 0;
    // A copy of the event, because memory from the heap is aligned and the bytes of the ring are
    // not.
    std::vector<unsigned char> m_event = std::vector<unsigned char>(sizeof(WdbLiveEvent));
};

}  // namespace Korvel

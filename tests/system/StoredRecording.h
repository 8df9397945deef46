#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace Korvel {

struct RecordedEvent {
    long long time;
    long long address;
    std::string value;  // one byte an address

    bool operator==(const RecordedEvent&) const = default;
};

struct StoredSection {
    std::string id;
    long long offset;
    long long size;
};

// What a recording's file holds.
struct StoredRecording {
    std::string application;
    std::vector<StoredSection> sections;
    long long latestTime;
    unsigned long long addressesPerBucket;
    unsigned long long numberOfAddresses;
    std::vector<std::vector<RecordedEvent>> buckets;
    std::vector<std::string> strings;  // the first one has id 1
    // What lies behind the header, by offset, and its size.
    std::map<long long, std::pair<std::string, long long>> extents;

    std::vector<RecordedEvent> allEvents() const;
};

// Reads the bytes of a recording by the layout alone: no code of the library has a part in it, so
// that a mistake in the library does not cancel out. Throws std::runtime_error or std::out_of_range
// for whatever is not as a writer leaves it, also a writer that was killed. Strings must not hold
// a zero byte.
StoredRecording decode(const std::string& bytes);

// The bytes of a recording without its creation time, the only ones that may differ between two
// recordings of the same calls.
std::string withoutCreationTime(std::string bytes);

}  // namespace Korvel

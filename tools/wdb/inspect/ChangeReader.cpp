#include "inspect/ChangeReader.h"

#include "ToolError.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace Korvel {

namespace {

// Of the values of all objects that are read at once, twice.
constexpr std::uint64_t MostBytes = std::uint64_t{1} << 31;

// What a value that is not known consists of.
std::uint8_t unknownByte(ValueRepresentation representation) {
    return representation == ValueRepresentation::VerilogFourState ? 0xFF : 0;
}

// The heap keeps the largest on top: the earliest event, of the lowest bucket among equals.
template <typename Source>
bool isLater(const Source& a, const Source& b) {
    if (a.time != b.time) return a.time > b.time;
    return a.bucket > b.bucket;
}

}  // namespace

ChangeReader::ChangeReader(OpenRecording& recording, const DesignDescription& description,
                           const std::vector<ObjectId>& objects)
    : m_recording(recording), m_description(description) {
    track(description, objects);
    if (recording.events()) openSources(*recording.events());
}

void ChangeReader::track(const DesignDescription& description,
                         const std::vector<ObjectId>& objects) {
    std::uint64_t bytes = 0;
    m_indexOf.assign(description.objectCount(), NotTracked);
    m_tracked.reserve(objects.size());
    for (const ObjectId id : objects) {
        m_indexOf[id] = static_cast<std::uint32_t>(m_tracked.size());
        m_tracked.push_back({description.object(id), bytes, false, false});
        bytes += m_tracked.back().object.size;
        if (bytes > MostBytes) {
            throw ToolError(m_recording.path(),
                            "the values of so many objects do not fit into "
                            "memory; name some of them");
        }
    }
    m_now.resize(bytes);
    for (const Tracked& tracked : m_tracked) {
        std::fill_n(m_now.begin() + static_cast<std::ptrdiff_t>(tracked.value), tracked.object.size,
                    unknownByte(tracked.object.representation));
    }
    m_shown = m_now;
}

// The last bucket may hold any address that no other bucket has.
void ChangeReader::openSources(const StoredEvents& events) {
    const auto perBucket = static_cast<std::int64_t>(events.header.addressesPerBucket);
    for (const UsedBucket& bucket : events.buckets) {
        const bool isLast =
            events.hasOneBucket() || bucket.index + 1 == events.header.numberOfBuckets;
        const std::int64_t begin = events.baseOf(bucket.index);
        if (!isWanted(begin,
                      isLast ? std::numeric_limits<std::int64_t>::max() : begin + perBucket)) {
            continue;
        }
        Source source;
        source.bucket = bucket.index;
        source.blocks =
            std::make_unique<EventBlockCursor>(m_recording.inspection(), events, bucket);
        if (advance(source)) m_sources.push_back(std::move(source));
    }
    std::make_heap(m_sources.begin(), m_sources.end(), isLater<Source>);
}

bool ChangeReader::isWanted(std::int64_t begin, std::int64_t end) {
    m_found.clear();
    m_description.findObjectsAt(begin, end, m_found);
    return std::any_of(m_found.begin(), m_found.end(),
                       [this](ObjectId id) { return m_indexOf[id] != NotTracked; });
}

// To the source's next event, in a further block when need be. False at the end.
bool ChangeReader::advance(Source& source) {
    if (source.blocks->eventCount() > 0) ++source.index;
    while (source.index >= source.blocks->eventCount()) {
        if (!source.blocks->next()) return false;
        source.index = 0;
    }
    source.time = source.blocks->event(source.index).getTime();
    return true;
}

void ChangeReader::read(std::int64_t from, std::int64_t to, const Visitor& visit) {
    while (!m_sources.empty()) {
        const std::int64_t time = m_sources.front().time;
        if (time > to) return;
        while (!m_sources.empty() && m_sources.front().time == time) {
            std::pop_heap(m_sources.begin(), m_sources.end(), isLater<Source>);
            Source& source = m_sources.back();
            bool hasMore = true;
            do {
                apply(source.blocks->event(source.index));
                hasMore = advance(source);
            } while (hasMore && source.time == time);
            if (hasMore) {
                std::push_heap(m_sources.begin(), m_sources.end(), isLater<Source>);
            } else {
                m_sources.pop_back();
            }
        }
        if (!show(time, from, visit)) return;
    }
}

void ChangeReader::apply(const WdbEvent& event) {
    const std::int64_t begin = event.getStartAddress();
    const std::int64_t end = begin + event.getValuelength();
    m_found.clear();
    m_description.findObjectsAt(begin, end, m_found);
    for (const ObjectId id : m_found) {
        const std::uint32_t index = m_indexOf[id];
        if (index == NotTracked) continue;
        Tracked& tracked = m_tracked[index];
        const std::int64_t first = std::max(begin, tracked.object.address);
        const std::int64_t last = std::min(end, tracked.object.address + tracked.object.size);
        std::memcpy(m_now.data() + tracked.value + (first - tracked.object.address),
                    event.getValue() + (first - begin), static_cast<std::size_t>(last - first));
        if (!tracked.isTouched) m_touched.push_back(index);
        tracked.isTouched = true;
    }
}

bool ChangeReader::show(std::int64_t time, std::int64_t from, const Visitor& visit) {
    std::sort(m_touched.begin(), m_touched.end());
    bool isWanted = true;
    for (const std::uint32_t index : m_touched) {
        Tracked& tracked = m_tracked[index];
        tracked.isTouched = false;
        const std::uint8_t* now = m_now.data() + tracked.value;
        std::uint8_t* shown = m_shown.data() + tracked.value;
        if (tracked.isShown && std::memcmp(now, shown, tracked.object.size) == 0) continue;
        tracked.isShown = true;
        std::memcpy(shown, now, tracked.object.size);
        if (isWanted && time >= from) isWanted = visit(time, tracked.object, now);
    }
    m_touched.clear();
    return isWanted;
}

}  // namespace Korvel

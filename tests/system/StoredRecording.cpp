#include "tests/system/StoredRecording.h"

#include <cstdint>
#include <stdexcept>

#include <zlib.h>

#include "tests/support/FileBytes.h"

namespace Korvel {
namespace {

constexpr std::size_t TextSize = 24;
constexpr std::size_t EventBlockSize = 10240;
constexpr std::size_t StringBlockSize = 1024;

void require(bool holds, const char* what) {
    if (!holds) throw std::runtime_error(std::string("not so: ") + what);
}

class Decoder {
public:
    explicit Decoder(const std::string& bytes) : m_bytes(bytes) {}

    StoredRecording decode() {
        require(m_bytes.substr(0, TextSize) == std::string("Pellon WAVE DATABASE 01", TextSize),
                "the version is the one that is written");
        m_recording.application = text(24);
        require(at<std::uint32_t>(60) == 0, "the header's reserved bytes are zero");
        walk("contents", at<std::int64_t>(48), 10, 128, [&](std::size_t node, std::size_t i) {
            require(at<std::uint32_t>(node + 88 + 4 * i) == 48, "an item has 48 bytes");
            const std::size_t item = extent("item", at<std::int64_t>(node + 8 + 8 * i), 48);
            require(at<std::uint64_t>(item + 24) == 1, "every section has version 1");
            m_recording.sections.push_back(
                {text(item), at<std::int64_t>(item + 32), at<std::int64_t>(item + 40)});
        });
        for (const StoredSection& section : m_recording.sections) {
            const std::size_t header = extent(section.id, section.offset, section.size);
            if (section.id == "WDB.Event") decodeEvents(header, section.size);
            if (section.id == "WDB.StringMap") decodeStrings(header, section.size);
        }
        return m_recording;
    }

private:
    template <typename Integer>
    Integer at(std::size_t offset) const {
        return fieldAt<Integer>(m_bytes, offset);
    }

    std::string text(std::size_t offset) const { return m_bytes.substr(offset, TextSize).c_str(); }

    std::size_t extent(const std::string& what, long long offset, long long size) {
        require(
            offset >= 64 && size >= 0 && offset + size <= static_cast<long long>(m_bytes.size()),
            "whatever is named lies in the file, behind the header");
        require(size == 0 || m_recording.extents.insert({offset, {what, size}}).second,
                "no two things lie at one place");
        return static_cast<std::size_t>(offset);
    }

    // A node that names a next one is full. Where a kill cut the writing of a full node short, it
    // names the next one but still counts what it held before; the chain then ends there.
    template <typename Visit>
    void walk(const std::string& what, long long node, std::size_t capacity,
              std::size_t countOffset, Visit visit) {
        while (node != 0) {
            const auto size = static_cast<long long>(countOffset) + 8;
            const std::size_t place = extent(what + " node", node, size);
            const auto count = at<std::uint32_t>(place + countOffset);
            require(count <= capacity, "a node counts no more entries than it has");
            require(at<std::uint32_t>(place + countOffset + 4) == 0, "the padding is zero");
            for (std::size_t i = 0; i < count; ++i)
                visit(place, i);
            const auto next = at<std::int64_t>(place);
            require(next == 0 || next > node, "the next node lies behind");
            node = count < capacity ? 0 : next;
        }
    }

    std::string inflated(const std::string& what, long long offset, unsigned int size,
                         std::size_t imageSize) {
        const std::string stored = m_bytes.substr(extent(what + " block", offset, size), size);
        std::string image(imageSize, '\0');
        uLongf length = imageSize;
        uLong consumed = size;
        const int status = ::uncompress2(reinterpret_cast<Bytef*>(image.data()), &length,
                                         reinterpret_cast<const Bytef*>(stored.data()), &consumed);
        require(status == Z_OK && length == imageSize && consumed == size, "a block unpacks whole");
        return image;
    }

    static void requireZeroFrom(std::size_t used, const std::string& image) {
        require(image.find_first_not_of('\0', used) == std::string::npos, "the tail is zero");
    }

    void decodeEvents(std::size_t header, long long size) {
        const auto type = at<std::int32_t>(header + 8);
        require(size == 72 && (type == 1001 || type == 1002) &&
                    at<std::uint32_t>(header + 64) == EventBlockSize &&
                    at<std::uint32_t>(header + 68) == 100,
                "the event section's header has its fixed values");
        require(m_bytes.substr(header + 40, 24) == std::string(24, '\0'),
                "no address map is named");
        m_recording.latestTime = at<std::int64_t>(header);
        m_recording.addressesPerBucket = at<std::uint64_t>(header + 16);
        m_recording.numberOfAddresses = at<std::uint64_t>(header + 24);
        const auto buckets = at<std::uint32_t>(header + 12);
        const std::size_t table = extent("table", at<std::int64_t>(header + 32), 8ll * buckets);
        m_recording.buckets.resize(buckets);
        for (std::size_t bucket = 0; bucket < buckets; ++bucket) {
            const std::string what = "bucket " + std::to_string(bucket);
            const auto head = at<std::int64_t>(table + 8 * bucket);
            if (type == 1002 && head != 0) decodeTree(what, head, bucket);
            if (type == 1002) continue;
            walk(what, head, 100, 1208, [&](std::size_t node, std::size_t i) {
                decodeBlock(inflated(what, at<std::int64_t>(node + 8 + 8 * i),
                                     at<std::uint32_t>(node + 808 + 4 * i), EventBlockSize),
                            bucket);
            });
        }
    }

    void decodeTree(const std::string& what, long long offset, std::size_t bucket) {
        const std::size_t state = extent(what + " state", offset, 272);
        const auto root = at<std::int64_t>(state);
        if (root != 0) decodeNode(what, root, at<std::int64_t>(state + 8), bucket, true);
    }

    // Returns where the node's time ends. The last node of a level may have room, and where a kill
    // came between the two, its last entry says less than what is below it.
    long long decodeNode(const std::string& what, long long offset, long long start,
                         std::size_t bucket, bool isLast) {
        const std::size_t node = extent(what + " node", offset, 27216);
        const auto count = at<std::uint32_t>(node + 27208),
                   isLeaf = at<std::uint32_t>(node + 27212);
        require(isLeaf <= 1 && count <= 100 && (isLast || count == 100), "a node is full or last");
        long long end = start;
        for (std::size_t i = 0; i < count; ++i) {
            const bool isLastBelow = isLast && i + 1 == count;
            const auto child = at<std::int64_t>(node + 8 * i);
            const long long below = isLeaf ? decodeRecord(what, child, end, bucket)
                                           : decodeNode(what, child, end, bucket, isLastBelow);
            const long long said = start + at<std::int64_t>(node + 800 + 8 * i);
            require(said == below || (isLeaf ? said > below : isLastBelow && said < below),
                    "an entry says when what is below it ends");
            end = isLeaf ? said : below;
        }
        return end;
    }

    long long decodeRecord(const std::string& what, long long offset, long long start,
                           std::size_t bucket) {
        const std::size_t record = extent(what + " record", offset, 24);
        const std::vector<RecordedEvent>& events = m_recording.buckets[bucket];
        const std::size_t first = events.size();
        decodeBlock(
            inflated(what, at<std::int64_t>(record), at<std::uint32_t>(record + 8), EventBlockSize),
            bucket);
        require(events[first].time == start, "a block starts where its entry does");
        return events.back().time;
    }

    void decodeBlock(const std::string& image, std::size_t bucket) {
        const auto base = static_cast<long long>(bucket * m_recording.addressesPerBucket);
        std::vector<RecordedEvent>& events = m_recording.buckets[bucket];
        const std::size_t before = events.size();
        std::size_t used = 20;
        for (auto count = fieldAt<std::uint32_t>(image, 16); count > 0; --count) {
            const auto length = fieldAt<std::uint32_t>(image, used + 12);
            events.push_back({fieldAt<std::int64_t>(image, used),
                              base + fieldAt<std::uint32_t>(image, used + 8),
                              image.substr(used + 16, length)});
            used += 16 + length;
            require(used <= EventBlockSize, "an event lies in its block");
        }
        requireZeroFrom(used, image);
        require(events.size() > before, "a stored block has events");
        require(fieldAt<std::int64_t>(image, 0) == events[before].time &&
                    fieldAt<std::int64_t>(image, 8) == events.back().time - events[before].time,
                "a block's times are those of its events");
    }

    void decodeStrings(std::size_t header, long long size) {
        require(size == 16 && at<std::int32_t>(header) == 101 &&
                    at<std::uint32_t>(header + 4) == StringBlockSize,
                "the string map's header has its fixed values");
        const std::size_t slot = extent("slot", at<std::int64_t>(header + 8), 8);
        walk("strings", at<std::int64_t>(slot), 100, 2408, [&](std::size_t node, std::size_t i) {
            const std::string image =
                inflated("strings", at<std::int64_t>(node + 8 + 8 * i),
                         at<std::uint32_t>(node + 1608 + 4 * i), StringBlockSize);
            const auto firstId = static_cast<long long>(m_recording.strings.size()) + 1;
            const auto count = at<std::uint32_t>(node + 2008 + 4 * i);
            require(at<std::int64_t>(node + 808 + 8 * i) == firstId &&
                        fieldAt<std::int64_t>(image, 0) == firstId &&
                        fieldAt<std::uint32_t>(image, 8) == count,
                    "a block of strings goes on where the one before ended");
            std::size_t used = 12;
            for (unsigned int string = 0; string < count; ++string) {
                m_recording.strings.push_back(image.c_str() + used);
                used += m_recording.strings.back().size() + 1;
            }
            requireZeroFrom(used, image);
        });
    }

    const std::string& m_bytes;
    StoredRecording m_recording = {};
};

}  // namespace

std::vector<RecordedEvent> StoredRecording::allEvents() const {
    std::vector<RecordedEvent> events;
    for (const std::vector<RecordedEvent>& bucket : buckets)
        events.insert(events.end(), bucket.begin(), bucket.end());
    return events;
}

StoredRecording decode(const std::string& bytes) {
    return Decoder(bytes).decode();
}

std::string withoutCreationTime(std::string bytes) {
    return bytes.replace(56, 4, 4, '\0');
}

}  // namespace Korvel

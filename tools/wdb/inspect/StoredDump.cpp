#include "inspect/StoredDump.h"

#include "container/WdbMemoryBlockManager.h"
#include "events/WdbEventBlock.h"
#include "inspect/Json.h"
#include "inspect/TimeText.h"

#include <fmt/format.h>

#include <cstdio>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

namespace Korvel {

namespace {

std::string hexadecimal(const WdbEvent& event, const char* separator) {
    std::string text;
    for (std::uint32_t i = 0; i < event.getValuelength(); ++i) {
        fmt::format_to(std::back_inserter(text), "{}{:02x}", i == 0 ? "" : separator,
                       static_cast<unsigned char>(event.getValue()[i]));
    }
    return text;
}

class StoredDump {
public:
    StoredDump(OpenRecording& recording, const StoredDumpOptions& options)
        : m_recording(recording),
          m_options(options),
          m_left(options.limit),
          m_unit(recording.timeUnit()) {}

    void dump(const StoredEvents& events) {
        for (const UsedBucket& bucket : events.buckets) {
            EventBlockCursor blocks(m_recording.inspection(), events, bucket);
            while (m_left > 0 && blocks.next())
                dumpBlock(events, bucket, blocks);
        }
    }

private:
    bool isWanted(const WdbEvent& event) const {
        return event.getTime() >= m_options.from && event.getTime() <= m_options.to &&
               (!m_options.address || event.isWithinRange(*m_options.address));
    }

    // A block is as interesting as its events.
    void dumpBlock(const StoredEvents& events, const UsedBucket& bucket,
                   const EventBlockCursor& blocks) {
        m_wanted.clear();
        for (std::size_t i = 0; i < blocks.eventCount(); ++i) {
            if (isWanted(blocks.event(i))) m_wanted.push_back(i);
        }
        if (m_wanted.empty()) return;
        if (m_options.isRaw) {
            --m_left;
            dumpRaw(events, bucket, blocks);
            return;
        }
        if (m_options.hasBlocks) printBlock(bucket, blocks);
        for (std::size_t i = 0; m_options.hasEvents && i < m_wanted.size() && m_left > 0; ++i)
            printEvent(blocks.event(m_wanted[i]));
    }

    void printBlock(const UsedBucket& bucket, const EventBlockCursor& blocks) {
        --m_left;
        const std::int64_t first = blocks.event(0).getTime();
        const std::int64_t last = blocks.event(blocks.eventCount() - 1).getTime();
        if (m_options.isJson) {
            const Json json = {{"bucket", bucket.index},
                               {"block", blocks.offset()},
                               {"storedBytes", blocks.storedSize()},
                               {"unpackedBytes", blocks.usedSize()},
                               {"startTime", blocks.startTime()},
                               {"timeLength", blocks.timeLength()},
                               {"events", blocks.eventCount()}};
            fmt::print("{}\n", toText(json));
        } else {
            fmt::print("bucket {}, block at {}: {} bytes stored, {} events from {} to {}\n",
                       bucket.index, blocks.offset(), blocks.storedSize(), blocks.eventCount(),
                       formatTime(first, m_unit), formatTime(last, m_unit));
        }
    }

    void printEvent(const WdbEvent& event) {
        --m_left;
        if (m_options.isJson) {
            const Json json = {{"time", event.getTime()},
                               {"address", event.getStartAddress()},
                               {"values", hexadecimal(event, "")}};
            fmt::print("{}\n", toText(json));
        } else {
            fmt::print("{:>14}  {:>10}  {}\n", formatTime(event.getTime(), m_unit),
                       event.getStartAddress(), hexadecimal(event, " "));
        }
    }

    // The library reads the stored bytes on its own, so that this shows what a viewer sees.
    void dumpRaw(const StoredEvents& events, const UsedBucket& bucket,
                 const EventBlockCursor& blocks) {
        std::vector<char> stored(blocks.storedSize());
        if (!m_recording.inspection().read(blocks.place(), blocks.offset(), stored.data(),
                                           stored.size())) {
            return;
        }
        WdbMemoryBlockManager store;
        const long long handle = store.addBlock(stored.data(), stored.size());
        WdbEventBlock block(events.header.eventBlockSize, events.baseOf(bucket.index));
        block.loadBlock(handle, blocks.storedSize(), store);
        store.freeBlock(handle, stored.size());
        block.dump(std::cout, m_options.hasEvents);
    }

    OpenRecording& m_recording;
    const StoredDumpOptions& m_options;
    std::uint64_t m_left;  // lines that may still be printed
    std::optional<TimeUnit> m_unit;
    std::vector<std::size_t> m_wanted;  // indexes of events in the current block
};

}  // namespace

void dumpStored(OpenRecording& recording, const StoredDumpOptions& options) {
    if (recording.events()) StoredDump(recording, options).dump(*recording.events());
}

}  // namespace Korvel

#pragma once

#include <memory>
#include <string>

#include "container/WdbStringMapDatabase.h"
#include "korvel/IWdbWriter.h"
#include "tests/support/EventFile.h"
#include "tests/system/StoredRecording.h"

namespace Korvel {

// Traces a change of bytes at an address; the base offset of the writer must be 0.
inline void traceBytes(IWdbWriter& writer, long long time, long long address, std::string value) {
    writer.getTraceVhdlFunc()(time, 0, static_cast<unsigned int>(value.size()),
                              reinterpret_cast<unsigned char*>(address),
                              reinterpret_cast<unsigned char*>(value.data()));
}

// What was recorded, as the library itself reads it.
struct RecordingReader {
    explicit RecordingReader(const std::string& path) {
        file.open(path);
        const long long header = file.getSectionFileOffset("WDB.Event", 1);
        int type = 0;
        file.getBlockManager().getBlock(header + 8, reinterpret_cast<char*>(&type), sizeof(type));
        events.reset(WdbEventBlockDatabaseFactory::getInstance().create(type, file));
        events->initialize(header, /*writable=*/false);
    }

    StoredRecording read() {
        StoredRecording recording = {};
        recording.latestTime = events->getLatestTime();
        const WdbEventDatabaseHeader& header = events->getEventDatabaseHeader();
        recording.buckets.resize(header.numberOfBuckets);
        for (const StoredEvent& event :
             EventFile::eventsOf(events->getAllEventBlockDatabaseIterator())) {
            recording.buckets.at(static_cast<std::size_t>(event.base) / header.addressesPerBucket)
                .push_back({event.time, event.address, event.values});
        }
        WdbStringMapDatabase strings(file, 101);
        strings.initialize(file.getSectionFileOffset("WDB.StringMap", 1), /*writable=*/false);
        std::string text;
        while (strings.getString(static_cast<unsigned int>(recording.strings.size() + 1), text))
            recording.strings.push_back(text);
        return recording;
    }

    WdbFileManager file;
    std::unique_ptr<WdbIEventBlockDatabase> events;
};

inline StoredRecording readWithLibrary(const std::string& path) {
    return RecordingReader(path).read();
}

}  // namespace Korvel

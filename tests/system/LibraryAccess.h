#pragma once

#include <memory>
#include <string>

#include "container/WdbFileManager.h"
#include "container/WdbStringMapDatabase.h"
#include "events/WdbEventBlock.h"
#include "events/WdbEventBlockDatabaseFactory.h"
#include "events/WdbIEventBlockDatabase.h"
#include "korvel/IWdbWriter.h"
#include "tests/system/StoredRecording.h"

namespace Korvel {

// Traces a change of bytes at an address; the base offset of the writer must be 0.
inline void traceBytes(IWdbWriter& writer, long long time, long long address, std::string value) {
    writer.getTraceVhdlFunc()(time, 0, static_cast<unsigned int>(value.size()),
                              reinterpret_cast<unsigned char*>(address),
                              reinterpret_cast<unsigned char*>(value.data()));
}

// What was recorded, as the library itself reads it.
inline StoredRecording readWithLibrary(const std::string& path) {
    WdbFileManager file;
    file.open(path);
    const std::unique_ptr<WdbIEventBlockDatabase> events(
        WdbEventBlockDatabaseFactory::getInstance().create(
            WdbEventBlockDatabaseFactory::MultipleBucket, file));
    events->initialize(file.getSectionFileOffset("WDB.Event", 1), /*writable=*/false);
    StoredRecording recording = {};
    recording.latestTime = events->getLatestTime();
    const WdbEventDatabaseHeader& header = events->getEventDatabaseHeader();
    recording.buckets.resize(header.numberOfBuckets);
    WdbEventBlock block(header.eventBlockSize, 0);
    for (const auto& blocks : events->getAllEventBlockDatabaseIterator()) {
        for (; *blocks; ++*blocks) {
            blocks->getEventBlock(block);
            std::vector<StoredEvent>& bucket = recording.buckets.at(
                static_cast<std::size_t>(block.getBaseAddress()) / header.addressesPerBucket);
            for (auto event = block.getIterator(); event; ++event) {
                bucket.push_back({(*event).getTime(),
                                  (*event).getStartAddress(),
                                  {(*event).getValue(), (*event).getValuelength()}});
            }
        }
    }
    WdbStringMapDatabase strings(file, 101);
    strings.initialize(file.getSectionFileOffset("WDB.StringMap", 1), /*writable=*/false);
    std::string text;
    while (strings.getString(static_cast<unsigned int>(recording.strings.size() + 1), text))
        recording.strings.push_back(text);
    return recording;
}

}  // namespace Korvel

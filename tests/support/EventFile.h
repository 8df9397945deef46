#pragma once

#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "container/WdbFileManager.h"
#include "events/WdbEventBlock.h"
#include "events/WdbEventBlockDatabaseFactory.h"
#include "events/WdbIEventBlockDatabase.h"
#include "tests/support/TemporaryDirectory.h"

namespace Korvel {

constexpr int SingleBucket = WdbEventBlockDatabaseFactory::SingleBucket;
constexpr int MultipleBucket = WdbEventBlockDatabaseFactory::MultipleBucket;
constexpr int MultipleBtree = WdbEventBlockDatabaseFactory::MultipleBtree;

// An event as a reader sees it.
struct StoredEvent {
    long long base;  // of its block
    long long time;
    long long address;
    std::string values;  // tests write letters: one that is shifted shows

    bool operator==(const StoredEvent&) const = default;
    friend std::ostream& operator<<(std::ostream& out, const StoredEvent& event) {
        return out << event.base << ": " << event.time << " @" << event.address << " x"
                   << event.values.size() << ' ' << event.values.substr(0, 8);
    }
};

// A container with one event section and the database that serves it.
class EventFile {
public:
    // Where the section's first bytes lie in a new container.
    static constexpr long long Table = 200;

    EventFile(int typeId, unsigned long addresses, unsigned int perBucket = 2048)
        : m_typeId(typeId) {
        manager.create(path);
        const auto buckets = static_cast<unsigned int>((addresses + perBucket - 1) / perBucket);
        m_header = WdbIEventBlockDatabase::createEventSection(
            typeId, typeId == SingleBucket ? 1 : buckets, addresses, perBucket, manager);
        load(/*writable=*/true);
    }

    void write(long long time, long long address, const std::string& values) {
        database->writeEvent(time, address, static_cast<unsigned int>(values.size()),
                             reinterpret_cast<const unsigned char*>(values.data()));
    }
    // Destroys the database and closes the file, as a writer does at its end.
    void close() {
        database.reset();
        manager.close();
    }
    // Opens what was closed, for reading.
    void open() {
        close();
        manager.open(path);
        load(/*writable=*/false);
    }
    void load(bool writable) {
        database.reset();
        database.reset(WdbEventBlockDatabaseFactory::getInstance().create(m_typeId, manager));
        database->initialize(m_header, writable);
    }

    using Iterators = std::vector<WdbIEventBlockDatabase::IteratorPtr>;

    static std::vector<StoredEvent> eventsOf(const Iterators& iterators) {
        std::vector<StoredEvent> events;
        for (const auto& iterator : iterators) {
            for (WdbIEventBlockIterator& it = *iterator; it; ++it) {
                WdbEventBlock block(WdbEventDatabaseHeader::EventBlockSize, -1);
                it.getEventBlock(block);
                for (WdbEventBlock::Iterator event = block.getIterator(); event; ++event) {
                    const WdbEvent& e = *event;
                    events.push_back({block.getBaseAddress(), e.getTime(), e.getStartAddress(),
                                      std::string(e.getValue(), e.getValuelength())});
                }
            }
        }
        return events;
    }
    std::vector<StoredEvent> stored() const {
        return eventsOf(database->getAllEventBlockDatabaseIterator());
    }

    long long header() const { return m_header; }

private:
    TemporaryDirectory m_directory;
    int m_typeId;
    long long m_header;

public:
    const std::string path = m_directory.file("a.wdb");
    WdbFileManager manager;
    std::unique_ptr<WdbIEventBlockDatabase> database;
};

}  // namespace Korvel

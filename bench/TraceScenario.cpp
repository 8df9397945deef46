#include "bench/TraceScenario.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <map>
#include <random>

#include "container/WdbFileManager.h"
#include "events/WdbEventBlockDatabaseFactory.h"
#include "events/WdbIEventBlockDatabase.h"

namespace Korvel {
namespace {

constexpr unsigned int Capacity = WdbEventDatabaseHeader::EventBlockSize;
constexpr long long AddressesPerBucket = WdbEventDatabaseHeader::AddressesPerBucket;
constexpr std::size_t DefaultBytes = 40'000'000;  // of packed events
constexpr int MostChangesATime = 8;

// A simulator has just computed the value that it traces, so the old one is in its cache.
constexpr std::size_t LookAhead = 8;

std::size_t bytesWanted() {
    const char* bytes = std::getenv("KORVEL_BENCH_BYTES");
    return bytes == nullptr ? DefaultBytes : std::strtoull(bytes, nullptr, 10);
}

}  // namespace

TraceScenario::TraceScenario(Kind kind, unsigned int width, long long addresses)
    : m_kind(kind),
      m_width(width),
      m_valueSize(kind == Kind::Vhdl ? width : 8 * ((width + 31) / 32)),
      m_addressSize(std::max<long long>(addresses / m_valueSize, 1) * m_valueSize),
      m_storage(static_cast<std::size_t>(m_addressSize)) {
    makeChanges();
    packImages();
}

unsigned int TraceScenario::eventBytes() const {
    return WdbEvent::HeaderSize + m_valueSize;
}

void TraceScenario::makeChanges() {
    std::mt19937_64 random(1);
    const long long objects = m_addressSize / m_valueSize;
    const auto changesATime =
        static_cast<std::size_t>(std::min<long long>(objects, MostChangesATime));
    m_changes.resize(bytesWanted() / eventBytes());
    m_values.resize(m_changes.size() * m_valueSize);
    long long time = 0;
    for (std::size_t i = 0; i < m_changes.size(); ++i) {
        if (i % changesATime == 0) time += 1 + static_cast<long long>(random() % 10);
        // Neighbouring draws of one time are spread over the space by their place in it.
        const long long part = objects / static_cast<long long>(changesATime);
        const long long object =
            static_cast<long long>(i % changesATime) * part +
            static_cast<long long>(random() % static_cast<unsigned long long>(part));
        m_changes[i] = {time, object * m_valueSize, i * m_valueSize};
        fillValue(&m_values[i * m_valueSize],
                  &m_storage[static_cast<std::size_t>(m_changes[i].address)], random());
    }
}

// Like a design's registers: mostly counters and flags, now and then data without a pattern.
void TraceScenario::fillValue(unsigned char* value, unsigned char* previous,
                              unsigned long long random) const {
    if (m_kind == Kind::Vhdl) {
        for (unsigned int i = 0; i < m_width; ++i)
            value[i] = previous[i] == 2 ? 3 : 2;
    } else if (m_width == 1) {
        std::memset(value, 0, m_valueSize);
        value[0] = previous[0] ^ 1;
    } else {
        for (unsigned int pair = 0; pair < m_valueSize / 8; ++pair) {
            unsigned int word;
            std::memcpy(&word, previous + 8 * pair, sizeof(word));
            word =
                random % 4 == 0 ? static_cast<unsigned int>(random >> 13) * (pair + 1) : word + 4;
            std::memset(value + 8 * pair, 0, 8);
            std::memcpy(value + 8 * pair, &word, sizeof(word));
        }
    }
    std::memcpy(previous, value, m_valueSize);
}

void TraceScenario::packImages() {
    std::map<long long, WdbEventBlock> buckets;
    const auto finish = [&](WdbEventBlock& block) {
        m_images.emplace_back(block.getMemory(), block.getMemory() + Capacity);
        block.clear();
    };
    for (const Change& change : m_changes) {
        const long long bucket = change.address / AddressesPerBucket;
        WdbEventBlock& block =
            buckets.try_emplace(bucket, Capacity, bucket * AddressesPerBucket).first->second;
        if (!block.canAdd(m_valueSize)) finish(block);
        block.addEvent(change.time, change.address, m_valueSize, &m_values[change.value]);
    }
    for (auto& [bucket, block] : buckets)
        finish(block);
    for (long long bucket = 0; bucket * AddressesPerBucket < m_addressSize; ++bucket) {
        m_buckets.emplace_back(Capacity, bucket * AddressesPerBucket);
    }
}

void TraceScenario::trace(IWdbWriter& writer) {
    std::fill(m_storage.begin(), m_storage.end(), 0);
    writer.setBaseDPOffset(reinterpret_cast<long long>(m_storage.data()));
    const IWdbWriter::TraceVhdlFunc traceVhdl = writer.getTraceVhdlFunc();
    const IWdbWriter::TraceVlogFunc traceVlog = writer.getTraceVlogFunc();
    long long now = 0;
    for (std::size_t i = 0; i < m_changes.size(); ++i) {
        const Change& change = m_changes[i];
        if (i + LookAhead < m_changes.size()) {
            __builtin_prefetch(m_storage.data() + m_changes[i + LookAhead].address);
        }
        if (change.time != now) writer.markCurrentTime(now = change.time);
        unsigned char* storage = m_storage.data() + change.address;
        unsigned char* value = m_values.data() + change.value;
        if (m_kind == Kind::Vhdl) {
            traceVhdl(change.time, 0, m_width, storage, value);
        } else {
            traceVlog(change.time, 0, 0, storage, value, 0, m_width);
        }
    }
}

void TraceScenario::copyOnly() {
    for (WdbEventBlock& block : m_buckets)
        block.clear();
    for (const Change& change : m_changes) {
        WdbEventBlock& block =
            m_buckets[static_cast<std::size_t>(change.address / AddressesPerBucket)];
        if (!block.canAdd(m_valueSize)) block.clear();
        block.addEvent(change.time, change.address, m_valueSize, &m_values[change.value]);
    }
}

bool TraceScenario::isRecordedIn(const char* path, int databaseType) const {
    WdbFileManager file;
    file.open(path);
    const std::unique_ptr<WdbIEventBlockDatabase> database(
        WdbEventBlockDatabaseFactory::getInstance().create(databaseType, file));
    database->initialize(file.getSectionFileOffset(WdbIEventBlockDatabase::SectionID,
                                                   WdbIEventBlockDatabase::SectionVersion),
                         /*writable=*/false);
    std::map<std::pair<long long, long long>, const unsigned char*> expected;
    for (const Change& change : m_changes) {
        expected[{change.time, change.address}] = &m_values[change.value];
    }
    std::size_t found = 0;
    WdbEventBlock block(Capacity, 0);
    for (const auto& iterator : database->getAllEventBlockDatabaseIterator()) {
        for (; *iterator; ++*iterator) {
            iterator->getEventBlock(block);
            for (WdbEventBlock::Iterator it = block.getIterator(); it; ++it, ++found) {
                const WdbEvent& event = *it;
                const auto change = expected.find({event.getTime(), event.getStartAddress()});
                if (change == expected.end() || event.getValuelength() != m_valueSize ||
                    std::memcmp(change->second, event.getValue(), m_valueSize) != 0) {
                    return false;
                }
            }
        }
    }
    return found == m_changes.size();
}

}  // namespace Korvel

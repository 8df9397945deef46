// A recording is the same bytes for the same calls, in an order that readers of killed recordings
// rely on. The order is worked out here a second time, byte by byte, from the layout.

#include <algorithm>
#include <map>
#include <optional>
#include <random>

#include <gtest/gtest.h>
#include <zlib.h>

#include "tests/support/FileBytes.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/system/LibraryAccess.h"
#include "writers/WdbStandAloneWriter.h"

namespace Korvel {
namespace {

constexpr std::size_t EventBlockSize = 10240;
constexpr std::size_t LongestEvent = EventBlockSize - 20 - 16;
constexpr std::size_t StringBlockSize = 1024;

std::string text24(const std::string& text) {
    return text + std::string(24 - text.size(), '\0');
}

// A file that only grows at its end, except for fields that are overwritten in place.
class GrowingFile {
public:
    long long append(const std::string& bytes) {
        m_bytes += bytes;
        return static_cast<long long>(m_bytes.size() - bytes.size());
    }
    void put(long long offset, const std::string& bytes) {
        m_bytes.replace(static_cast<std::size_t>(offset), bytes.size(), bytes);
    }
    long long appendDeflated(const std::string& image) {
        uLongf length = ::compressBound(image.size());
        std::string stored(length, '\0');
        ::compress2(reinterpret_cast<Bytef*>(stored.data()), &length,
                    reinterpret_cast<const Bytef*>(image.data()), image.size(), 1);
        return append(stored.substr(0, length));
    }
    long long size() const { return static_cast<long long>(m_bytes.size()); }
    const std::string& bytes() const { return m_bytes; }

private:
    std::string m_bytes;
};

// A list: nodes of so many entries, each entry one field of every width. A node is appended empty,
// or with its first entry when the one before is full, and rewritten in place.
class List {
public:
    List(GrowingFile& file, std::size_t capacity, std::vector<std::size_t> widths, long long slot)
        : m_pFile(&file), m_capacity(capacity), m_widths(std::move(widths)) {
        startNode();
        m_place = file.append(m_node);
        file.put(slot, fieldOf(m_place));
    }

    void add(const std::vector<long long>& entry) {
        if (m_count < m_capacity) return fill(entry);
        std::string full = m_node;
        startNode();
        fill(entry);
        const long long next = m_pFile->append(m_node);
        m_pFile->put(m_place, full.replace(0, 8, fieldOf(next)));
        m_place = next;
    }
    void write() { m_pFile->put(m_place, m_node); }

private:
    void startNode() {
        std::size_t size = 8 + 8;  // the next node, the number of entries and padding
        for (const std::size_t width : m_widths)
            size += width * m_capacity;
        m_node.assign(size, '\0');
        m_count = 0;
    }
    void fill(const std::vector<long long>& entry) {
        std::size_t column = 8;
        for (std::size_t field = 0; field < entry.size(); ++field) {
            const std::size_t width = m_widths[field];
            m_node.replace(column + width * m_count, width, fieldOf(entry[field]).substr(0, width));
            column += width * m_capacity;
        }
        m_node.replace(column, 4, fieldOf(static_cast<unsigned int>(++m_count)));
    }

    GrowingFile* m_pFile;
    std::size_t m_capacity;
    std::vector<std::size_t> m_widths;
    std::string m_node;  // the last one
    std::size_t m_count = 0;
    long long m_place = 0;
};

struct Scenario {
    const char* name;
    long long addresses;
    unsigned int division;
    std::size_t longest;  // value bytes of an event
    unsigned int events;
    unsigned int sameTime;  // events at one time, on average
    unsigned int strings;   // one so many events; 0: none
    bool filter;
};

class PrescribedRecording {
public:
    explicit PrescribedRecording(const Scenario& scenario) : m_scenario(scenario) {
        m_file.append(text24("Pellon WAVE DATABASE 01") + text24("order test") +
                      std::string(16, '\0'));
        m_contents.emplace(m_file, 10, Widths{8, 4}, 48);
        const long long perBucket = scenario.division;
        m_buckets.resize(
            static_cast<std::size_t>((scenario.addresses + perBucket - 1) / perBucket));
        m_table = m_file.append(std::string(8 * m_buckets.size(), '\0'));
        m_header = m_file.append(fieldOf(0ll) + fieldOf(1001) +
                                 fieldOf(static_cast<int>(m_buckets.size())) + fieldOf(perBucket) +
                                 fieldOf(scenario.addresses) + fieldOf(m_table) +
                                 std::string(24, '\0') + fieldOf(10240) + fieldOf(100));
        addSection("WDB.Event", m_header, 72);
        const long long slot = m_file.append(std::string(8, '\0'));
        addSection("WDB.StringMap", m_file.append(fieldOf(101) + fieldOf(1024) + fieldOf(slot)),
                   16);
        m_strings.emplace(m_file, 100, Widths{8, 8, 4, 4}, slot);
    }

    void event(long long time, long long address, std::string value) {
        const long long perBucket = m_scenario.division;
        const auto buckets = static_cast<long long>(m_buckets.size());
        while (true) {
            const long long index = address / perBucket;
            const bool inRange = address <= m_scenario.addresses && 0 <= index && index < buckets;
            const long long room = (index + 1) * perBucket - address;
            const std::size_t length =
                inRange ? std::min(value.size(), static_cast<std::size_t>(room)) : value.size();
            save(inRange ? index : buckets - 1, {time, address, value.substr(0, length)});
            if (length == value.size()) return;
            address += room;
            value.erase(0, length);
        }
    }

    void string(const std::string& text) {
        if (12 + m_texts.size() + text.size() + 1 >= StringBlockSize) storeStrings();
        m_texts += text + '\0';
        ++m_textCount;
    }

    std::string close(long long latestTime) {
        m_file.put(m_header, fieldOf(latestTime));
        for (std::size_t i = 0; i < m_buckets.size(); ++i) {
            if (!m_buckets[i].list) continue;
            storeEvents(m_buckets[i], static_cast<long long>(i));
            m_buckets[i].list->write();
        }
        if (m_textCount > 0) storeStrings();
        m_strings->write();
        m_contents->write();
        return m_file.bytes();
    }

private:
    using Widths = std::vector<std::size_t>;

    struct Bucket {
        std::optional<List> list;
        std::vector<StoredEvent> events;  // of the block that is being filled

        std::size_t used() const {
            std::size_t size = 20;
            for (const StoredEvent& event : events)
                size += 16 + event.value.size();
            return size;
        }
    };

    void addSection(const std::string& id, long long offset, std::size_t size) {
        m_contents->add({m_file.append(text24(id) + fieldOf(1ll) + fieldOf(offset) +
                                       fieldOf(static_cast<long long>(size))),
                         48});
        m_contents->write();
    }

    void save(long long index, const StoredEvent& event) {
        Bucket& bucket = m_buckets[static_cast<std::size_t>(index)];
        if (!bucket.list) bucket.list.emplace(m_file, 100, Widths{8, 4}, m_table + 8 * index);
        const std::size_t length = event.value.size();
        const auto fits = [&] { return bucket.used() + length + 20 < EventBlockSize; };
        if (!fits()) {
            if (m_scenario.filter) keepLastWrites(bucket.events);
            if (!fits()) storeEvents(bucket, index);
        }
        if (length <= LongestEvent) return bucket.events.push_back(event);
        for (std::size_t at = 0; at < length; at += LongestEvent) {
            save(index, {event.time, event.address + static_cast<long long>(at),
                         event.value.substr(at, LongestEvent)});
        }
    }

    static void keepLastWrites(std::vector<StoredEvent>& events) {
        std::map<std::tuple<long long, long long, std::size_t>, std::size_t> last;
        bool repeated = false;
        for (std::size_t i = 0; i < events.size(); ++i) {
            const auto key =
                std::make_tuple(events[i].time, events[i].address, events[i].value.size());
            repeated = !last.insert_or_assign(key, i).second || repeated;
            if (i > 100 && !repeated) return;
        }
        std::vector<StoredEvent> kept;
        for (std::size_t i = 0; i < events.size(); ++i) {
            if (last[{events[i].time, events[i].address, events[i].value.size()}] == i)
                kept.push_back(events[i]);
        }
        events = kept;
    }

    void storeEvents(Bucket& bucket, long long index) {
        if (bucket.events.empty()) return;
        const long long base = index * m_scenario.division;
        const long long start = bucket.events.front().time;
        std::string image = fieldOf(start) + fieldOf(bucket.events.back().time - start) +
                            fieldOf(static_cast<int>(bucket.events.size()));
        for (const StoredEvent& event : bucket.events) {
            image += fieldOf(event.time) + fieldOf(static_cast<int>(event.address - base)) +
                     fieldOf(static_cast<int>(event.value.size())) + event.value;
        }
        image.resize(EventBlockSize);
        const long long offset = m_file.appendDeflated(image);
        bucket.list->add({offset, m_file.size() - offset});
        bucket.events.clear();
    }

    void storeStrings() {
        std::string image = fieldOf(m_firstId) + fieldOf(m_textCount) + m_texts;
        image.resize(StringBlockSize);
        const long long offset = m_file.appendDeflated(image);
        m_strings->add({offset, m_firstId, m_file.size() - offset, m_textCount});
        m_firstId += m_textCount;
        m_textCount = 0;
        m_texts.clear();
    }

    const Scenario& m_scenario;
    GrowingFile m_file;
    std::optional<List> m_contents;
    std::optional<List> m_strings;
    long long m_table = 0;
    long long m_header = 0;
    std::vector<Bucket> m_buckets;
    std::string m_texts;  // of the block that is being filled
    int m_textCount = 0;
    long long m_firstId = 1;
};

std::string randomBytes(std::mt19937& random, std::size_t size) {
    std::string bytes(size, '\0');
    for (char& byte : bytes)
        byte = static_cast<char>(random() % 4);
    return bytes;
}

class OrderOfWrites : public ::testing::TestWithParam<Scenario> {
protected:
    // Records the scenario's calls, the same for the same seed, and returns the bytes that must be.
    std::string record(unsigned int seed, unsigned int checkpointOneIn) {
        const Scenario& scenario = GetParam();
        PrescribedRecording prescribed(scenario);
        WdbStandAloneWriter writer;
        writer.setApplication("order test");
        writer.setAddressSize(scenario.addresses);
        writer.setBucketDivision(scenario.division);
        if (!scenario.filter) writer.setFilterRepeatedValue(false);
        writer.setCheckpointing(checkpointOneIn != 0);
        writer.open(IWdbWriter::DefaultMode, "none/sim", path(), 0);
        std::mt19937 random(seed);
        std::mt19937 checkpoints(seed);
        long long time = 0;
        for (unsigned int i = 0; i < scenario.events; ++i) {
            if (random() % scenario.sameTime == 0) writer.markCurrentTime(++time);
            const long long address = randomAddress(random);
            const std::string value = randomBytes(random, 1 + random() % scenario.longest);
            traceBytes(writer, time, address, value);
            prescribed.event(time, address, value);
            if (scenario.strings != 0 && i % scenario.strings == 0) {
                const std::string text(random() % (i % 10 == 0 ? 1011 : 300), 's');
                EXPECT_GT(writer.addString(text), 0);
                prescribed.string(text);
            }
            if (checkpointOneIn != 0 && checkpoints() % checkpointOneIn == 0) writer.checkpoint();
        }
        writer.close();
        return prescribed.close(time);
    }

    // Low ones come often, so that one bucket needs a second node. Some lie before the first,
    // behind the last and far behind the last one.
    static long long randomAddress(std::mt19937& random) {
        if (random() % 100 == 0) return 1ll << 31;
        const long long span = random() % 4 == 0 ? GetParam().addresses : 40;
        return static_cast<long long>(random()) % (span + 10) - 5;
    }

    std::string path() const { return m_directory.file("recording.wdb"); }

    TemporaryDirectory m_directory;
};

TEST_P(OrderOfWrites, isThePrescribedOneWithAndWithoutCheckpoints) {
    for (const unsigned int checkpointOneIn : {0u, 1u, 50u}) {
        const unsigned int seed = std::random_device()();
        SCOPED_TRACE(seed);
        const std::string expected = record(seed, checkpointOneIn);
        const std::string bytes = withoutCreationTime(readFile(path()));
        ASSERT_EQ(bytes.size(), expected.size());
        const auto differing = std::mismatch(bytes.begin(), bytes.end(), expected.begin());
        ASSERT_EQ(differing.first - bytes.begin(), bytes.end() - bytes.begin());
        EXPECT_TRUE(readWithLibrary(path()).allEvents() == decode(bytes).allEvents());
    }
}

INSTANTIATE_TEST_SUITE_P(
    System, OrderOfWrites,
    ::testing::Values(Scenario{"empty", 0, 2048, 1, 0, 1, 0, true},
                      Scenario{"oneBucket", 100, 2048, 8, 3000, 5, 0, true},
                      Scenario{"stringsAmongEvents", 9000, 2048, 64, 500, 2, 3, true},
                      Scenario{"repeatsKept", 50, 2048, 2, 5000, 40, 0, false},
                      Scenario{"repeatsDropped", 50, 2048, 2, 30000, 400, 0, true},
                      Scenario{"secondNodes", 6144, 2048, 1500, 2500, 2, 1, true},
                      Scenario{"oddDivision", 5000, 1000, 3000, 400, 1, 10, true},
                      Scenario{"longerThanABlock", 90000, 40000, 35000, 60, 1, 0, true}),
    [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace Korvel

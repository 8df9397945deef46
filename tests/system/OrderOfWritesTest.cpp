// A recording is the same bytes for the same calls, in an order that readers of killed recordings
// rely on. The order is worked out here a second time, from how blocks and nodes fill up.

#include <algorithm>
#include <random>

#include <gtest/gtest.h>

#include "tests/support/FileBytes.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/system/LibraryAccess.h"
#include "writers/WdbStandAloneWriter.h"

namespace Korvel {
namespace {

struct Scenario {
    long long addresses;
    long long division;
    std::size_t longest;  // value bytes of an event
    unsigned int events;
    int databaseType = MultipleBucket;
};

// What lies behind the header, in this order.
class PrescribedOrder {
public:
    PrescribedOrder(std::size_t buckets, bool hasTrees) {
        names = {"contents node", "Pellon DBG", "item", "Pellon RTTI", "item"};
        if (buckets > 0) names.push_back("table");
        names.insert(names.end(), {"WDB.Event", "item", "slot", "WDB.StringMap", "item"});
        names.push_back("strings node");
        for (std::size_t i = 0; i < buckets; ++i)
            m_buckets.push_back({"bucket " + std::to_string(i), 20, hasTrees});
    }

    // A bucket has its first node from its first event on.
    void event(std::size_t bucket, std::size_t length) {
        Blocks& blocks = m_buckets[bucket];
        if (blocks.used == 0 && blocks.stored == 0) {
            if (blocks.hasTree) names.push_back(blocks.name + " state");
            names.push_back(blocks.name + " node");
        }
        add(blocks, 16 + length, 10240 - 4);
    }
    void string(std::size_t length) { add(m_strings, length + 1, 1024); }
    void close() {
        for (Blocks& bucket : m_buckets) {
            store(bucket);
            addRecord(bucket);
        }
        store(m_strings);
    }

    std::vector<std::string> names;

private:
    struct Blocks {
        std::string name;
        std::size_t header;
        bool hasTree = false;
        std::size_t used = 0;  // in the block that is being filled
        std::size_t stored = 0;
    };

    void add(Blocks& blocks, std::size_t size, std::size_t capacity) {
        if (blocks.header + blocks.used + size >= capacity) store(blocks);
        blocks.used += size;
    }
    // The node that a block no longer fits in is full; the next one lies behind that block.
    void store(Blocks& blocks) {
        if (blocks.used == 0) return;
        names.push_back(blocks.name + " block");
        addRecord(blocks);
        if (!blocks.hasTree && blocks.stored > 0 && blocks.stored % 100 == 0)
            names.push_back(blocks.name + " node");
        ++blocks.stored;
        blocks.used = 0;
    }

    // A block's record comes with the next block. Where its leaf is full, new nodes follow upwards,
    // and a new root where the old one is full.
    void addRecord(const Blocks& blocks) {
        if (!blocks.hasTree || blocks.stored == 0) return;
        names.push_back(blocks.name + " record");
        const std::size_t before = blocks.stored - 1;
        for (std::size_t span = 100; before > 0 && before % span == 0; span *= 100)
            names.insert(names.end(), before == span ? 2 : 1, blocks.name + " node");
    }

    std::vector<Blocks> m_buckets;
    Blocks m_strings = {"strings", 12};
};

class OrderOfWrites : public ::testing::Test {
protected:
    // Records the scenario's calls, the same for the same seed, and compares the file with them.
    std::string record(const Scenario& scenario, unsigned int seed, unsigned int checkpointOneIn) {
        WdbStandAloneWriter writer;
        writer.setApplication("order test");
        writer.setAddressSize(scenario.addresses);
        writer.setBucketDivision(static_cast<unsigned int>(scenario.division));
        writer.setCheckpointing(checkpointOneIn != 0);
        writer.setDatabaseType(scenario.databaseType);
        const std::string path = m_directory.file("recording.wdb");
        writer.open(IWdbWriter::DefaultMode, m_directory.file("torq.dir/snap/sim"), path, 0);
        StoredRecording expected = {};
        expected.buckets.resize(static_cast<std::size_t>(
            (scenario.addresses + scenario.division - 1) / scenario.division));
        const bool hasTrees = scenario.databaseType == MultipleBtree;
        PrescribedOrder order(expected.buckets.size(), hasTrees);
        std::mt19937 random(seed);
        for (long long time = 0; time < scenario.events; ++time) {
            const std::size_t bucket = random() % expected.buckets.size();
            const std::string value(1 + random() % scenario.longest, static_cast<char>(time));
            const long long base = static_cast<long long>(bucket) * scenario.division;
            const long long room = std::min(scenario.division, scenario.addresses - base) -
                                   static_cast<long long>(value.size());
            const long long address = base + static_cast<long long>(random()) % (room + 1);
            traceBytes(writer, time, address, value);
            expected.buckets[bucket].push_back({time, address, value});
            order.event(bucket, value.size());
            expected.strings.emplace_back(random() % (time % 10 == 0 ? 1011 : 300), 's');
            EXPECT_EQ(writer.addString(expected.strings.back()), time + 1);
            order.string(expected.strings.back().size());
            writer.markCurrentTime(time);
            if (checkpointOneIn != 0 && time % checkpointOneIn == 0) writer.checkpoint();
        }
        writer.close();
        order.close();

        const std::string bytes = readFile(path);
        const StoredRecording recording = decode(bytes);
        EXPECT_TRUE(recording.buckets == expected.buckets);
        EXPECT_EQ(recording.strings, expected.strings);
        EXPECT_EQ(recording.application, "order test");
        EXPECT_EQ(recording.latestTime, std::max(0ll, scenario.events - 1ll));
        std::vector<std::string> names;
        long long end = 64;
        for (const auto& [offset, extent] : recording.extents) {
            EXPECT_EQ(offset, end) << "before " << extent.first;
            names.push_back(extent.first);
            end = offset + extent.second;
        }
        EXPECT_EQ(static_cast<long long>(bytes.size()), end);
        if (hasTrees && checkpointOneIn != 0) {  // records do not wait for the next block then
            std::sort(names.begin(), names.end());
            std::sort(order.names.begin(), order.names.end());
        }
        EXPECT_EQ(names, order.names);
        return withoutCreationTime(bytes);
    }

    TemporaryDirectory m_directory;
};

TEST_F(OrderOfWrites, isThePrescribedOneWithAndWithoutCheckpoints) {
    std::filesystem::create_directories(m_directory.file("torq.dir/snap"));
    writeFile(m_directory.file("torq.dir/snap/torq.dbg"), "description");
    writeFile(m_directory.file("torq.dir/snap/torq.rtti"), "types");
    const Scenario empty = {0, 2048, 1, 0};
    const Scenario oddDivision = {8900, 1000, 800, 1500};
    const Scenario secondNodes = {4096, 2048, 1500, 3500};
    const Scenario millionSignals = {9'600'000, 2048, 8, 2000};  // in many buckets
    Scenario trees = secondNodes, manyTrees = {500'000, 2048, 8, 2000};
    trees.databaseType = manyTrees.databaseType = MultipleBtree;
    for (const Scenario& scenario :
         {empty, oddDivision, secondNodes, millionSignals, trees, manyTrees}) {
        const unsigned int seed = std::random_device()();
        SCOPED_TRACE(seed);
        const std::string bytes = record(scenario, seed, 0);
        const bool mayDiffer = scenario.databaseType == MultipleBtree;
        EXPECT_TRUE(record(scenario, seed, 1) == bytes || mayDiffer);
        EXPECT_TRUE(record(scenario, seed, 50) == bytes || mayDiffer);
    }
}

}  // namespace
}  // namespace Korvel

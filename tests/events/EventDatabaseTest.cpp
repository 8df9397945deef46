#include <algorithm>
#include <set>
#include <stdexcept>
#include <vector>

#include <gtest/gtest.h>

#include "events/WdbMultipleBucketBtreeDatabase.h"
#include "tests/support/EventFile.h"
#include "tests/support/FileBytes.h"
#include "tests/support/OpenFailure.h"

namespace Korvel {
namespace {

std::string run(char letter, std::size_t length) {
    return std::string(length, letter);
}

class EventDatabase : public ::testing::TestWithParam<int> {};
INSTANTIATE_TEST_SUITE_P(Types, EventDatabase,
                         ::testing::Values(SingleBucket, MultipleBucket, MultipleBtree),
                         [](const auto& type) { return "type" + std::to_string(type.param); });

// A cut that is one off files a value under its neighbour's address, or in a bucket where no one
// looks for it. Addresses count upwards from a bucket's base, so one below it reads far above.
TEST(MultipleBuckets, cutEventsAtTheirEnds) {
    constexpr long long Wrap = 1ll << 32;
    const struct {
        const char* name;
        unsigned long addresses;
        long long address;
        std::string values;
        std::vector<StoredEvent> stored;
    } rows[] = {
        {"endsOnTheLastAddress", 5000, 2046, "ab", {{0, 7, 2046, "ab"}}},
        {"crossesOneEnd", 5000, 2046, "abcd", {{0, 7, 2046, "ab"}, {2048, 7, 2048, "cd"}}},
        {"crossesTwoEnds",
         5000,
         2047,
         "a" + run('b', 2048) + "c",
         {{0, 7, 2047, "a"}, {2048, 7, 2048, run('b', 2048)}, {4096, 7, 4096, "c"}}},
        {"rightBehindTheLast", 5000, 5000, "ab", {{4096, 7, 5000, "ab"}}},
        {"isCutRightBehindTheLast",
         6000,
         6000,
         run('a', 144) + "b",
         {{4096, 7, 6000, run('a', 144)}, {4096, 7, 6144, "b"}}},
        {"farBehindTheLast", 5000, 6143, "abc", {{4096, 7, 6143, "abc"}}},
        {"rightBehindTheLastBucket", 4096, 4096, "ab", {{2048, 7, 4096, "ab"}}},
        {"runsBehindIt", 4096, 4095, "abc", {{2048, 7, 4095, "a"}, {2048, 7, 4096, "bc"}}},
        {"negative", 5000, -1, "ab", {{0, 7, Wrap - 1, "ab"}}},
        {"farNegative", 5000, -2048, "ab", {{4096, 7, Wrap - 2048, "ab"}}},
        {"empty", 5000, 7, "", {}},
    };
    for (const auto& row : rows) {
        EventFile file(MultipleBucket, row.addresses);
        file.write(7, row.address, row.values);
        EXPECT_EQ(file.stored(), row.stored) << row.name;
        // One without values makes its bucket's list all the same, and no other does.
        std::set<long long> bases;
        for (const StoredEvent& event : row.stored)
            bases.insert(event.base);
        EXPECT_EQ(file.database->getAllEventBlockDatabaseIterator().size(),
                  std::max<std::size_t>(bases.size(), 1))
            << row.name;
    }
}

TEST(MultipleBuckets, refuseEventsWhereThereIsNone) {
    for (const int type : {MultipleBucket, MultipleBtree}) {
        EventFile file(type, 0);
        EXPECT_THROW(file.write(1, 0, "a"), std::out_of_range);
        EXPECT_TRUE(file.stored().empty());
        EXPECT_TRUE(file.database->getEventBlockDatabaseIterator({0}).empty());
    }
}

// Unlike lists, trees have all negative addresses in the last bucket, and none in one not there.
TEST(BucketTrees, refuseEventsBehindTheLastBucket) {
    EventFile file(MultipleBtree, 4096);
    file.write(7, 2047, "ab");
    file.write(8, -1, "ab");
    EXPECT_THROW(file.write(9, 4096, "a"), std::out_of_range);
    EXPECT_THROW(file.write(9, 4095, "abc"), std::out_of_range);
    file.open();
    const std::vector<StoredEvent> expected = {{0, 7, 2047, "a"},
                                               {2048, 7, 2048, "b"},
                                               {2048, 8, (1ll << 32) - 1, "ab"},
                                               {2048, 9, 4095, "a"}};
    EXPECT_EQ(file.stored(), expected);
}

// Only saved blocks are shown, whatever is flushed. Closing saves all, also what no key speaks of.
TEST(BucketTrees, showSavedBlocksAndKeepEveryEvent) {
    EventFile file(MultipleBtree, 3 * 4096, /*perBucket=*/4096);
    file.database->setFilterRepeatedValue(false);
    for (int i = 0; i < 100; ++i)
        file.write(5, 1, run('a', 1000));
    file.write(6, 3000, "b");
    file.write(7, 5000, "c");
    file.database->flush();
    EXPECT_TRUE(file.stored().empty()) << "superseded writes are dropped from full blocks";
    WdbEventBlock block(10240, 0);
    const auto eventsIn = [&](long long address) {
        const auto& database = dynamic_cast<WdbMultipleBucketBtreeDatabase&>(*file.database);
        block.addEvent(1, 1, 1, reinterpret_cast<const unsigned char*>("x"));
        EXPECT_EQ(database.findEventBlock(address, 9, block), 0) << "whatever it finds";
        return block.size();
    };
    EXPECT_EQ(eventsIn(9000), 1u) << "left as it is where there is no tree";
    EXPECT_EQ(eventsIn(1), 0u);
    EXPECT_NE(openFailureOf([&] { file.load(/*writable=*/true); }), "") << "no tree is appended to";
    file.open();
    std::vector<StoredEvent> expected(10, {0, 5, 1, run('a', 1000)});
    expected.insert(expected.end(), {{0, 6, 3000, "b"}, {2048, 7, 5000, "c"}});
    EXPECT_EQ(file.stored(), expected);
    EXPECT_EQ(eventsIn(1), 11u) << "the block that holds both addresses";
    WdbIEventSource* const source = file.database->getIEventDataSource();
    EXPECT_TRUE(source->find(1, 5, 5, 5)->isEof() && source->findEventBlock(9000, 5)->isEof());
    EXPECT_EQ((**source->findEventBlock(9, 5)).length, 992u);
    const std::string bytes = readFile(file.path);
    const auto state = fieldAt<std::size_t>(bytes, EventFile::Table + 8);
    EXPECT_EQ(fieldAt<long long>(bytes, state + 8), 7) << "times count from the first event's";
}

// A block takes what leaves four bytes free; what an empty one cannot take goes in alone as long
// as it fits at all, and is cut into consecutive events beyond that.
TEST_P(EventDatabase, cutsEventsThatNoBlockCanTake) {
    const struct {
        std::size_t length;
        std::vector<std::size_t> pieces;
    } rows[] = {
        {10199, {10199}},    {10200, {10200}},        {10204, {10204}},
        {10205, {10204, 1}}, {20408, {10204, 10204}}, {30000, {10204, 10204, 9592}},
    };
    for (const auto& row : rows) {
        EventFile file(GetParam(), 40000, 65536);
        std::string values(row.length, '\0');
        for (std::size_t i = 0; i < values.size(); ++i)
            values[i] = static_cast<char>('a' + i % 23);
        file.write(1, 3, "before");
        file.write(2, 5, values);
        file.write(3, 9, "after");
        std::vector<StoredEvent> expected = {{0, 1, 3, "before"}};
        std::size_t offset = 0;
        for (const std::size_t piece : row.pieces) {
            expected.push_back(
                {0, 2, 5 + static_cast<long long>(offset), values.substr(offset, piece)});
            offset += piece;
        }
        expected.push_back({0, 3, 9, "after"});
        if (GetParam() == MultipleBtree) file.open();
        EXPECT_EQ(file.stored(), expected) << row.length;
    }
}

TEST_P(EventDatabase, knowsItsLatestTime) {
    const bool risesByItself = GetParam() == SingleBucket;
    EventFile file(GetParam(), 5000);
    file.write(20, 1, "a");
    file.write(5, 1, "a");
    EXPECT_EQ(file.database->getLatestTime(), risesByItself ? 20 : 0);
    file.database->setLatestTime(10);
    EXPECT_EQ(file.database->getLatestTime(), 10);
    file.write(15, 1, "a");
    EXPECT_EQ(file.database->getLatestTime(), risesByItself ? 15 : 10);
    file.write(500, 4999, "a");
    file.database->setLatestTime(400);
    file.close();
    const auto header = static_cast<std::size_t>(file.header());
    EXPECT_EQ(fieldAt<long long>(readFile(file.path), header), 400);
    const struct { long long stored, expected; } rows[] = {{0, 500}, {400, 500}, {501, 501}};
    for (const auto& row : rows) {
        damage(file.path, header, row.stored);
        file.open();
        EXPECT_EQ(file.database->getLatestTime(), row.expected) << "the blocks reach 500";
    }
}

// Whole recordings, which are compared elsewhere, hold the other type.
TEST(SingleList, liesBehindItsHeaderFromTheBeginning) {
    EventFile file(SingleBucket, 4096);
    const long long header = EventFile::Table + 8;
    const long long node = header + 72 + 48;
    file.database->setLatestTime(3);
    file.write(1, 3000, "a");
    file.write(3, 0, "");
    file.close();
    EXPECT_EQ(readFile(file.path).substr(EventFile::Table, 8 + 72 + 48 + 16),
              fieldOf(node) + fieldOf(3ll) + fieldOf(SingleBucket) + fieldOf(1) + fieldOf(2048ll) +
                  fieldOf(4096ll) + fieldOf(200ll) + std::string(24, '\0') + fieldOf(10240) +
                  fieldOf(100) + "WDB.Event" + std::string(15, '\0') + fieldOf(1ll) +
                  fieldOf(header) + fieldOf(72ll) + fieldOf(0ll) + fieldOf(node + 1216));
}

TEST_P(EventDatabase, handsOutIteratorsOfWhatIsThere) {
    EventFile file(GetParam(), 10000);
    const bool single = GetParam() == SingleBucket;
    file.write(1, 0, "a");
    file.write(2, 9000, "b");
    file.write(3, 2, "c");
    file.open();
    const auto iteratorsOf = [&](const std::vector<long long>& addresses) {
        return file.database->getEventBlockDatabaseIterator(addresses).size();
    };
    EXPECT_EQ(iteratorsOf({0, 1, 2047}), 1u);
    EXPECT_EQ(iteratorsOf({9000, 0, 9001}), single ? 1u : 2u);
    EXPECT_EQ(iteratorsOf({3000}), single ? 1u : 0u) << "nothing was written there";
    EXPECT_EQ(iteratorsOf({}), single ? 1u : 0u);
}

TEST_P(EventDatabase, isReadWithoutANodeAndWithoutWriting) {
    EventFile file(GetParam(), 9);
    for (const int type : {0, 999, 1003, -1})
        EXPECT_EQ(WdbEventBlockDatabaseFactory::getInstance().create(type, file.manager), nullptr);
    const auto make = [&](unsigned int buckets) {
        return WdbIEventBlockDatabase::createEventSection(GetParam(), buckets, 9, 2048,
                                                          file.manager);
    };
    if (GetParam() == SingleBucket) {
        EXPECT_NE(openFailureOf([&] { make(0); }), "") << "a slot for its list is wanted";
    }
    const long long header = make(1);
    file.open();
    const std::string before = readFile(file.path);
    file.database->initialize(header, false);
    file.database->setAddressMapFileOffsetAndSize(1, 1);
    EXPECT_TRUE(file.stored().empty());
    EXPECT_EQ(readFile(file.path), before);
}

}  // namespace
}  // namespace Korvel

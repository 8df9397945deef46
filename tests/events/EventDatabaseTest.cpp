#include <algorithm>
#include <random>
#include <set>
#include <stdexcept>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "korvel/WdbScalarBTree.h"
#include "support/WdbICheckpoint.h"
#include "tests/support/EventFile.h"
#include "tests/support/FileBytes.h"
#include "tests/support/OpenFailure.h"

namespace Korvel {
namespace {

std::string run(char letter, std::size_t length) {
    return std::string(length, letter);
}

class EventDatabase : public ::testing::TestWithParam<int> {};
INSTANTIATE_TEST_SUITE_P(Types, EventDatabase, ::testing::Values(SingleBucket, MultipleBucket),
                         [](const auto& type) { return "type" + std::to_string(type.param); });

// Changes of each address in the order they were written.
using Changes = std::vector<std::vector<std::pair<long long, char>>>;

Changes changesOf(const std::vector<StoredEvent>& events, std::size_t addresses) {
    Changes changes(addresses);
    for (const StoredEvent& event : events) {
        for (std::size_t i = 0; i < event.values.size(); ++i)
            changes.at(static_cast<std::size_t>(event.address) + i)
                .emplace_back(event.time, event.values[i]);
    }
    return changes;
}

// More than a hundred blocks a bucket, read while they are written and after: a list that confuses
// its first node with its last loses blocks or finds old ones again.
TEST_P(EventDatabase, givesBackWhatAModelHolds) {
    constexpr long long Addresses = 5000;
    EventFile file(GetParam(), Addresses);
    Changes model(Addresses + 10);
    std::mt19937 random(5);
    long long time = 0;
    const auto writeSome = [&](int number) {
        for (int i = 0; i < number; ++i) {
            time += random() % 3;
            const auto address = static_cast<long long>(random() % Addresses);
            const auto room = static_cast<unsigned int>(Addresses - address);
            const std::string values(1 + random() % std::min(i % 8 == 0 ? 3000u : 900u, room),
                                     static_cast<char>('a' + random() % 26));
            file.write(time, address, values);
            for (std::size_t p = 0; p < values.size(); ++p)
                model[static_cast<std::size_t>(address) + p].emplace_back(time, values[p]);
        }
    };
    for (const int number : {3, 1500, 4000, 700}) {
        writeSome(number);
        EXPECT_TRUE(changesOf(file.stored(), model.size()) == model) << number;
        if (number == 1500) file.load(/*writable=*/true);
    }
    file.open();
    EXPECT_TRUE(changesOf(file.stored(), model.size()) == model);
    std::size_t blocks = 0;
    for (const auto& it : file.database->getAllEventBlockDatabaseIterator())
        for (; *it; ++*it)
            ++blocks;
    EXPECT_GT(blocks, GetParam() == SingleBucket ? 200u : 300u);

    // Some addresses: their changes are all there, whatever else is.
    const std::vector<long long> wanted = {4999, 17, 18};
    const auto some = EventFile::eventsOf(file.database->getEventBlockDatabaseIterator(wanted));
    const Changes found = changesOf(some, model.size());
    for (const long long address : wanted)
        EXPECT_TRUE(found[static_cast<std::size_t>(address)] ==
                    model[static_cast<std::size_t>(address)]);
    if (GetParam() == MultipleBucket) {
        EXPECT_TRUE(found[3000].empty()) << "of a bucket that was not asked for";
    }
}

// A search jumps between nodes. One that a damaged entry cut short keeps its hundred places.
TEST_P(EventDatabase, movesToAnyBlock) {
    EventFile file(GetParam(), 2048);
    for (int i = 0; i < 1000; ++i)
        file.write(i, 0, run('a', 2000));
    std::vector<long long> handles;
    const auto all = file.database->getAllEventBlockDatabaseIterator();
    for (WdbIEventBlockIterator& it = *all[0]; it; ++it)
        handles.push_back(it.getStoredBlock().handle);
    ASSERT_EQ(handles.size(), 200u) << "two full nodes";
    file.close();
    const auto node = fieldAt<long long>(readFile(file.path), EventFile::Table);
    damage(file.path, static_cast<std::size_t>(node + 8 + 8 * 60), 0ll);
    file.open();
    const auto kept = file.database->getAllEventBlockDatabaseIterator();
    WdbIEventBlockIterator& it = *kept[0];
    EXPECT_EQ(it.getBlockCount(), 200u);
    for (const std::size_t i : {199u, 0u, 200u, 60u, 100u, 1000u, 59u, 99u, 199u, 300u}) {
        it.moveTo(i);
        EXPECT_EQ(it.isEof(), i >= 200) << i;
        EXPECT_EQ(it.getStoredBlock().handle, i >= 200 || (i >= 60 && i < 100) ? 0 : handles[i])
            << i;
        EXPECT_EQ((++it).getStoredBlock().handle,
                  i >= 199 ? 0 : handles[i >= 59 && i < 100 ? 100 : i + 1])
            << i;
    }
}

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
    EventFile file(MultipleBucket, 0);
    EXPECT_THROW(file.write(1, 0, "a"), std::out_of_range);
    EXPECT_TRUE(file.stored().empty());
    EXPECT_TRUE(file.database->getEventBlockDatabaseIterator({0}).empty());
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
        EXPECT_EQ(file.stored(), expected) << row.length;
        file.open();
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

TEST_P(EventDatabase, keepsTheAddressMapsPlaceAndTheTimeBeside) {
    EventFile file(GetParam(), 5000);
    file.database->setLatestTime(77);
    dynamic_cast<WdbICheckpoint&>(*file.database).checkpoint();
    file.database->setAddressMapFileOffsetAndSize(1234, 56);
    file.manager.writeHeader();  // flushes as well
    EXPECT_EQ(fieldAt<long long>(readFile(file.path), static_cast<std::size_t>(file.header())), 77);
    file.open();
    const WdbEventDatabaseHeader& header = file.database->getEventDatabaseHeader();
    EXPECT_EQ(header.addressMapOffset + header.addressMapSize, 1234 + 56);
    EXPECT_EQ(header.latestTime, 77);
    file.database->setAddressMapFileOffsetAndSize(1, 1);  // a reader writes nothing
    EXPECT_EQ(file.database->getIEventDataSource(), nullptr);
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

    std::vector<WdbScalarBTree> trees;
    for (const long long address : {9001, 1, 3000, 0, 9000})
        trees.emplace_back(address);
    std::vector<WdbScalarBTree*> all;
    for (WdbScalarBTree& tree : trees)
        all.push_back(&tree);
    EventFile::Iterators iterators = file.database->getAllEventBlockDatabaseIterator();
    const std::size_t there = iterators.size();
    std::vector<std::vector<WdbScalarBTree*>> groups(there);
    file.database->getEventBlockDatabaseIterator(all, iterators, groups);
    ASSERT_EQ(iterators.size(), groups.size()) << "what was there stays, and both grow alike";
    ASSERT_EQ(groups.size() - there, single ? 1u : 2u);
    for (std::size_t i = there; i < groups.size(); ++i) {
        const bool low = EventFile::eventsOf({iterators[i]})[0].address < 100;
        const std::vector<WdbScalarBTree*> group = {all[low ? 1 : 0], all[low ? 3 : 4]};
        EXPECT_EQ(groups[i], single ? all : group);
        WdbEventBlock block(10240, 0);
        iterators[i]->getEventBlock(block);
        EXPECT_TRUE(iterators[i]->isEof() && block.isEmpty()) << "there is no block at the end";
    }
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
    EXPECT_TRUE(file.stored().empty());
    EXPECT_EQ(readFile(file.path), before);
}

}  // namespace
}  // namespace Korvel

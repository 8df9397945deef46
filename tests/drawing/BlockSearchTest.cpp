#include <limits>
#include <random>
#include <set>
#include <vector>

#include <gtest/gtest.h>

#include "drawing/WdbBlockSearch.h"
#include "tests/drawing/ValueModel.h"
#include "tests/support/FileBytes.h"

namespace Korvel {
namespace {

constexpr long long Addresses = 400;

using Scalars = std::vector<WdbScalar>;

std::vector<int> valuesAt(const ValueModel& model, long long time, const Scalars& scalars) {
    std::vector<int> values;
    for (const WdbScalar& scalar : scalars)
        values.push_back(model.valueAt(time, scalar));
    return values;
}

long long nextChange(const ValueModel& model, long long time, const Scalars& scalars) {
    std::set<long long> times;
    for (const WdbScalar& scalar : scalars)
        times.merge(model.timesOf(scalar, time));
    const std::vector<int> before = valuesAt(model, time, scalars);
    for (const long long next : times)
        if (valuesAt(model, next, scalars) != before) return next;
    return -1;
}

class BlockSearch : public ::testing::TestWithParam<int> {
protected:
    // Thousands of blocks of six events or so, and as many at one time; a few addresses in a row
    // are hardly ever written, some are not at all. A value is often written again.
    BlockSearch() {
        file.manager.getBlockManager().putBlock(file.header() + 64, fieldOf(160).data(), 4);
        file.load(/*writable=*/true);
        for (int i = 0; i < 7000; ++i) {
            if (random() % 8 == 0) time += 1 + random() % 5;
            const bool isRare = random() % 2000 == 0;
            std::string values(isRare ? 1 : 1 + random() % 12, '\0');
            for (char& value : values)
                value = "\x00\x01\x81\xFF"[random() % 4];
            const long long address = first + (isRare ? 290 + random() % 60 : random() % 270);
            written.push_back({0, time, address, values});
            file.write(time, address, values);
            if (isTree) continue;  // shows saved blocks only, and is not written to again
            if (i % 3000 == 0) expectAllIsStored();
            if (i % 3000 == 1) file.load(/*writable=*/true);
        }
        if (isTree) file.open();
    }

    // A list that confuses its first node with its last loses blocks or finds old ones again.
    // Trees drop superseded writes.
    void expectAllIsStored() {
        const ValueModel stored(file.stored()), all(written);
        EXPECT_TRUE(isTree ? stored.hasSameValues(all) : stored == all);
    }

    // As many answers of a search as asked for, at random times about random scalars.
    void expectAnswersOf(const ValueModel& model, int number) {
        WdbBlockSearch search(*file.database);
        for (int i = 0; i < number; ++i) {
            Scalars scalars(random() % 4);
            for (WdbScalar& scalar : scalars) {
                scalar.address = first + static_cast<long long>(random() % (Addresses + 20)) - 10;
                scalar.bit = random() % 2 == 0 ? -1 : static_cast<int>(random() % 70);
            }
            const long long when = static_cast<long long>(random() % (time + 6)) - 3;
            std::vector<WdbByteValue> found(5);
            search.getValues(when, scalars, found);
            std::vector<int> values;
            for (const WdbByteValue& value : found)
                values.push_back(value.type == WdbByteValue::SingleValue ? value.value : None);
            ASSERT_EQ(values, valuesAt(model, when, scalars)) << "question " << i << " at " << when;
            ASSERT_EQ(search.getNextChange(when, scalars), nextChange(model, when, scalars))
                << "question " << i << " at " << when;
        }
    }

    std::mt19937 random{23};
    long long time = 3;
    std::vector<StoredEvent> written;
    // Word pairs straddle buckets, whose size a tree does not leave open.
    const bool isTree = GetParam() == MultipleBtree;
    const long long first = isTree ? 2048 - 150 : 0;
    EventFile file{GetParam(), static_cast<unsigned long>(first + Addresses), isTree ? 2048u : 60u};
};
INSTANTIATE_TEST_SUITE_P(Types, BlockSearch,
                         ::testing::Values(SingleBucket, MultipleBucket, MultipleBtree),
                         [](const auto& type) { return "type" + std::to_string(type.param); });

TEST_P(BlockSearch, answersAsAModelDoes) {
    const ValueModel model(written);
    expectAnswersOf(model, 30);
    file.open();
    expectAllIsStored();
    expectAnswersOf(model, 150);
    WdbBlockSearch search(*file.database);
    std::vector<WdbByteValue> values;
    constexpr long long Most = std::numeric_limits<long long>::max();
    constexpr long long Far = 1LL << 61;
    search.getValues(Most, {{Far, 31}, {-Far, 2000000000}, {Far, -1}}, values);
    EXPECT_EQ(values[0].type + values[1].type + values[2].type, WdbByteValue::NoValue * 3);
    EXPECT_EQ(search.getNextChange(-Most, {{Far, 31}}), -1);
}

// The events that going through the blocks in order finds are the truth, also where a damaged block
// claims to begin long before or after its neighbours, or an entry of a list is missing.
TEST_P(BlockSearch, answersFromTheBlocksThatAreSound) {
    std::vector<WdbStoredBlock> blocks;
    for (const auto& it : file.database->getAllEventBlockDatabaseIterator())
        for (; *it; ++*it)
            blocks.push_back(it->getStoredBlock());
    ASSERT_GT(blocks.size(), 1000u);
    const std::size_t whole = file.stored().size();
    file.close();
    const std::string good = readFile(file.path);
    for (int round = 0; round < 8; ++round) {
        std::string bytes = good;
        // Half of all the blocks now and then, at their beginning.
        for (std::size_t i = 0; i < (round % 3 == 0 ? blocks.size() / 2 : 20); ++i) {
            const WdbStoredBlock& block = blocks[random() % blocks.size()];
            const std::size_t place = random() % (round % 2 == 0 ? 30 : block.size);
            bytes[static_cast<std::size_t>(block.handle) + place] ^=
                static_cast<char>(1 + random() % 255);
        }
        if (round >= 4) {
            // An entry; the count of a tree's first leaf, and that it is one.
            const long long place = isTree ? 272 + 27208 : 8 + 8 * (30 + round);
            const auto node = fieldAt<long long>(bytes, EventFile::Table);
            bytes.replace(static_cast<std::size_t>(node + place), 8, fieldOf(0ll));
        }
        writeFile(file.path, bytes);
        file.open();
        const std::vector<StoredEvent> sound = file.stored();
        ASSERT_LT(sound.size(), whole);
        expectAnswersOf(ValueModel(sound), 25);
        if (HasFatalFailure()) FAIL() << "round " << round;
    }
}

}  // namespace
}  // namespace Korvel

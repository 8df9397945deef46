#include <limits>
#include <map>
#include <random>
#include <set>
#include <vector>

#include <gtest/gtest.h>

#include "drawing/WdbBlockSearch.h"
#include "tests/support/EventFile.h"
#include "tests/support/FileBytes.h"

namespace Korvel {
namespace {

constexpr long long Addresses = 400;
constexpr int None = -1;

using Scalars = std::vector<WdbScalar>;

// What each byte holds from which time on, and the two questions answered by looking at everything.
class Model {
public:
    explicit Model(const std::vector<StoredEvent>& events) {
        for (const StoredEvent& event : events) {
            for (std::size_t i = 0; i < event.values.size(); ++i)
                m_bytes[event.address + static_cast<long long>(i)][event.time] =
                    static_cast<unsigned char>(event.values[i]);
        }
    }

    std::vector<int> values(long long time, const Scalars& scalars) const {
        std::vector<int> values;
        for (const WdbScalar& scalar : scalars)
            values.push_back(scalar.bit < 0 ? byteAt(scalar.address, time) : bitAt(scalar, time));
        return values;
    }

    long long nextChange(long long time, const Scalars& scalars) const {
        std::set<long long> times;
        for (const WdbScalar& scalar : scalars) {
            for (long long i = 0; i < (scalar.bit < 0 ? 1 : 8); ++i) {
                const auto byte = m_bytes.find(pairOf(scalar) + i);
                if (byte == m_bytes.end()) continue;
                for (auto it = byte->second.upper_bound(time); it != byte->second.end(); ++it)
                    times.insert(it->first);
            }
        }
        const std::vector<int> before = values(time, scalars);
        for (const long long next : times)
            if (values(next, scalars) != before) return next;
        return -1;
    }

private:
    static long long pairOf(const WdbScalar& scalar) {
        return scalar.address + (scalar.bit < 0 ? 0 : scalar.bit / 32 * 8);
    }
    int byteAt(long long address, long long time) const {
        const auto byte = m_bytes.find(address);
        if (byte == m_bytes.end()) return None;
        const auto later = byte->second.upper_bound(time);
        return later == byte->second.begin() ? None : std::prev(later)->second;
    }
    int bitAt(const WdbScalar& scalar, long long time) const {
        bool isKnown = false;
        unsigned long long pair = 0;
        for (int i = 7; i >= 0; --i) {
            const int byte = byteAt(pairOf(scalar) + i, time);
            isKnown = isKnown || byte != None;
            pair = pair << 8 | static_cast<unsigned int>(std::max(byte, 0));
        }
        const int bit = scalar.bit % 32;
        return isKnown ? static_cast<int>((pair >> bit & 1) + 2 * (pair >> (bit + 32) & 1)) : None;
    }

    std::map<long long, std::map<long long, unsigned char>> m_bytes;
};

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
            file.write(time, isRare ? 290 + random() % 60 : random() % 270, values);
        }
    }

    // As many answers of a search as asked for, at random times about random scalars.
    void expectAnswersOf(const Model& model, int number) {
        WdbBlockSearch search(*file.database);
        for (int i = 0; i < number; ++i) {
            Scalars scalars(random() % 4);
            for (WdbScalar& scalar : scalars) {
                scalar.address = static_cast<long long>(random() % (Addresses + 20)) - 10;
                scalar.bit = random() % 2 == 0 ? -1 : static_cast<int>(random() % 70);
            }
            const long long when = static_cast<long long>(random() % (time + 6)) - 3;
            std::vector<WdbByteValue> found(5);
            search.getValues(when, scalars, found);
            std::vector<int> values;
            for (const WdbByteValue& value : found)
                values.push_back(value.type == WdbByteValue::SingleValue ? value.value : None);
            ASSERT_EQ(values, model.values(when, scalars)) << "question " << i << " at " << when;
            ASSERT_EQ(search.getNextChange(when, scalars), model.nextChange(when, scalars))
                << "question " << i << " at " << when;
        }
    }

    std::mt19937 random{23};
    long long time = 3;
    EventFile file{GetParam(), Addresses, 60};  // word pairs straddle buckets
};
INSTANTIATE_TEST_SUITE_P(Types, BlockSearch, ::testing::Values(SingleBucket, MultipleBucket),
                         [](const auto& type) { return "type" + std::to_string(type.param); });

TEST_P(BlockSearch, answersAsAModelDoes) {
    const Model model(file.stored());
    expectAnswersOf(model, 30);
    file.open();
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
            const auto node = fieldAt<long long>(bytes, EventFile::Table);
            bytes.replace(static_cast<std::size_t>(node + 8 + 8 * (30 + round)), 8, fieldOf(0ll));
        }
        writeFile(file.path, bytes);
        file.open();
        const std::vector<StoredEvent> sound = file.stored();
        ASSERT_LT(sound.size(), whole);
        expectAnswersOf(Model(sound), 25);
        if (HasFatalFailure()) FAIL() << "round " << round;
    }
}

}  // namespace
}  // namespace Korvel

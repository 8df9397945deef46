#include "events/WdbEventBtree.h"

#include <algorithm>
#include <bitset>
#include <climits>
#include <map>
#include <random>

#include <gtest/gtest.h>

#include "tests/support/BlockStores.h"
#include "tests/support/EventFile.h"
#include "tests/support/FileBytes.h"

namespace Korvel {
namespace {

constexpr std::size_t Slot = 64;
constexpr long long Base = 4096;  // first address of the bucket
constexpr unsigned int Capacity = 128;

// From addresses that change all the time to one that never does; some have no bit in a key.
constexpr long long Addresses[] = {Base,        Base + 1,    Base + 9,        Base + 700,
                                   Base + 2047, Base + 2048, Base + UINT_MAX, Base + 1234};

using Block = std::vector<StoredEvent>;
using Key = std::bitset<2048>;  // bit p is bit p % 8 of byte p / 8, as in the file
using SmallTree = WdbAppendingEventBTree<WdbEventBTreeRecord, long long, 3, WdbIBlockManager>;

struct TreeFile : FileStore<WdbFileBlockManager> {
    TreeFile() { store().addBlock(fieldOf(0ll).data(), 8), stream.flush(); }
    auto open() { return std::make_unique<WdbEventBtree>(store(), store(), Slot, Capacity, Base); }
    std::string bytes() { return stream.flush(), readFile(path); }
};

bool touches(const StoredEvent& event, long long address) {
    return event.address <= address && address < event.address + std::ssize(event.values);
}

Key keyOf(const Block& block) {
    Key key;
    for (const StoredEvent& event : block) {
        for (long long at = event.address; touches(event, at) && at < Base + 2048; ++at)
            key.set(at - Base);
    }
    return key;
}

StoredEvent storedEvent(const WdbEvent& event) {
    return {event.getBaseAddress(), event.getTime(), event.getStartAddress(),
            std::string(event.getValue(), event.getValuelength())};
}

Block eventsOf(const WdbEventBlock& block) {
    Block events;
    block.forEachEvent([&](const WdbEvent& event) { events.push_back(storedEvent(event)); });
    return events;
}

// Number of blocks, and of which one in how many is published.
class EventBtree : public ::testing::TestWithParam<std::tuple<std::size_t, unsigned int>> {
protected:
    // Adds one block to a tree, and its record to a small one. Often whole blocks lie at one time.
    void save(WdbEventBtree& tree, SmallTree& small) {
        const long long gaps[] = {1, 7, 1'000'000'000'000};
        long long time = blocks.empty() ? -3 : blocks.back().back().time;
        Block& block = blocks.emplace_back(1 + random() % 4, StoredEvent{Base, 0, 0, ""});
        bool isInKey = true;
        for (StoredEvent& event : block) {
            event.time = random() % 6 > 0 ? time : time += gaps[random() % 3];
            event.address = Addresses[random() % 200 > 0 ? random() % 4 : 4 + random() % 3];
            event.values = std::to_string(100 + random() % 900).substr(random() % 3);
            const auto* values = reinterpret_cast<const unsigned char*>(event.values.data());
            tree.getEventBlock().addEvent(event.time, event.address, event.values.size(), values);
            isInKey = isInKey && !touches(event, Base + 2048) && event.address < Base + 2048;
        }
        WdbEventBTreeRecord record{{}, time - block[0].time, block[0].time, {}};
        diffs.push_back(isInKey ? tree.getEventBlock().getLargestDiff(Base) : record.timeLength);
        record.stored.largestDiff = diffs.back();
        const Key key = keyOf(block);
        std::memcpy(record.key, &key, sizeof(key));
        small.append(record);
        if (blocks.size() == 1) tree.setStartTime(record.startTime);
        tree.saveEventBlock();
        tree.filterAndSaveBlock();  // nothing is left to be saved
    }

    long long edgeTime() {
        if (blocks.empty() || random() % 9 == 0) return random() % 2 == 0 ? LLONG_MAX : LLONG_MIN;
        return blocks[random() % blocks.size()][0].time - 1 + long(random() % 3);
    }

    bool isFindable(std::size_t block, long long address) const {
        return address < Base + 2048 && keyOf(blocks[block])[address - Base];
    }

    // Number of the block that is to be found; behind all when there is none.
    std::size_t find(long long address, long long time) const {
        std::size_t i = blocks.size();
        while (i-- > 0 && (blocks[i][0].time > time || !isFindable(i, address))) {
        }
        return i;
    }

    // A tree as it lies in a file, read without the code that wrote it. What an entry says must
    // equal its child or its block, and every node but the last one of its level be full.
    template <std::size_t N>
    void expectStored(const std::string& bytes, std::size_t rootSlot) const {
        using Entry = std::tuple<long long, long long, Key>;
        std::size_t records = 0, reach = N;
        const auto readRecord = [&](std::size_t offset) -> Entry {
            const std::size_t i = records++;
            EXPECT_EQ(fieldAt<long long>(bytes, offset + 16), diffs.at(i));
            const auto& end = records < blocks.size() ? blocks[records][0] : blocks[i].back();
            return {end.time - blocks[i][0].time, diffs[i], keyOf(blocks[i])};
        };
        const auto readNode = [&](auto& self, std::size_t offset, std::size_t below) -> Entry {
            const std::string node = bytes.substr(offset, 272 * N + 16);
            const auto count = fieldAt<unsigned int>(node, 272 * N + 8);
            EXPECT_EQ(fieldAt<unsigned int>(node, 272 * N + 12), below == 1);
            auto [allTime, allGap, allKey] = Entry();
            for (std::size_t i = 0; i < count; ++i) {
                const auto child = fieldAt<std::size_t>(node, 8 * i);
                EXPECT_TRUE(i == 0 || fieldAt<std::size_t>(node, 8 * i - 8) < child);
                const auto [time, gap, key] =
                    below == 1 ? readRecord(child) : self(self, child, below / N);
                EXPECT_EQ(fieldAt<long long>(node, 8 * (N + i)), allTime += time);
                EXPECT_TRUE(fieldAt<Key>(node, 16 * N + 8 + 256 * i) == key);
                allGap = std::max(allGap, gap);
                allKey |= key;
            }
            EXPECT_EQ(fieldAt<long long>(node, 16 * N), allGap);
            EXPECT_TRUE(count == N || (count < N && records == blocks.size()));
            return {allTime, allGap, allKey};
        };
        while (reach < blocks.size())
            reach *= N;
        readNode(readNode, fieldAt<std::size_t>(bytes, rootSlot), reach / N);
    }

    void expectWalks(const SmallTree& tree) {
        for (int query = 0; query < 100; ++query) {
            const long long address = Addresses[query % 5], time = edgeTime();
            const long long start = blocks[0][0].time;
            const WdbAddressKey wanted({address}, Base);
            SmallTree::Walk walk = tree.walk();
            walk.toCovering(time < start ? -1 : std::min(time, 1ll << 60) - start, wanted);
            std::size_t at = find(address, time);
            for (const bool isBack = random() % 2 == 0; at < blocks.size(); at += isBack ? -1 : 1) {
                if (!isFindable(at, address)) continue;
                ASSERT_TRUE(!walk.isEnd() && walk.index() == at);
                isBack ? walk.toPrevious(wanted) : walk.toNext(wanted);
            }
            EXPECT_TRUE(walk.isEnd());
        }
    }

    void expectSteps(WdbEventBtree::EventBlockIterator at, long long time) {
        std::size_t place = 1;  // 0 before the first block
        while (place < blocks.size() && blocks[place][0].time <= time)
            ++place;
        for (int step = 0; step < 8; ++step) {
            WdbEventBlock block(Capacity, 0);
            at.getEventBlock(block);
            const bool isEof = place == 0 || place > blocks.size(), isBack = random() % 2 == 0;
            EXPECT_TRUE(at.isEof() == isEof && !at == isEof);
            ASSERT_EQ(eventsOf(block), isEof ? Block() : blocks[place - 1]);
            isBack ? --at : ++at;
            place += isBack ? -(place > 0) : place <= blocks.size();
            if (random() % 8 == 0) at.seekLast(), place = blocks.size();
        }
    }

    void expectAnswers(const WdbEventBtree& tree) {
        WdbEventBlock block(Capacity, 0);
        for (const long long address : Addresses) {
            WdbEventBtree::EventIterator event(tree.getEventBlockIterator(LLONG_MIN), address,
                                               WdbAddressKey({address}, Base), Capacity);
            std::map<long long, std::string> values;
            for (const Block& some : blocks) {
                for (const StoredEvent& stored : some) {
                    if (!touches(stored, address)) continue;
                    values[stored.time] = stored.values.substr(address - stored.address);
                    ASSERT_TRUE(!event.isEof() && storedEvent(*event) == stored);
                    ++event;
                }
            }
            EXPECT_TRUE(event.isEof());
            for (auto left = address < Base + 2048 ? 15 : 2 + 200 / (blocks.size() + 1);
                 left-- > 0;) {
                const long long time = edgeTime();
                SCOPED_TRACE(::testing::Message() << address << '@' << time);
                const std::size_t found = find(address, time);
                EXPECT_EQ(tree.findEventBlock(address, time, block) != 0, found < blocks.size());
                ASSERT_EQ(eventsOf(block), found < blocks.size() ? blocks[found] : Block());
                expectSteps(tree.getEventBlockIterator(time), time);
                auto value = tree.getValueBlockIterator(address, time);
                auto next = values.upper_bound(time);
                if (next != values.begin()) --next;
                for (int step = 0; step < 8 && next != values.end(); ++step, ++value) {
                    const auto [bytes, length] = *value;
                    EXPECT_EQ(value.getTime(), next->first);
                    EXPECT_EQ(std::string(bytes, bytes + length), next->second);
                    EXPECT_EQ(value.getEndTime(), ++next == values.end() ? -1 : next->first);
                }
                EXPECT_EQ(value.isEof(), next == values.end());
            }
        }
    }

    std::mt19937 random{std::get<1>(GetParam())};
    std::vector<Block> blocks;
    std::vector<long long> diffs;  // largest ones of the blocks
};
INSTANTIATE_TEST_SUITE_P(Sizes, EventBtree,
                         ::testing::Combine(::testing::Values(1, 100, 101, 2500),
                                            ::testing::Values(1, 9, UINT_MAX)));

TEST_P(EventBtree, answersLikeALookAtAllItsBlocks) {
    const auto [count, rarity] = GetParam();
    TreeFile file, smallFile, killed;
    std::unique_ptr<WdbEventBtree> tree = file.open(), beside;
    WdbEventBtree::EventBlockIterator early = tree->getEventBlockIterator(0);
    auto small = std::make_unique<SmallTree>(smallFile.store(), smallFile.store(), Slot,
                                             SmallTree::Access::Append);
    const std::size_t moment = 1 + random() % count;
    while (blocks.size() < count) {
        save(*tree, *small);
        if (blocks.size() == moment) writeFile(killed.path, file.bytes()), beside = file.open();
        if (random() % rarity > 0) continue;
        if (blocks.size() < moment) early = tree->getEventBlockIterator(LLONG_MAX);
        tree->publish(), small->publish();
        if (blocks.size() < 100) expectStored<3>(smallFile.bytes(), Slot);
    }
    if (rarity == 1) expectAnswers(*tree);
    tree.reset(), small.reset();
    const std::string bytes = file.bytes(), killedBytes = readFile(killed.path);
    const auto state = fieldAt<std::size_t>(bytes, Slot);
    EXPECT_EQ(bytes.substr(state + 8, 264), fieldOf(blocks[0][0].time) + std::string(256, '\0'));
    expectStored<100>(bytes, state);
    expectStored<3>(smallFile.bytes(), Slot);
    expectWalks({smallFile.store(), smallFile.store(), Slot, SmallTree::Access::Read});
    expectAnswers(*beside);
    expectAnswers(*file.open());
    blocks.resize((tree = killed.open())->getEventBlockIterator(0).getBlockCount());
    EXPECT_TRUE(early.getBlockCount() <= blocks.size() && blocks.size() <= moment);
    EXPECT_FALSE(tree->isCut());
    expectAnswers(*tree);
    blocks.resize(early.getBlockCount()), expectSteps(early, LLONG_MAX);
    EXPECT_TRUE(file.bytes() == bytes && killed.bytes() == killedBytes) << "reading wrote";
}

}  // namespace
}  // namespace Korvel

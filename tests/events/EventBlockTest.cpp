#include <cerrno>
#include <climits>
#include <ios>
#include <map>
#include <new>
#include <random>
#include <sstream>
#include <stdexcept>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zlib.h>

#include "container/WdbStringBlock.h"
#include "events/WdbEventBlock.h"
#include "events/WdbEventKey.h"
#include "events/WdbLiveEvent.h"
#include "tests/support/BlockStores.h"
#include "tests/support/FileBytes.h"

namespace {
bool s_failNextAllocation = false;
}  // namespace

// The only way to run out of memory at a chosen place.
[[gnu::noinline]] void* operator new(std::size_t size) {
    void* memory = s_failNextAllocation ? nullptr : std::malloc(size == 0 ? 1 : size);
    s_failNextAllocation = false;
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace Korvel {
namespace {

constexpr unsigned int Capacity = 10240;

struct Event {
    long long time;
    long long address;
    std::string values;

    bool operator==(const Event&) const = default;
};

void addTo(WdbEventBlock& block, const Event& event) {
    block.addEvent(event.time, event.address, static_cast<unsigned int>(event.values.size()),
                   reinterpret_cast<const unsigned char*>(event.values.data()));
}

WdbEventBlock blockOf(const std::vector<Event>& events, long long base = 0,
                      unsigned int capacity = Capacity) {
    WdbEventBlock block(capacity, base);
    for (const Event& event : events)
        addTo(block, event);
    return block;
}

// Through both kinds of iterator, which must agree.
std::vector<Event> eventsOf(const WdbEventBlock& block) {
    std::vector<Event> events;
    WdbEventIterator second = block.getEventIterator();
    for (WdbEventBlock::Iterator it = block.getIterator(); it; ++it) {
        const WdbEvent& event = *it;
        events.push_back({event.getTime(), event.getStartAddress(),
                          std::string(event.getValue(), event.getValuelength())});
        const WdbEvent* same = second.hasNext() ? second.next() : nullptr;
        EXPECT_TRUE(same != nullptr && same->getValue() == event.getValue() &&
                    same->getStartAddress() == event.getStartAddress());
    }
    EXPECT_FALSE(second.hasNext());
    return events;
}

std::string imageOf(const WdbEventBlock& block) {
    return {block.getMemory(), block.getMaxEventBlockSize()};
}

TEST(EventBlock, encodesEventsBackToBack) {
    WdbEventBlock block = blockOf({{5, 2050, "\x01\x02"}}, 2048, 100);
    const auto live = std::unique_ptr<WdbLiveEvent>(new WdbLiveEvent);
    unsigned char value = 0xFF;
    live->m_valueLength = 1;
    live->setFields(-2, 2047, &value);
    std::ostringstream dumped;
    live->dump(dumped);
    EXPECT_EQ(dumped.str(),
              "--WdbLiveEvent::dump()\n  m_pTime = -2\n  m_pStartAddress = 2047\n"
              "  m_pLength = 1\n  m_value = ff \n");
    block.addEvent(live.get());
    std::string encoded = fieldOf(9ll) + fieldOf(7) + fieldOf(1) + "z";
    block.addEvent(encoded.data(), static_cast<unsigned int>(encoded.size()));
    // None of these has a value.
    live->m_valueLength = 0;
    block.addEvent(live.get());
    block.addEvent(encoded.data(), 0);
    block.addEvent(1, 2, 0, &value);

    OwningMemoryStore store;
    unsigned int size = 0;
    ASSERT_NE(block.addBlock(store, size), 0);
    const std::string expected = fieldOf(5ll) + fieldOf(4ll) + fieldOf(3) +             //
                                 fieldOf(5ll) + fieldOf(2) + fieldOf(2) + "\x01\x02" +  //
                                 fieldOf(-2ll) + fieldOf(-1) + fieldOf(1) + "\xFF" + encoded;
    EXPECT_EQ(imageOf(block), expected + std::string(100 - expected.size(), '\0'));
    EXPECT_EQ(eventsOf(block)[1].address, 2048 + 0xFFFFFFFFll) << "stored addresses count upwards";
    block.clear();
    EXPECT_EQ(imageOf(block), std::string(100, '\0'));
    EXPECT_EQ(block.addBlock(store, size), 0) << "there is nothing to store";
}

TEST(EventBlock, leavesFourBytesFree) {
    WdbEventBlock block(Capacity, 0);
    addTo(block, {1, 1, std::string(100, 'x')});
    EXPECT_TRUE(block.canAdd(10199 - 116));
    EXPECT_FALSE(block.canAdd(10200 - 116));
    EXPECT_FALSE(block.canAdd(UINT_MAX - 100)) << "the sum must not wrap";
}

TEST(Event, answersForItsAddresses) {
    WdbEventBlock block = blockOf({{1, 110, "abc"}}, 100);
    const WdbEvent event = *block.getIterator();
    const struct {
        long long address, width;
        bool within;
    } rows[] = {{109, 2, true},  {112, 5, true},  {108, 8, false}, {110, 3, true},
                {113, 1, false}, {108, 2, false}, {112, 1, true}};
    for (const auto& row : rows)
        EXPECT_EQ(event.isWithinRange(row.address, row.width), row.within) << row.address;
    EXPECT_TRUE(event.isWithinRange(1, 3, 3) && !event.isWithinRange(1, 3, 4));
    EXPECT_EQ(event.getValue(111), 'b');
    EXPECT_EQ(event.getValueWithStartAddress(109, 111), 'c');
    EXPECT_EQ(*event.getValues(112), 'c');
}

TEST(EventBlock, findsGapsAndChangedAddresses) {
    constexpr long long Base = 4096;
    struct Change {
        long long time, offset;
        unsigned int length;
    };
    const struct {
        const char* name;
        std::vector<Change> changes;
        std::vector<int> changed;  // addresses above the base
        long long gap;             // -1: an address is out of range
    } rows[] = {
        {"empty", {}, {}, 0},
        {"ofOneAddress", {{0, 1, 1}, {7, 1, 1}, {10, 9, 1}, {40, 9, 1}}, {1, 9}, 30},
        {"spanWhereOneChangesOnce", {{0, 1, 1}, {90, 1, 1}, {95, 9, 1}}, {1, 9}, 95},
        {"everyAddressOfAnEvent", {{3, 0, 3}, {4, 1, 2}, {9, 0, 3}}, {0, 1, 2}, 6},
        {"backwardsIsNoGap", {{9, 0, 1}, {3, 0, 1}}, {0}, 0},
        {"lastAddress", {{1, 2046, 2}, {3, 2046, 2}}, {2046, 2047}, 2},
        {"beyondTheLast", {{1, 2047, 2}}, {2047}, -1},
        {"farBeyond", {{1, 5000, 1}}, {}, -1},
        {"belowTheBase", {{1, -1, 1}}, {}, -1},
    };
    for (const auto& row : rows) {
        WdbEventBlock block(Capacity, Base);
        for (const Change& change : row.changes)
            addTo(block, {change.time, Base + change.offset, std::string(change.length, 'v')});
        unsigned char key[WdbEventBlock::KeySize];
        std::memset(key, '?', sizeof(key));
        block.getkeyMap(Base, key);
        if (row.gap < 0) {
            EXPECT_THROW(block.getLargestDiff(Base), std::out_of_range) << row.name;
        } else {
            EXPECT_EQ(block.getLargestDiff(Base), row.gap) << row.name;
        }
        std::vector<int> changed;
        for (int p = -1; p <= 2048; ++p)
            if (WdbEventBlock::isAddressInKey(Base + p, Base, key)) changed.push_back(p);
        EXPECT_EQ(changed, row.changed) << row.name;
        for (const int p : row.changed)
            EXPECT_NE(key[p / 8] & 1 << p % 8, 0) << "bit 0 is the least";
    }
}

// The rule word by word, with an ordered map.
std::vector<Event> filtered(const std::vector<Event>& events) {
    const auto keyOf = [](const Event& e) {
        return WdbEventKey{e.time, e.address, static_cast<unsigned int>(e.values.size())};
    };
    std::map<WdbEventKey, std::size_t> last;
    bool repeats = false;
    for (std::size_t i = 0; i < events.size(); ++i) {
        repeats |= !last.insert_or_assign(keyOf(events[i]), i).second;
        if (!repeats && i > 100) return events;
    }
    std::vector<Event> kept;
    for (std::size_t i = 0; i < events.size(); ++i)
        if (last[keyOf(events[i])] == i) kept.push_back(events[i]);
    return kept;
}

TEST(EventBlock, keepsTheLastOfWritesAtOneTime) {
    std::mt19937 random(3);
    std::vector<std::vector<Event>> cases(300);
    for (std::vector<Event>& events : cases) {
        events.resize(random() % 300);
        const auto times = 1 + random() % (random() % 2 == 0 ? 5 : 400);
        for (Event& event : events) {
            event.time = static_cast<long long>(random() % times);
            event.address = static_cast<long long>(random() % 5);
            event.values = std::string(1 + random() % 2, static_cast<char>('a' + random() % 26));
        }
    }
    for (const std::size_t repeat : {1u, 50u, 100u, 101u, 102u, 103u, 1500u}) {
        std::vector<Event>& events = cases.emplace_back();
        for (int i = 0; i < 1600; ++i)
            events.push_back({i, 1, "a"});
        events[repeat] = {0, 1, "b"};
        events[1590] = {0, 1, "c"};
        ASSERT_EQ(filtered(events).size(), repeat <= 101 ? 1598u : 1600u);
    }
    for (const std::vector<Event>& events : cases) {
        WdbEventBlock block = blockOf(events, 0, 65536);
        block.filterOutRepeatedValue();
        ASSERT_EQ(eventsOf(block), filtered(events)) << "case " << &events - cases.data();
    }
}

std::string compressed(const std::string& image, int level = 1) {
    uLongf size = compressBound(image.size());
    std::string stored(size, '\0');
    compress2(reinterpret_cast<Bytef*>(stored.data()), &size,
              reinterpret_cast<const Bytef*>(image.data()), image.size(), level);
    stored.resize(size);
    return stored;
}

// Blocks are compressed one after another by one compressor: it must forget the one before, and
// cut nothing off where the result is larger than the image.
TEST(EventBlock, storesWhatCompressingTheImageGives) {
    std::mt19937 random(11);
    OwningMemoryStore store;
    for (int round = 0; round < 60; ++round) {
        const unsigned int letters = round % 3 == 0 ? 256 : 1 + random() % 20;
        WdbEventBlock block(round % 7 == 0 ? 100 : Capacity, 0);
        for (long long time = 0;; ++time) {
            std::string values(1 + random() % (round % 2 == 0 ? 3000 : 20), '\0');
            for (char& value : values)
                value = static_cast<char>(random() % letters);
            if (!block.canAdd(static_cast<unsigned int>(values.size()))) break;
            addTo(block, {time, static_cast<long long>(random() % 2048), values});
        }
        if (block.isEmpty()) continue;
        unsigned int size = 0;
        const long long handle = block.addBlock(store, size);
        std::string stored(size, '\0');
        store.getBlock(handle, stored.data(), size);
        ASSERT_EQ(stored, compressed(imageOf(block))) << "round " << round;
        WdbEventBlock loaded(block.getMaxEventBlockSize(), 0);
        loaded.loadBlock(handle, size, store);
        ASSERT_EQ(imageOf(loaded), imageOf(block));
        WdbEventBlock assigned(1, 7);
        assigned = loaded;
        ASSERT_EQ(eventsOf(assigned), eventsOf(block));
        std::string inPlace(block.sizeofEventBlock(), '?');
        const long long plain = store.addBlock(inPlace.data(), inPlace.size());
        block.putBlock(plain, store);
        store.getBlock(plain, inPlace.data(), inPlace.size());
        ASSERT_EQ(inPlace, imageOf(block)) << "this form is not compressed";
    }
}

TEST(EventBlock, readsWhatIsSoundInADamagedImage) {
    // Three events of two values in an image of a hundred bytes: at 20, 38 and 56.
    WdbEventBlock source = blockOf({{1, 1, "ab"}, {2, 2, "cd"}, {3, 3, "ef"}}, 0, 100);
    source.getIterator();  // fills in the count
    const std::string good = imageOf(source);
    const auto with = [&](std::size_t offset, unsigned int value) {
        return compressed(std::string(good).replace(offset, 4, fieldOf(value)));
    };
    // A thousand bytes without contents come before the first that is wanted.
    std::string padded = compressed(good);
    for (int i = 0; i < 205; ++i)
        padded.insert(2, std::string("\0\0\0\xFF\xFF", 5));
    const struct {
        const char* name;
        std::string stored;
        std::size_t events;
    } rows[] = {
        {"otherLevel", compressed(good, 9), 3},
        {"countLess", with(16, 2), 2},
        {"countMore", with(16, 0xFFFFFFFF), 4},  // the zeros behind are one without values
        {"lengthHuge", with(38 + 12, 0xFFFFFFF0), 1},
        {"lengthToTheEnd", with(56 + 12, 100 - 72), 3},
        {"lengthOneMore", with(56 + 12, 100 - 71), 2},
        {"imageTooLarge", compressed(good + 'x'), 0},
        {"imageShort", compressed(good.substr(0, 56)), 3},  // the third is zeros
        {"garbageBehind", compressed(good) + "garbage", 3},
        {"emptyPiecesBefore", padded, 3},
        {"dictionaryWanted", std::string(compressed(good)).replace(0, 2, "\x78\x20"), 0},
        {"streamCut", compressed(good).substr(0, 30), 0},
        {"checksum", compressed(good).replace(compressed(good).size() - 1, 1, "?"), 0},
        {"nothing", "", 0},
    };
    OwningMemoryStore store;
    WdbEventBlockHeader header;
    for (const auto& row : rows) {
        WdbEventBlock block = blockOf({{7, 7, "old"}}, 0, 100);
        const long long handle = store.addBlock(row.stored.data(), row.stored.size());
        block.loadBlock(handle, static_cast<unsigned int>(row.stored.size()), store);
        EXPECT_EQ(eventsOf(block).size(), row.events) << row.name;
        if (row.events == 0) {
            EXPECT_EQ(imageOf(block), std::string(100, '\0')) << row.name;
        } else {
            EXPECT_TRUE(WdbEventBlock::peek(handle, static_cast<unsigned int>(row.stored.size()),
                                            store, header) &&
                        header.eventCount >= 2)
                << row.name;
        }
    }
}

// Unpacking copies in steps of several bytes while there is much to come; what such a step leaves
// behind a short stream would be taken for events.
TEST(EventBlock, isZeroBehindAShortImage) {
    OwningMemoryStore store;
    for (std::size_t length = 1; length < 400; ++length) {
        const std::string image = std::string(length, 'x') + "xyz" + std::string(length % 7, 'x');
        const std::string stored = compressed(image) + std::string(100, 'g');
        WdbEventBlock block(1000, 0);
        block.loadBlock(store.addBlock(stored.data(), stored.size()),
                        static_cast<unsigned int>(stored.size()), store);
        ASSERT_EQ(imageOf(block), image + std::string(1000 - image.size(), '\0')) << length;
    }
}

// A store that fails in one way or another, or leaves it to the memory to fail.
struct FailingStore : OwningMemoryStore {
    enum Failure { Stream, Other, Memory };
    explicit FailingStore(Failure failure) : fails(failure) {
        s_failNextAllocation = fails == Memory;
        errno = ENOSPC;
    }
    long long addBlock(const char*, unsigned long long) override {
        if (fails == Stream) throw std::ios_base::failure("stream");
        throw std::runtime_error("other");
    }
    Failure fails;
};

TEST(StoredBlocks, endTheProcessWhenTheyCannotBeStored) {
    // Larger than any other block here, so that the compressor needs memory for them.
    const WdbEventBlock events = blockOf({{1, 1, "a"}}, 0, 1u << 20);
    WdbStringBlock strings(1u << 20);
    strings.addString(1, "a");
    unsigned int size, count;
    long long id;
    const auto expectTexts = [&](const std::string& name, const auto& store) {
        const std::pair<FailingStore::Failure, std::string> rows[] = {
            {FailingStore::Stream, "failed to add event block"},
            {FailingStore::Other, "unspecified exception thrown"},
            {FailingStore::Memory, "caught unspecified exception in " + name + "::addBlock"}};
        for (const auto& [failure, text] : rows) {
            const auto fail = [&store, fails = failure] {
                FailingStore failing(fails);
                store(failing);
            };
            EXPECT_EXIT(fail(), ::testing::ExitedWithCode(1),
                        ::testing::Eq("WDB FATAL ERROR: " + text + " for the following reason: " +
                                      std::strerror(ENOSPC) + "\n"));
        }
    };
    expectTexts("WdbEventBlock", [&](WdbIBlockManager& store) { events.addBlock(store, size); });
    expectTexts("WdbStringBlock",
                [&](WdbIBlockManager& store) { strings.addBlock(store, size, id, count); });
}

}  // namespace
}  // namespace Korvel

#include <algorithm>
#include <cstdlib>
#include <future>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "drawing/WdbIndexScan.h"
#include "events/WdbLiveEvent.h"
#include "korvel/BTreeEventDispatcher.h"
#include "korvel/WdbAddressBTreeManager.h"
#include "tests/drawing/ValueModel.h"
#include "tests/support/OpenFailure.h"

#include <sys/resource.h>
#include <csignal>

namespace Korvel {
namespace {

using Records = std::vector<std::pair<long long, unsigned int>>;  // time, value

// Events of a small design whose data space crosses a bucket's end in the middle of a word pair.
class Design {
public:
    static constexpr long long Size = 2048 + 64;

    Design(unsigned int seed, unsigned int events) {
        std::mt19937 random(seed);
        long long time = 0;
        for (unsigned int i = 0; i < events; ++i) {
            time += random() % 3 == 0 ? random() % 50 : 0;
            const long long address = 2040 + random() % 40;
            std::string values(random() % 4 == 0 ? 1 + random() % 20 : 8, '\0');
            for (char& value : values)
                value = static_cast<char>(random() % 5 == 0 ? random() : 0);
            m_events.push_back({0, time, address, values});
        }
    }

    const std::vector<StoredEvent>& events() const { return m_events; }

    std::vector<WdbScalar> scalars() const {
        std::vector<WdbScalar> all;
        for (const long long address : {3LL, 2040LL, 2047LL, 2048LL, 2063LL})
            all.push_back({address});
        // Three pairs, one of them across the border, and a bit counted from the first of them.
        for (const long long address : {2040LL, 2044LL, 2056LL}) {
            for (const int bit : {0, 7, 31, 33})
                all.push_back({address, bit});
        }
        return all;
    }

private:
    std::vector<StoredEvent> m_events;
};

Records recordsIn(const WdbScalarBTree& tree) {
    Records records;
    const std::unique_ptr<WdbScalarBTree::Iterator> it(
        tree.find(0, 0, 0, WdbScalarBTree::NoEndTime));
    for (; *it; ++*it)
        records.push_back({it->getTime(), (**it).value});
    return records;
}

void expectAll(const Design& design, const std::vector<WdbScalarBTree*>& trees) {
    const std::vector<WdbScalar> scalars = design.scalars();
    const ValueModel model(design.events());
    ASSERT_EQ(trees.size(), scalars.size());
    for (std::size_t i = 0; i < scalars.size(); ++i) {
        Records expected;
        for (const long long time : model.timesOf(scalars[i], -1)) {
            const auto value = static_cast<unsigned int>(model.valueAt(time, scalars[i]));
            if (expected.empty() || expected.back().second != value)
                expected.push_back({time, value});
        }
        EXPECT_EQ(recordsIn(*trees[i]), expected)
            << scalars[i].address << " bit " << scalars[i].bit;
    }
}

class TreeManager : public ::testing::TestWithParam<int> {
protected:
    TreeManager() { manager.setEventDatabase(file.database.get()); }
    void write(const StoredEvent& event) { file.write(event.time, event.address, event.values); }
    void tell(const StoredEvent& event, bool isDirect) {
        std::unique_ptr<WdbLiveEvent> live(
            static_cast<WdbLiveEvent*>(WdbLiveEvent::operator new(event.values.size())));
        std::string values = event.values;
        live->m_valueLength = static_cast<unsigned int>(values.size());
        live->setFields(event.time, event.address, reinterpret_cast<unsigned char*>(values.data()));
        isDirect ? manager.addEventDirect(live.get()) : manager.addEventBuffered(live.get());
    }

    void reopen() {
        file.open();
        manager.setEventDatabase(file.database.get());
    }

    EventFile file{GetParam(), Design::Size};
    WdbAddressBTreeManager manager;
};

// What is asked of a finished recording.
class FinishedRecording : public TreeManager {};

// However many threads there are, and wherever a recording is cut into blocks.
TEST_P(FinishedRecording, fillsTreesByScanning) {
    const Design design(1, 30'000);
    for (const StoredEvent& event : design.events())
        write(event);
    reopen();
    const std::vector<WdbScalarBTree*> trees = manager.getBTrees(design.scalars());
    expectAll(design, trees);
    EXPECT_EQ(manager.getBTrees(design.scalars()), trees);

    for (const unsigned int threads : {1U, 2U, 7U}) {
        std::vector<std::unique_ptr<WdbScalarBTree>> own;
        std::vector<WdbScalarBTree*> toFill;
        for (const WdbScalar& scalar : design.scalars()) {
            if (scalar.address / 2048 != (scalar.address + 7) / 2048 || scalar.bit > 31) continue;
            own.push_back(std::make_unique<WdbScalarBTree>(scalar.address, scalar.bit));
            toFill.push_back(own.back().get());
        }
        std::vector<WdbIndexScan::IteratorPtr> iterators;
        std::vector<std::vector<WdbScalarBTree*>> groups;
        file.database->getEventBlockDatabaseIterator(toFill, iterators, groups);
        std::deque<WdbScalarCells> cells;
        WdbIndexScan scan(WdbEventDatabaseHeader::EventBlockSize);
        for (std::size_t i = 0; i < iterators.size(); ++i)
            scan.add({iterators[i]}, cells.emplace_back(groups[i]));
        EXPECT_TRUE(scan.run(threads, {}));
        for (const WdbScalarBTree* tree : toFill) {
            const WdbScalar scalar{tree->getAddress(), tree->getBit()};
            EXPECT_EQ(recordsIn(*tree), recordsIn(*manager.getBTrees({scalar}).front()))
                << threads << " threads, " << scalar.address << " bit " << scalar.bit;
        }
    }
}

// Trees that are made while events arrive see each of them once, whether it was in the recording,
// in the buffer, or in both.
TEST_P(TreeManager, followsEventsFromAnyMomentOn) {
    const Design design(2, 4'000);
    const std::vector<WdbScalar> scalars = design.scalars();
    std::vector<WdbScalar> wanted;
    for (std::size_t i = 0; i < design.events().size(); ++i) {
        if (i % 250 == 0 && wanted.size() < scalars.size()) {
            wanted.push_back(scalars[wanted.size()]);
            manager.getBTrees(wanted);
        }
        const StoredEvent& event = design.events()[i];
        tell(event, /*isDirect=*/i > 3'500);
        write(event);
        if (i % 97 == 0 || i >= 3'500) manager.flushEvents();
    }
    manager.flushEvents();
    expectAll(design, manager.getBTrees(scalars));
    manager.reset();
    EXPECT_FALSE(manager.hasAtLeastOneBtree());
    expectAll(design, manager.getBTrees(scalars));
}

// Listeners are told of an event also where a request for trees took it out of the buffer.
TEST_P(TreeManager, tellsListenersWhatARequestApplied) {
    struct Listener : IBTreeEventListener {
        void onChanges(const std::vector<WdbTreeChange>& changes, long long) override {
            for (const WdbTreeChange& change : changes)
                told.set_value(change.time);
        }
        std::promise<long long> told;
    } listener;
    BTreeEventDispatcher& dispatcher = manager.getEventDispatcher();
    dispatcher.registerListener(&listener, manager.getBTrees({{5}}), 0);
    tell({0, 7, 5, "a"}, /*isDirect=*/false);
    write({0, 7, 5, "a"});
    manager.getBTrees({{6}});
    manager.flushEvents();
    EXPECT_EQ(listener.told.get_future().get(), 7);
    dispatcher.unregisterListener(&listener);
}

// Simulated time never falls, but a damaged recording may say so.
TEST_P(FinishedRecording, ignoresWhatComesBeforeTheNewestRecord) {
    const auto pair = [](char value) { return std::string{value, 0, 0, 0, 0, 0, 0, 0}; };
    for (const auto& [time, value] : {std::pair{160, 1}, {50, 0}, {200, 0}})
        file.write(time, 8, pair(static_cast<char>(value)));
    file.write(100, 5, "a");
    file.write(50, 5, "b");
    file.write(150, 5, "b");
    reopen();
    const auto trees = manager.getBTrees({{8, 0}, {5}});
    EXPECT_EQ(recordsIn(*trees[0]), (Records{{160, 1}, {200, 0}}));
    EXPECT_EQ(recordsIn(*trees[1]), (Records{{100, 'a'}, {150, 'b'}}));
    EXPECT_THROW(manager.getBTrees({{5, -2}}), std::out_of_range);
    EXPECT_THROW(manager.getNextChange(0, {{1LL << 62}}), std::out_of_range);
}

TEST_P(FinishedRecording, keepsNothingOfACancelledScan) {
    const Design design(3, 500);
    for (const StoredEvent& event : design.events())
        write(event);
    reopen();
    EXPECT_TRUE(manager.getBTrees(design.scalars(), [](double) { return false; }).empty());
    EXPECT_THROW(manager.getBTrees(design.scalars(), [](double) -> bool { throw 1; }), int);
    EXPECT_FALSE(manager.hasAtLeastOneBtree());
    expectAll(design, manager.getBTrees(design.scalars(), [](double) { return true; }));
}

TEST_P(TreeManager, scansAnEmptyTreeAgainOnlyWhenAskedTo) {
    WdbScalarBTree* tree = manager.getBTrees({{5}}).front();
    file.write(7, 5, "a");
    EXPECT_EQ(manager.getBTrees({{5}}).front(), tree);
    EXPECT_TRUE(tree->isEmpty());
    ::setenv("WAVEDATA_RESCAN", "", 1);
    EXPECT_EQ(manager.getBTrees({{5}}).front(), tree);
    ::unsetenv("WAVEDATA_RESCAN");
    EXPECT_EQ(recordsIn(*tree), (Records{{7, 'a'}}));
    tell({0, 8, 5, "b"}, /*isDirect=*/true);
    EXPECT_EQ(recordsIn(*tree), (Records{{7, 'a'}, {8, 'b'}}));
}

// Where the disk is full a wrong picture would be worse than none.
TEST_P(FinishedRecording, refusesTreesThatTheDiskCannotTake) {
    const TemporaryDirectory directory;
    const std::string path = directory.file("index");
    for (int i = 0; i < 20'000; ++i)
        file.write(i, 5, i % 2 == 0 ? "a" : "b");
    reopen();
    manager.createDrawingBTreeFile(path);
    rlimit before{};
    ::getrlimit(RLIMIT_FSIZE, &before);
    ::signal(SIGXFSZ, SIG_IGN);
    const rlimit full = {4096, before.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &full);
    const std::string failure = openFailureOf([&] { manager.getBTrees({{5}}); });
    ::setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ(failure,
              "Tarn|wavedata/bridge/kernel/src/WdbIndexPages|Cannot write temporary "
              "waveform data file " +
                  path + " for the following reason: File too large");
    EXPECT_EQ(manager.getBTrees({{5}}).front()->getRecordCount(), 20'000);
    EXPECT_EQ(openFailureOf([&] { manager.createDrawingBTreeFile(directory.file("no/index")); }),
              "Tarn|wavedata/bridge/kernel/src/WdbAddressBTreeManager|Cannot create temporary "
              "waveform data file " +
                  directory.file("no/index") +
                  " for the following reason: No such file or directory");
}

const auto nameOf = [](const auto& row) { return "type" + std::to_string(row.param); };
INSTANTIATE_TEST_SUITE_P(Types, TreeManager, ::testing::Values(SingleBucket, MultipleBucket),
                         nameOf);
INSTANTIATE_TEST_SUITE_P(Types, FinishedRecording,
                         ::testing::Values(SingleBucket, MultipleBucket, MultipleBtree), nameOf);

}  // namespace
}  // namespace Korvel

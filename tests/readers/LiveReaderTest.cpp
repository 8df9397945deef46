#include "readers/WdbLiveReader.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <filesystem>
#include <functional>
#include <random>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>
#include <boost/thread/thread.hpp>

#include "korvel/BTreeEventDispatcher.h"
#include "korvel/WdbLiveSimulation.h"
#include "korvel/WdbMultiBtreeIterator.h"
#include "readers/WdbStaticReader.h"
#include "tests/support/FileBytes.h"
#include "tests/support/OpenFailure.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/system/LibraryAccess.h"
#include "transport/WdbSharedMemMgr.h"
#include "writers/WdbLiveWriter.h"
#include "writers/WdbStandAloneWriter.h"

namespace Korvel {
namespace {

using State = WdbLiveSimulation::State;
using MarkLock = boost::unique_lock<boost::mutex>;
using Changes = std::vector<std::array<long long, 3>>;  // time, number of the scalar, value
using Scalars = std::vector<WdbScalar>;

constexpr unsigned long Addresses = 3 * 2048;

Changes changesOf(WdbIEventReader& reader, const Scalars& scalars) {
    const auto trees = reader.getBTreeManager().getBTrees(scalars);
    const boost::unique_lock<boost::recursive_mutex> lock(reader.getReadWriteMutex());
    Changes changes;
    for (WdbMultiBtreeIterator it(trees, 0, WdbScalarBTree::NoEndTime, 0, 0); it; ++it)
        changes.push_back({it.getTime(), static_cast<long long>(it.getTreeIndex()), (*it).value});
    return changes;
}

Changes changesIn(const std::string& path, const Scalars& scalars) {
    WdbStaticReader reader;
    reader.createReader("", path, 0, "");
    return changesOf(reader, scalars);
}

// A simulation and its viewer, both in this process.
struct LiveReader : ::testing::Test {
    LiveReader() {
        std::filesystem::create_directories(snapshot);
        reader.setMemFileSize(Addresses);
    }
    void start() { writer.open(IWdbWriter::LiveMode, design, "", 0); }
    void attach() { reader.createReader(design, path, 0, ""); }
    void close() { reader.createReader(directory.file("none/sim"), otherPath, 0, ""); }
    void change(long long time, long long address, const std::string& values) {
        traceBytes(writer, time, address, values);
    }
    // Returns when all up to the mark is recorded.
    void mark(long long time) {
        MarkLock lock(reader.getTimeMarkMutex());
        writer.markCurrentTime(time);
        while (reader.getLatestTime() != time)
            reader.markTime(lock);
    }
    void awaitEnd() {
        MarkLock lock(reader.getTimeMarkMutex());
        while (WdbLiveSimulation::isStreaming(reader))
            reader.markTime(lock);
    }

    const TemporaryDirectory directory;
    const std::string snapshot = directory.file("torq.dir/snap");
    const std::string design = snapshot + "/sim";
    const std::string path = directory.file("live.wdb");
    const std::string otherPath = directory.file("other.wdb");
    WdbLiveWriter writer;
    WdbLiveReader reader;
};

TEST_F(LiveReader, recordsWhatIsStreamed) {
    EXPECT_EQ(WdbLiveSimulation("none/sim").getState(), State::NotThere);
    WdbLiveSimulation simulation(design);
    EXPECT_EQ(simulation.getState(), State::NotThere);
    start();
    EXPECT_EQ(simulation.getState(), State::Free);
    EXPECT_FALSE(WdbLiveSimulation::isStreaming(reader));
    attach();
    EXPECT_EQ(simulation.getState(), State::Followed);
    writeFile(otherPath, "precious");
    EXPECT_EQ(openFailureOf([&] { WdbLiveReader().createReader(design, otherPath, 0, ""); }),
              "Tarn|wavedata/bridge/kernel/src/WdbLiveReader|The simulation has a viewer already; "
              "there can be one only.");
    EXPECT_EQ(readFile(otherPath), "precious");
    EXPECT_FALSE(reader.hasMoreData());
    change(5, 10, "ab");
    mark(9);
    EXPECT_TRUE(reader.hasMoreData());
    EXPECT_FALSE(reader.hasMoreData());
    const auto trees = reader.getBTreeManager().getBTrees({{10}, {11}, {12}});
    change(12, 11, "z");
    mark(13);
    EXPECT_EQ(reader.getPreviousEvent(12, trees), 5);
    EXPECT_EQ(reader.getNextEvent(5, {trees[1]}), 12);
    change(14, 12, "e");  // no mark follows
    writer.close();
    awaitEnd();
    EXPECT_EQ(simulation.getState(), State::NotThere);
    EXPECT_EQ(trees[2]->getLastValueTime(), 14);
}

TEST_F(LiveReader, waitsForAMarkNoLongerThanOneMayCome) {
    MarkLock idle(reader.getTimeMarkMutex());
    reader.markTime(idle);  // nothing is open
    idle.unlock();
    const std::function<void()> ends[] = {[&] { WdbLiveSimulation::stop(reader); },
                                          [&] { reader.restart(); }, [&] { writer.close(); }};
    for (const auto& end : ends) {
        start();
        attach();
        MarkLock lock(reader.getTimeMarkMutex());
        writer.markCurrentTime(1);
        while (reader.getLatestTime() != 1)
            boost::this_thread::yield();
        reader.markTime(lock);  // returns for what came while the lock was held
        boost::thread other([&] {
            { const MarkLock whileTheViewerWaits(reader.getTimeMarkMutex()); }
            end();
        });
        reader.markTime(lock);
        EXPECT_TRUE(lock.owns_lock());
        EXPECT_FALSE(WdbLiveSimulation::isStreaming(reader));
        reader.markTime(lock);  // nor will there be one
        lock.unlock();
        other.join();
    }
}

TEST(TimeMarks, countForEachWhoWaits) {
    WdbTimeMarks marks;
    marks.begin();
    boost::thread other([&] {
        for (MarkLock lock(marks.getMutex()); marks.areExpected();)
            marks.wait(lock);
    });
    const auto giveWay = [] { boost::this_thread::sleep_for(boost::chrono::microseconds(50)); };
    for (int round = 0; round < 200; giveWay(), ++round) {
        MarkLock busy(marks.getMutex());
        marks.announce();
        giveWay();
        marks.wait(busy);
    }
    marks.end();
    other.join();
}

// The simulation starts again: twice in its process, then as another one with a ring of its own.
TEST_F(LiveReader, beginsAnewWithTheSimulation) {
    start();
    WdbLiveSimulation::stopAtNewRun(reader);
    attach();
    for (const unsigned int id : {5U, 7U, 6U})
        reader.setObjectTraced(id, 0, 0);
    for (int run = 0; run < 4; ++run) {
        const long long time = 100 - run;
        const MarkLock held(reader.getTimeMarkMutex());  // by the viewer's loop
        if (run == 1 || run == 2) {
            reader.restart();
            writer.restart();
        } else if (run == 3) {
            writer.close();
            start();
        }
        if (run > 0) reader.relaunchAfterRestart();
        EXPECT_TRUE(changesOf(reader, {{10}}).empty());
        change(time, 10, std::string(1, static_cast<char>(run)));
        writer.markCurrentTime(time);
        while (reader.getLatestTime() != time)
            boost::this_thread::yield();
        EXPECT_EQ(changesOf(reader, {{10}}), (Changes{{time, 0, run}}));
        change(time + 50, 10, "of a run that is over");
    }
    change(3, 10, "b");  // unasked, behind a time that is over
    awaitEnd();
    EXPECT_TRUE(WdbLiveSimulation::hasBegunAgain(reader));
    reader.relaunchAfterRestart();
    mark(4);
    close();
    EXPECT_FALSE(reader.isObjectTraced(5));  // that was in the recording before
    WdbStaticReader recording;
    recording.createReader("", path, 0, "");
    EXPECT_EQ(changesOf(recording, {{10}})[0], (Changes::value_type{3, 0, 'b'}));
    for (unsigned int id = 4; id <= 8; ++id)
        EXPECT_EQ(recording.isObjectTraced(id), 5 <= id && id <= 7) << id;
}

TEST_F(LiveReader, letsGoOfAllWhereItFails) {
    EXPECT_NE(openFailureOf([&] { reader.saveDbg(path); }), "");
    start();
    attach();
    EXPECT_NE(openFailureOf([&] { reader.saveDbg(directory.file("missing")); }), "");
    EXPECT_NE(openFailureOf([&] { reader.saveRtti(directory.file("")); }), "");
    writeFile(otherPath, "description");
    reader.saveDbg(otherPath);
    EXPECT_NE(openFailureOf([&] { reader.createReader(design, "none/a.wdb", 0, ""); }), "");
    EXPECT_FALSE(WdbLiveSimulation::isStreaming(reader));
    EXPECT_NE(readFile(path).find("description"), std::string::npos);
    // The simulation finds out that its ring's name is gone, and makes another.
    long long time = 1;
    for (WdbLiveSimulation simulation(design); simulation.getState() != State::Free; ++time)
        writer.markCurrentTime(time);
    attach();
    mark(time);
}

TEST_F(LiveReader, recordsTimesThatFallUnlessItIsToldToStop) {
    start();
    attach();
    writer.markCurrentTime(9);
    change(3, 10, "b");
    writer.markCurrentTime(4);
    while (reader.getLatestTime() != 4)
        boost::this_thread::yield();
    EXPECT_EQ(changesOf(reader, {{10}}), (Changes{{3, 0, 'b'}}));
    EXPECT_TRUE(WdbLiveSimulation::isStreaming(reader));
}

TEST_F(LiveReader, cutsTheAddressesIntoBuckets) {
    for (const unsigned long addresses : {2048UL, 2049UL, 4096UL, 0UL}) {
        reader.setMemFileSize(addresses);
        attach();
        WdbFileManager file;
        file.open(path);
        EXPECT_EQ(file.getApplication(), "Pellon Simulator");
        const auto header = static_cast<std::size_t>(file.getSectionFileOffset("WDB.Event", 1));
        EXPECT_EQ(fieldAt<unsigned int>(readFile(path), header + 12), (addresses + 2047) / 2048);
    }
    reader.setMemFileSize(1UL << 43);
    EXPECT_NE(openFailureOf([&] { attach(); }), "");
}

TEST_F(LiveReader, readsWhatADeadSimulationLeft) {
    const pid_t simulator = ::fork();
    if (simulator == 0) {
        (new WdbSharedMemMgr(true, snapshot, 0))->putPacketMarkTime(9);
        ::_exit(0);
    }
    ::waitpid(simulator, nullptr, 0);
    EXPECT_EQ(WdbLiveSimulation(design).getState(), State::Ended);
    attach();
    while (WdbLiveSimulation::isStreaming(reader))
        boost::this_thread::yield();
    EXPECT_EQ(reader.getLatestTime(), 9);
}

// A ring is shared memory, in which anybody may write. Whatever comes out of it, the viewer lives,
// and records what makes sense.
TEST_F(LiveReader, survivesNonsense) {
    const auto event = [](long long time, long long address, unsigned int length, int size) {
        return fieldOf(time) + fieldOf(address) + fieldOf(length) + std::string(size, 'x');
    };
    constexpr long long Far = std::numeric_limits<long long>::max();
    const std::vector<std::string> records{event(-Far, 9, 1, 1),  // while there is no mark
                                           "abc",
                                           "seven b",
                                           event(Far, 9, 400, 5),
                                           event(Far, 9, 0, 0),
                                           event(Far, Far, 2, 2),
                                           event(Far, -Far, 2, 2),
                                           event(Far, 2040, 9000, 9000),
                                           event(Far, 9, 1, 1)};
    for (const unsigned long addresses : {Addresses, 0UL}) {
        ::testing::internal::CaptureStderr();
        WdbSharedMemMgr ring(true, snapshot, 0);
        const auto put = [&](const std::string& record) {
            ring.putPacket(record.data(), static_cast<unsigned int>(record.size()));
        };
        reader.setMemFileSize(addresses);
        attach();
        reader.getBTreeManager().getBTrees({{9}, {2040}, {Far >> 3}});
        for (const std::string& record : records) {
            put(record);
            // What comes in one batch with nonsense goes with it.
            const long long time = reader.getLatestTime() + 1;
            for (; reader.getLatestTime() != time; ring.sleepMem(1)) {
                put(event(time, 12, 1, 1));
                put(fieldOf(time));
            }
        }
        EXPECT_EQ(changesOf(reader, {{12}}).size(), addresses != 0 ? 1U : 0U);
        const std::string told = ::testing::internal::GetCapturedStderr();
        EXPECT_EQ(std::count(told.begin(), told.end(), '\n'), addresses != 0 ? 1 : 2) << told;
    }
}

// Requests for new indexes and who draws take their time; the simulation does not wait for them.
TEST_F(LiveReader, emptiesTheRingWhileTheRecordingIsRead) {
    constexpr long long Count = 90'000;  // three times what the ring takes
    start();
    attach();
    reader.getBTreeManager().getBTrees({{10}});
    change(1, 300, "a");
    mark(1);
    const auto trees = reader.getBTreeManager().getBTrees({{10}, {300}}, [&](double fraction) {
        for (long long time = 1; fraction == 0 && time <= Count; ++time)
            change(time, 10, std::string(270, static_cast<char>(time)));
        return true;
    });
    boost::unique_lock<boost::recursive_mutex> drawing(reader.getReadWriteMutex());
    for (long long time = Count + 1; time <= 2 * Count; ++time) {
        change(time, 10, std::string(270, static_cast<char>(time)));
        if (time % 100 == 0) writer.markCurrentTime(time);
    }
    drawing.unlock();
    mark(2 * Count);
    EXPECT_EQ(trees[0]->getRecordCount(), 2 * Count);
    EXPECT_EQ(trees[1]->getRecordCount(), 1U);
}

// A viewer that is killed leaves a file that opens: a copy of it does, while it grows.
TEST_F(LiveReader, keepsItsFileReadable) {
    start();
    attach();
    std::size_t found = 0;
    for (long long time = 1; found == 0 && time < 3000; ++time) {  // too few to fill a node
        change(time, 10, std::string(270, static_cast<char>(time)));
        mark(time);
        if (time % 10 != 0) continue;
        writeFile(otherPath, readFile(path));
        found = changesIn(otherPath, {{10}}).size();
    }
    EXPECT_GT(found, 0U);
}

// A kernel whose values follow from a seed: bytes, a long VHDL value across the end of a bucket,
// and a Verilog value of several word pairs.
struct Kernel {
    explicit Kernel(IWdbWriter& by) : writer(by) {
        writer.setAddressSize(Addresses);
        writer.setBaseDPOffset(reinterpret_cast<long long>(memory.data()));
    }
    void run(long long first, long long last) {
        for (long long time = first; time <= last; ++time) {
            trace(time, 0, 1);
            for (auto bytes = random() % 4; bytes > 0; --bytes)
                trace(time, random() % 40, 1);
            if (random() % 4 == 0) trace(time, 1900, 300);
            std::array<unsigned char, 32> bits;
            for (unsigned char& byte : bits)
                byte = static_cast<unsigned char>(random());
            const auto bit = static_cast<unsigned int>(random() % 128);
            const auto end = static_cast<unsigned int>(bit + random() % (129 - bit));
            writer.getTraceVlogFunc()(time, 0, 0, &memory[4096], bits.data(), bit, end);
            writer.markCurrentTime(time);
        }
    }
    void trace(long long time, std::size_t address, unsigned int size) {
        for (unsigned int i = 0; i < size; ++i)
            memory[address + i] += static_cast<unsigned char>(1 + random() % size);
        writer.getTraceVhdlFunc()(time, 0, size, &memory[address], &memory[address]);
    }
    static Scalars scalars() {
        Scalars scalars;
        for (int i = 0; i < 128; ++i) {
            scalars.push_back({i < 40 ? i : 1900 + 3 * (i - 40)});
            scalars.push_back({4096, i});
        }
        return scalars;
    }

    IWdbWriter& writer;
    std::mt19937 random{7};
    std::vector<unsigned char> memory = std::vector<unsigned char>(Addresses);
};

struct Listener : IBTreeEventListener {
    void onChanges(const std::vector<WdbTreeChange>& changes, long long) override {
        for (const WdbTreeChange& change : changes)
            told.push_back({change.time, change.tree->getAddress(), change.value});
        upTo = changes.back().time;
        upTo.notify_all();
    }
    std::atomic<long long> upTo{0};
    Changes told;
};

// Indexes that were there before the run or were made in its midst, what a listener was told and
// the file that is left all agree with a recording by the simulator itself.
TEST_F(LiveReader, agreesWithTheSimulatorsOwnRecordingWhileViewersAsk) {
    constexpr int Phases = 40;
    constexpr int Steps = 50;
    {
        WdbStandAloneWriter recorder;
        Kernel kernel(recorder);
        recorder.open(IWdbWriter::DefaultMode, design, otherPath, 0);
        kernel.run(1, Phases * Steps);
    }
    const Scalars scalars = Kernel::scalars();
    const Changes expected = changesIn(otherPath, scalars);
    const Changes toTell = changesIn(otherPath, {{0}, {1}, {2}});

    Kernel kernel(writer);
    start();
    attach();
    WdbAddressBTreeManager& manager = reader.getBTreeManager();
    Listener listener;
    manager.getEventDispatcher().registerListener(&listener, manager.getBTrees({{0}, {1}, {2}}), 0);
    std::atomic<int> rounds{0};
    boost::thread asking([&] {
        std::vector<WdbTimeByteValues> found;
        std::vector<WdbByteValue> values;
        for (; WdbLiveSimulation::isStreaming(reader); rounds.notify_one()) {
            const WdbScalar& scalar = scalars[static_cast<std::size_t>(++rounds) % scalars.size()];
            const auto trees = manager.getBTrees({scalar, {0}});
            found.clear();
            reader.getValueEvents(0, -1, 0, trees, found);
            reader.getNextEvent(reader.getPreviousEvent(reader.getLatestTime(), trees), trees);
            manager.getValues(reader.getLatestTime(), {scalar}, values);
        }
    });
    boost::thread waiting([&] {
        MarkLock lock(reader.getTimeMarkMutex());
        for (long long latest = 0; WdbLiveSimulation::isStreaming(reader); reader.hasMoreData()) {
            reader.markTime(lock);
            EXPECT_LE(latest, reader.getLatestTime());
            latest = reader.getLatestTime();
        }
    });
    for (int phase = 0; phase < Phases; ++phase) {
        for (int seen = rounds; seen < 2 * phase; seen = rounds)
            rounds.wait(seen);
        kernel.run(phase * Steps + 1, (phase + 1) * Steps);
    }
    writer.close();
    waiting.join();
    asking.join();
    EXPECT_EQ(reader.getLatestTime(), Phases * Steps);
    for (long long seen = listener.upTo; seen < Phases * Steps; seen = listener.upTo)
        listener.upTo.wait(seen);
    EXPECT_GT(expected.size(), 10'000U);
    EXPECT_TRUE(listener.told == toTell);
    EXPECT_TRUE(changesOf(reader, scalars) == expected);
    close();
    EXPECT_TRUE(changesIn(path, scalars) == expected);
}

}  // namespace
}  // namespace Korvel

// What it costs to follow a running simulation: its thread pays for each call, the viewer for each
// change, and an engineer waits for the change to show. The other side is a process of its own.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <stdexcept>
#include <vector>

#include <benchmark/benchmark.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "korvel/BTreeEventDispatcher.h"
#include "korvel/WdbAddressBTreeManager.h"
#include "korvel/WdbEventReaderFactory.h"
#include "korvel/WdbLiveSimulation.h"
#include "tests/support/Await.h"
#include "tests/support/TemporaryDirectory.h"
#include "transport/WdbLiveBatch.h"
#include "transport/WdbLivePacketContainer.h"
#include "transport/WdbSharedMemMgr.h"
#include "writers/WdbLiveWriter.h"
#include "writers/WdbStandAloneWriter.h"

namespace Korvel {
namespace {

using State = benchmark::State;
using Count = unsigned long long;

constexpr unsigned int Overhead = WdbLivePacketContainer::RecordOverhead;
constexpr unsigned int MarkSize = 12;    // bytes in the ring
constexpr Count BurstBytes = 2'400'000;  // in the ring, which takes three times as many
constexpr unsigned int Objects = 384;
constexpr unsigned int Shown = 20;  // of these
constexpr unsigned int ChangesATime = 8;

Count changesWanted(Count usual) {
    const char* wanted = std::getenv("KORVEL_BENCH_CHANGES");
    const Count most = wanted != nullptr ? std::strtoull(wanted, nullptr, 10) : usual;
    return std::min(usual, most) / ChangesATime * ChangesATime;
}

// Nanoseconds of a clock that both processes share.
long long now() {
    return std::chrono::steady_clock::now().time_since_epoch() / std::chrono::nanoseconds(1);
}

template <typename Condition>
void await(Condition&& condition) {
    if (!becomesTrue(condition)) throw std::runtime_error("the other process does not get on");
}

// Where a simulation and its viewer meet, of which one is a child process. It begins before this
// side opens anything, all of which it would hold on to.
struct Meeting {
    template <typename Main>
    explicit Meeting(Main&& main) {
        std::filesystem::create_directories(directory);
        if ((child = ::fork()) != 0) return;
        [&]() noexcept { main(*this); }();
        ::_exit(0);
    }
    ~Meeting() {
        if (child > 0 && ::kill(child, SIGKILL) == 0) ::waitpid(child, nullptr, 0);
        ::munmap(&board, sizeof(Board));
    }

    bool hasViewer() const { return WdbSharedMemory::look(directory).hasViewer; }

    const TemporaryDirectory root;
    const std::string directory = root.file("torq.dir/snapshot");
    const std::string designPath = directory + "/simulation";
    const std::string recording = directory + "/recording.wdb";
    struct Board {
        std::atomic<Count> phase;        // of the simulation
        std::atomic<Count> done;         // bytes that the viewer took, or calls that have ended
        std::atomic<Count> longestCall;  // nanoseconds
    };
    Board& board = *static_cast<Board*>(
        ::mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    pid_t child = -1;
};

// A viewer that throws away what it takes, all at once or record by record.
template <bool Walks>
void consume(const Meeting& meeting) {
    await([&] { return WdbSharedMemory::look(meeting.directory).hasSimulator; });
    WdbSharedMemMgr ring(/*create=*/false, meeting.directory, 0);
    std::vector<char> taken(WdbSharedMemMgr::RingSize);
    for (unsigned int size = 0; ring.getPackets(taken.data(), size);) {
        WdbLiveBatch batch(taken.data(), Walks ? size : 0);
        while (batch.next() == WdbLiveBatch::Record::Event)
            benchmark::DoNotOptimize(batch.getEvent()->m_time);
        if (batch.next() == WdbLiveBatch::Record::End) meeting.board.done += size;
    }
}

// From the first record put in to the last one taken out.
template <bool Walks>
void ring(State& state) {
    const auto size = static_cast<unsigned int>(state.range(0));
    const Count record = size + Overhead;
    const std::vector<unsigned char> value(size, 3);
    const Meeting meeting(consume<Walks>);
    WdbSharedMemMgr transport(/*create=*/true, meeting.directory, 0);
    await([&] { return meeting.hasViewer(); });
    Count sent = 0;
    for (auto _ : state) {
        for (const Count end = sent + changesWanted(400'000'000 / record); sent < end; ++sent) {
            WdbLivePacketContainer event{static_cast<long long>(sent), size, 0, value.data()};
            transport.putPacket(&event);
        }
        await([&] { return meeting.board.done == sent * record; });
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(sent));
    state.SetBytesProcessed(static_cast<std::int64_t>(sent * record));
}

// The same bytes in the same pieces, into memory of the ring's size by one thread.
void copyOnly(State& state) {
    const auto record = static_cast<std::size_t>(state.range(0)) + Overhead;
    const std::vector<char> from(record);
    std::vector<char> to(WdbSharedMemMgr::RingSize);
    std::size_t offset = 0;
    for (auto _ : state) {
        std::memcpy(to.data() + offset, from.data(), record);
        benchmark::ClobberMemory();
        offset = offset + 2 * record > to.size() ? 0 : offset + record;
    }
    state.SetItemsProcessed(state.iterations());
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(record));
}

struct Kind {
    bool isVlog;
    unsigned int size;  // bytes of a value as it is recorded
    bool marks;         // each time
};
constexpr Kind Word = {true, 8, true};

// Traces a design in which the objects that are shown make a third of the changes, as what
// engineers look at changes often. A change toggles the lowest bit of VHDL bytes, bit 2 of words.
struct Simulation {
    Simulation(Kind k, IWdbWriter& w) : kind(k), writer(w) {
        writer.setAddressSize(static_cast<long long>(storage.size()));
        writer.setBaseDPOffset(reinterpret_cast<long long>(storage.data()));
    }

    void trace(Count changes) {
        for (const Count end = traced + changes; traced < end;) {
            const auto time = static_cast<long long>(traced / ChangesATime);
            traceOne(time);
            if (kind.marks && traced % ChangesATime == 0) writer.markCurrentTime(time);
        }
    }

    void traceOne(long long time) {
        const Count n = traced++;
        const Count object = n % 3 == 0 ? n / 3 % Shown : Shown + n * 5 % (Objects - Shown);
        unsigned char* stored = &storage[object * kind.size];
        Count word = 0;
        auto* value = reinterpret_cast<unsigned char*>(&word);
        std::memcpy(value, stored, kind.size);
        word = kind.isVlog ? (word + 4) & 0xffffffff : word ^ 0x0101010101010101;
        if (kind.isVlog) {
            vlog(time, 0, 0, stored, value, 0, 32);
        } else {
            vhdl(time, 0, kind.size, stored, value);
        }
        std::memcpy(stored, value, kind.size);
    }

    Count traced = 0;
    const Kind kind;
    IWdbWriter& writer;
    std::vector<unsigned char> storage = std::vector<unsigned char>(Objects * kind.size, 2);
    const IWdbWriter::TraceVhdlFunc vhdl = writer.getTraceVhdlFunc();
    const IWdbWriter::TraceVlogFunc vlog = writer.getTraceVlogFunc();
};

// Into a file, or into nothing: what is left then is the loop.
void traceAlone(State& state, Kind kind, bool isOpen) {
    const TemporaryDirectory directory;
    WdbStandAloneWriter writer;
    Simulation simulation(kind, writer);
    if (isOpen) writer.open(IWdbWriter::DefaultMode, directory.file(""), directory.file("f"), 0);
    for (auto _ : state)
        simulation.trace(100'000);
    state.SetItemsProcessed(static_cast<std::int64_t>(simulation.traced));
}

// In bursts that find the ring empty and do not fill it, so that only the calls are timed, or as
// fast as it goes, where the simulation waits for the viewer.
void traceLive(State& state, Kind kind, bool isBurst) {
    const Meeting meeting(consume<false>);
    WdbLiveWriter writer;
    Simulation simulation(kind, writer);
    writer.open(IWdbWriter::LiveMode, meeting.designPath, "", 0);
    await([&] { return meeting.hasViewer(); });
    const Count record = kind.size + Overhead;
    const Count changes = changesWanted(isBurst ? BurstBytes / record : 3'000'000);
    for (auto _ : state) {
        simulation.trace(changes);
        state.PauseTiming();
        const Count markBytes = kind.marks ? simulation.traced / ChangesATime * MarkSize : 0;
        await([&] { return meeting.board.done == simulation.traced * record + markBytes; });
        state.ResumeTiming();
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(simulation.traced));
}

struct Viewer : IBTreeEventListener {
    explicit Viewer(const Meeting& meeting) {
        WdbLiveSimulation simulation(meeting.designPath);
        await([&] { return simulation.getState() == WdbLiveSimulation::State::Free; });
        reader->setMemFileSize(Word.size * Objects);
        reader->createReader(meeting.designPath, meeting.recording, 0, "");
    }
    ~Viewer() override { manager.getEventDispatcher().unregisterListener(this); }

    void show(bool listens) {
        std::vector<WdbScalar> scalars;
        for (unsigned int i = 0; i < Shown; ++i)
            scalars.push_back({Word.size * i, /*bit=*/2});
        trees = manager.getBTrees(scalars);
        if (listens) manager.getEventDispatcher().registerListener(this, trees, -1);
    }
    void onChanges(const std::vector<WdbTreeChange>& changes, long long) override {
        const long long arrival = now();
        for (const WdbTreeChange& change : changes)
            delays.push_back(arrival - change.time);
        told += changes.size();
    }

    // Until the simulation has ended and everything is recorded, or has come to that time.
    void follow(long long until = 1LL << 62) {
        for (bool isLast = false; !isLast && reader->getLatestTime() < until;) {
            isLast = !WdbLiveSimulation::isStreaming(*reader);
            boost::unique_lock<boost::mutex> lock(reader->getTimeMarkMutex());
            reader->markTime(lock);  // also at the end, for the listener
        }
    }

    const std::unique_ptr<WdbIEventReader> reader{
        WdbEventReaderFactory::getInstance().create(WdbEventReaderFactory::LIVE_READER)};
    WdbAddressBTreeManager& manager = reader->getBTreeManager();
    std::vector<WdbScalarBTree*> trees;
    std::vector<long long> delays;  // nanoseconds, where times are those of the clock
    std::atomic<Count> told{0};
};

template <typename Work>
auto simulate(Work&& work) {
    return [=](const Meeting& meeting) {
        WdbLiveWriter writer;
        Simulation simulation(Word, writer);
        writer.open(IWdbWriter::LiveMode, meeting.designPath, "", 0);
        await([&] { return meeting.board.phase != 0; });
        work(meeting, simulation, writer);
    };
}

// As fast as it goes, from the call into the recording, the indexes and the listener.
void follow(State& state, bool shows, bool listens) {
    const Count changes = changesWanted(6'000'000);
    const Count shown = (changes + 2) / 3;
    for (auto _ : state) {
        const Meeting meeting(
            simulate([=](auto&, Simulation& simulation, auto&) { simulation.trace(changes); }));
        Viewer viewer(meeting);
        if (shows) viewer.show(listens);
        const long long begin = now();
        meeting.board.phase = 1;
        viewer.follow();
        if (listens) await([&] { return viewer.told == shown; });
        state.SetIterationTime(1e-9 * static_cast<double>(now() - begin));
        if (shows && viewer.trees[0]->getRecordCount() != (shown + Shown - 1) / Shown)
            state.SkipWithError("changes were lost");
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(changes));
}

// From the call to the listener, with pauses in between. Simulated time is that of the clock.
void delay(State& state) {
    const std::size_t samples = changesWanted(20'000'000) / 10'000;
    const Meeting meeting(simulate([=](auto&, Simulation& simulation, IWdbWriter& writer) {
        std::mt19937 random(1);
        for (std::size_t i = 0; i < samples; ++i) {
            ::usleep(1'000 + random() % 20'000);
            const long long time = now();
            for (int change = 0; change < 3; ++change)  // one of an object that is shown
                simulation.traceOne(time);
            writer.markCurrentTime(time);
        }
    }));
    Viewer viewer(meeting);
    viewer.show(/*listens=*/true);
    meeting.board.phase = 1;
    viewer.follow();
    await([&] { return viewer.told == samples; });
    std::sort(viewer.delays.begin(), viewer.delays.end());
    for (auto _ : state)
        state.SetIterationTime(1e-9 * static_cast<double>(viewer.delays[samples / 2]));
    state.counters["p99Us"] = static_cast<double>(viewer.delays[samples * 99 / 100]) * 1e-3;
}

// The longest call of a simulation that traces a change a microsecond: for a second, then while its
// viewer reads a large recording for new indexes.
void stall(State& state) {
    const Count changes = changesWanted(20'000'000);
    const Meeting meeting(simulate([=](const Meeting& m, Simulation& simulation, IWdbWriter&) {
        simulation.trace(changes);
        for (long long due = now(), begin = due; m.board.phase == 1; begin = now()) {
            if (begin < due) continue;
            due += 1'000;
            simulation.trace(1);
            m.board.longestCall = std::max<Count>(m.board.longestCall, now() - begin);
            ++m.board.done;
        }
    }));
    const auto takeLongest = [&](const char* name) {
        const Count before = meeting.board.done;  // and one call under way, which counts
        await([&] { return meeting.board.done > before + 1; });
        state.counters[name] = static_cast<double>(meeting.board.longestCall.exchange(0)) * 1e-3;
    };
    Viewer viewer(meeting);
    meeting.board.phase = 1;
    viewer.follow(static_cast<long long>(changes / ChangesATime));
    takeLongest("longestCallUs");  // before it kept the pace
    ::sleep(1);
    takeLongest("longestCallAloneUs");
    for (auto _ : state) {
        const long long begin = now();
        viewer.show(/*listens=*/false);
        state.SetIterationTime(1e-9 * static_cast<double>(now() - begin));
        takeLongest("longestCallUs");
    }
    meeting.board.phase = 2;
    viewer.follow();
}

template <typename... Arguments>
auto* add(const std::string& name, Arguments... arguments) {
    return benchmark::RegisterBenchmark(name.c_str(), arguments...)->Unit(benchmark::kMillisecond);
}

void addTrace(const std::string& name, const std::string& suffix, Kind kind) {
    add(name + suffix, traceLive, kind, /*isBurst=*/true)->UseRealTime();
    add(name + "FlatOut" + suffix, traceLive, kind, /*isBurst=*/false)->UseRealTime();
    add(name + "StandAlone" + suffix, traceAlone, kind, /*isOpen=*/true)->UseRealTime();
    add(name + "LoopOnly" + suffix, traceAlone, kind, /*isOpen=*/false)->UseRealTime();
}

}  // namespace
}  // namespace Korvel

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    using namespace Korvel;
    for (const int bytes : {1, 8, 274}) {
        add("ring", ring</*Walks=*/false>)->ArgName("bytes")->Arg(bytes)->UseRealTime();
        add("ringWalked", ring</*Walks=*/true>)->ArgName("bytes")->Arg(bytes)->UseRealTime();
        add("ringCopyOnly", copyOnly)->ArgName("bytes")->Arg(bytes)->UseRealTime();
    }
    addTrace("liveVhdlByte", "", {false, 1, false});
    addTrace("liveVhdlEight", "", {false, 8, false});
    addTrace("liveVlogWord", "", {true, 8, false});
    addTrace("liveVlogWord", "/marks", Word);
    add("follow", follow, /*shows=*/false, /*listens=*/false)->UseManualTime();
    add("followTrees", follow, true, false)->UseManualTime();
    add("followTreesListener", follow, true, true)->UseManualTime();
    add("delay", delay)->UseManualTime()->Iterations(1);
    add("stall", stall)->UseManualTime()->Iterations(1);
    benchmark::RunSpecifiedBenchmarks();
}

// Value at a time in a bucket of few or many blocks: by the tree over them, by the search that goes
// without an index, and by going back block by block. What it costs must not depend on the number
// of blocks, and with a tree not on how long ago the value changed either.

#include <array>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <unistd.h>

#include "container/WdbFileBlockManagerWithCache.h"
#include "container/WdbFileManager.h"
#include "container/WdbLockedBlockManager.h"
#include "drawing/WdbBlockSearch.h"
#include "events/WdbEventBlockDatabaseFactory.h"
#include "events/WdbEventBtree.h"
#include "events/WdbIEventBlockDatabase.h"

namespace Korvel {
namespace {

using Types = WdbEventBlockDatabaseFactory;
using Database = WdbIEventBlockDatabase;

constexpr auto Average = benchmark::Counter::kAvgIterations;
constexpr long long NoValue = -1;
constexpr long long EventsATime = 8;
constexpr unsigned int ValueSize = 8;  // one Verilog word pair

long long timeOf(long long event) {
    return event / EventsATime * 10;
}

// An object whose changes are known: each has the number of its event as value.
struct Known {
    long long address;
    long long firstEvent;
    long long period;  // events from one change to the next

    long long lastChange(long long time) const {
        const long long event = time / 10 * EventsATime + EventsATime - 1;
        return (event - firstEvent) / period * period + firstEvent;
    }
};

// One bucket of many objects that change all the time, as a list and as a tree of equal blocks. Of
// three objects it is known when they change: busy, once in a thousand blocks, once in all.
struct Recording {
    explicit Recording(long long number)
        : blocks(number), isSmall(number > 100'000), events(number * (isSmall ? 20 : 425)) {
        write(Types::MultipleBucket);
        write(Types::MultipleBtree);
    }
    ~Recording() {
        std::filesystem::remove(path(Types::MultipleBucket));
        std::filesystem::remove(path(Types::MultipleBtree));
    }

    static std::string path(int type) {
        const std::string name = "bench-find-" + std::to_string(::getpid()) + "-";
        return (std::filesystem::temp_directory_path() / (name + std::to_string(type))).string();
    }

    // @param everyBlocks  1, 1000, or 0 for the one that never changes again.
    Known known(long long everyBlocks) const {
        if (everyBlocks == 1) return {0, 0, 2 * EventsATime};
        if (everyBlocks == 0) return {ValueSize, 1, events};
        return {2 * ValueSize, 2, everyBlocks * (events / blocks)};
    }

    void write(int type) const;
    void writeEvents(Database& database) const;

    const long long blocks;
    const bool isSmall;  // small blocks keep the largest recordings short
    const long long events;
};

void Recording::write(int type) const {
    WdbFileManager file;
    file.create(path(type));
    const unsigned int blockSize = isSmall ? 512 : WdbEventDatabaseHeader::EventBlockSize;
    const long long header = Database::createEventSection(type, 1, WdbEventBlock::KeyAddresses,
                                                          WdbEventBlock::KeyAddresses, file);
    file.getBlockManager().putBlock(
        header + static_cast<long long>(offsetof(WdbEventDatabaseHeader, eventBlockSize)),
        reinterpret_cast<const char*>(&blockSize), sizeof(blockSize));
    std::unique_ptr<Database> database(Types::getInstance().create(type, file));
    database->initialize(header, /*writable=*/true);
    writeEvents(*database);
    database->setLatestTime(timeOf(events - 1));
    database.reset();
    file.close();
}

void Recording::writeEvents(Database& database) const {
    const std::array<Known, 3> all = {known(1), known(0), known(1000)};
    constexpr std::size_t Others = 24;  // that share one of the events of a time
    std::array<std::array<unsigned int, 2>, all.size() + EventsATime * Others> values{};
    std::mt19937_64 random(1);
    for (long long event = 0; event < events; ++event) {
        const auto dice = static_cast<unsigned int>(random());
        std::size_t object = 0;
        while (object < all.size() && event % all[object].period != all[object].firstEvent)
            ++object;
        const bool isKnown = object < all.size();
        if (!isKnown)
            object += static_cast<std::size_t>(event % EventsATime) * Others + dice % Others;
        unsigned int& value = values[object][0];
        value = isKnown ? static_cast<unsigned int>(event) : dice % 7 == 0 ? dice : value + 4;
        database.writeEvent(timeOf(event), static_cast<long long>(object * ValueSize), ValueSize,
                            reinterpret_cast<const unsigned char*>(values[object].data()));
    }
}

const Recording& recordingOf(long long blocks) {
    static std::unique_ptr<Recording> made;  // one at a time: they are large
    if (!made || made->blocks != blocks) {
        made.reset();
        made = std::make_unique<Recording>(blocks);
    }
    return *made;
}

struct OpenedFile {
    OpenedFile(const benchmark::State& state, int type) : recording(recordingOf(state.range(0))) {
        file.open(Recording::path(type));
        database.reset(Types::getInstance().create(type, file));
        database->initialize(
            file.getSectionFileOffset(Database::SectionID, Database::SectionVersion),
            /*writable=*/false);
        iterator = database->getAllEventBlockDatabaseIterator().at(0);
        block = WdbEventBlock(database->getEventDatabaseHeader().eventBlockSize, 0);
    }
    const Recording& recording;
    WdbFileManager file;
    std::unique_ptr<Database> database;
    Database::IteratorPtr iterator;
    WdbEventBlock block{0, 0};
};

class CountingStore : public WdbLockedBlockManager {
public:
    using WdbLockedBlockManager::WdbLockedBlockManager;

    void getBlock(long long handle, char* buffer, unsigned long long size) const override {
        constexpr std::size_t RecordSize = sizeof(WdbEventBTreeRecordBlock);
        if (size >= RecordSize) ++(size == RecordSize ? records : larger);
        WdbLockedBlockManager::getBlock(handle, buffer, size);
    }

    mutable double records = 0, larger = 0;
};

struct ReadByProcess {
    double bytes = 0, calls = 0;
    ReadByProcess() {
        std::string name, written;
        std::ifstream("/proc/self/io") >> name >> bytes >> name >> written >> name >> calls;
    }
};

// Asks about times spread evenly over the recording; each answer must be the known one.
template <typename Ask, typename Expect>
void askAround(benchmark::State& state, const OpenedFile& opened, Ask ask, Expect expected) {
    if (opened.iterator->getBlockCount() != static_cast<std::size_t>(opened.recording.blocks))
        return state.SkipWithError("another number of blocks");
    constexpr double GoldenRatio = 0.6180339887498949;
    const Known known = opened.recording.known(state.range(1));
    const auto lastTime = static_cast<double>(timeOf(opened.recording.events - 1));
    const ReadByProcess before;
    double place = 0;
    for (auto _ : state) {
        place += place + GoldenRatio >= 1 ? GoldenRatio - 1 : GoldenRatio;
        const auto time = static_cast<long long>(place * lastTime);
        if (ask(known.address, time) != std::invoke(expected, known, time))
            return state.SkipWithError("a wrong answer");
    }
    const ReadByProcess after;
    state.counters["bytesRead"] = {after.bytes - before.bytes, Average};
    state.counters["reads"] = {after.calls - before.calls, Average};
}

long long lastWrite(const WdbEventBlock& block, long long address, long long time) {
    long long last = NoValue;
    block.forEachEvent([&](const WdbEvent& event) {
        if (event.getTime() > time || event.getStartAddress() != address) return;
        unsigned int value;
        std::memcpy(&value, event.getValue(), sizeof(value));
        last = value;
    });
    return last;
}

// The block that is found may change the address only later: then the one before it that does.
void findValue(benchmark::State& state) {
    OpenedFile opened(state, Types::MultipleBtree);
    const WdbEventDatabaseHeader& header = opened.database->getEventDatabaseHeader();
    WdbFileBlockManager& file = opened.file.getBlockManager();
    CountingStore blocks(file, file);
    WdbFileBlockManagerWithCache cache(opened.file.getStream());
    CountingStore nodes(cache, file);
    const WdbEventBtree tree(blocks, nodes, header.bucketTableOffset, header.eventBlockSize, 0);
    const double readToOpen = blocks.larger;
    const auto ask = [&](long long address, long long time) {
        long long value = NoValue;
        for (long long t = time;
             value == NoValue && tree.findEventBlock(address, t, opened.block) != 0;
             t = opened.block.getStartTime() - 1)
            value = lastWrite(opened.block, address, time);
        return value;
    };
    askAround(state, opened, ask, &Known::lastChange);
    state.counters["nodes"] = {nodes.larger, Average};
    state.counters["records"] = {blocks.records, Average};
    state.counters["eventBlocks"] = {blocks.larger - readToOpen, Average};
}

void findValueScan(benchmark::State& state) {
    OpenedFile opened(state, Types::MultipleBucket);
    double unpacked = 0;
    const auto ask = [&](long long address, long long time) {
        long long value = NoValue;
        for (auto i = opened.iterator->getBlockCount(); i-- > 0 && value == NoValue; ++unpacked) {
            opened.iterator->moveTo(i);
            opened.iterator->getEventBlock(opened.block);
            value = lastWrite(opened.block, address, time);
        }
        return value;
    };
    askAround(state, opened, ask, &Known::lastChange);
    state.counters["eventBlocks"] = {unpacked, Average};
}

// What a viewer calls without an index: all bits of a word pair.
std::vector<WdbScalar> bitsOf(long long address) {
    std::vector<WdbScalar> bits;
    for (int bit = 0; bit < 32; ++bit)
        bits.push_back({address, bit});
    return bits;
}

void findValueSearch(benchmark::State& state, int type) {
    const OpenedFile opened(state, type);
    WdbBlockSearch search(*opened.database);
    std::vector<WdbByteValue> bits;
    const auto ask = [&](long long address, long long time) {
        search.getValues(time, bitsOf(address), bits);
        long long value = 0;
        for (std::size_t bit = 0; bit < bits.size(); ++bit)
            value |= static_cast<long long>(bits[bit].value & 1) << bit;
        return value;
    };
    askAround(state, opened, ask, &Known::lastChange);
}

void nextChange(benchmark::State& state, int type) {
    const OpenedFile opened(state, type);
    WdbBlockSearch search(*opened.database);
    const auto ask = [&](long long address, long long time) {
        return search.getNextChange(time, bitsOf(address));
    };
    const auto next = [&](const Known& known, long long time) {
        const long long event = known.lastChange(time) + known.period;
        return event < opened.recording.events ? timeOf(event) : NoValue;
    };
    askAround(state, opened, ask, next);
}

}  // namespace
}  // namespace Korvel

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    using namespace Korvel;
    const char* wanted = std::getenv("KORVEL_BENCH_BLOCKS");
    const long long most = wanted != nullptr ? std::atoll(wanted) : 1'000'000;
    for (std::int64_t blocks = 100; blocks <= most; blocks *= 10) {
        for (const std::int64_t every : {1, 1000, 0}) {
            const auto add = [&](const char* name, auto function, auto... type) {
                benchmark::RegisterBenchmark(name, function, type...)
                    ->ArgNames({"blocks", "every"})
                    ->Args({blocks, every})
                    ->UseRealTime()
                    ->Unit(benchmark::kMicrosecond);
            };
            add("findValue", findValue);
            add("findValueSearch", findValueSearch, Types::MultipleBtree);
            add("findValueSearchList", findValueSearch, Types::MultipleBucket);
            add("findValueScanList", findValueScan);
            add("nextChange", nextChange, Types::MultipleBtree);
            add("nextChangeList", nextChange, Types::MultipleBucket);
        }
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

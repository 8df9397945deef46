// What an engineer waits for: the first value, the first picture, and every redraw. Against an FST
// file with the same changes, where its library is there, and against what could not be less: only
// unpacking the blocks.

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <boost/thread/thread.hpp>

#include "bench/CoreRecording.h"
#include "container/WdbFileManager.h"
#include "events/WdbEventBlock.h"
#include "events/WdbEventBlockDatabaseFactory.h"
#include "events/WdbIEventBlockDatabase.h"
#include "indexes/WdbGapBTree.h"
#include "korvel/WdbEventReaderFactory.h"
#include "readers/WdbStaticReader.h"
#ifdef KORVEL_HAS_FST
#include <fstapi.h>
#endif

namespace Korvel {
namespace {

constexpr unsigned int DrawnObjects = 20;
constexpr long long Pixels = 1000;

std::uint64_t changesWanted(std::uint64_t usual) {
    const char* wanted = std::getenv("KORVEL_BENCH_CHANGES");
    return wanted != nullptr ? std::min<std::uint64_t>(usual, std::strtoull(wanted, nullptr, 10))
                             : usual;
}

const CoreRecording& core() {
    static const CoreRecording recording(changesWanted(80'000'000));
    return recording;
}

using ReaderPtr = std::unique_ptr<WdbIEventReader>;

ReaderPtr openReader() {
    ReaderPtr reader(
        WdbEventReaderFactory::getInstance().create(WdbEventReaderFactory::STATIC_READER));
    reader->createReader("", core().wdbPath(), 0, "");
    return reader;
}

void appendBits(unsigned int object, std::vector<WdbScalar>& scalars) {
    for (int bit = 0; bit < 32; ++bit)
        scalars.push_back({CoreRecording::addressOf(object), bit});
}

std::uint32_t valueAt(WdbIEventReader& reader, long long time, unsigned int object) {
    std::vector<WdbScalar> scalars;
    std::vector<WdbByteValue> values;
    appendBits(object, scalars);
    reader.getBTreeManager().getValues(time, scalars, values);
    std::uint32_t value = 0;
    for (unsigned int bit = 0; bit < 32; ++bit)
        value |= static_cast<std::uint32_t>(values[bit].value & 1) << bit;
    return value;
}

// Times spread over the recording, and objects that change often or seldom.
struct Question {
    long long time;
    unsigned int object;
};

Question questionOf(std::uint64_t number, unsigned int objects) {
    std::mt19937_64 random(number);
    const auto end = static_cast<std::uint64_t>(core().endTime());
    return {static_cast<long long>(random() % end), static_cast<unsigned int>(random() % objects)};
}

#ifdef KORVEL_HAS_FST
struct FstReader {
    void* context = fstReaderOpen(core().fstPath().c_str());
    ~FstReader() { fstReaderClose(context); }

    std::uint32_t valueAt(long long time, unsigned int object) const {
        char bits[40];
        const char* text = fstReaderGetValueFromHandleAtTime(
            context, static_cast<std::uint64_t>(time), object + 1, bits);
        return text != nullptr ? static_cast<std::uint32_t>(std::strtoul(text, nullptr, 2)) : 0;
    }
};
#endif

// --- Value at a time, nothing indexed. ---

void valueAtTime(benchmark::State& state) {
    const ReaderPtr reader = openReader();
#ifdef KORVEL_HAS_FST
    const FstReader fst;
    for (std::uint64_t i = 0; i < 20; ++i) {
        const Question question = questionOf(i, CoreRecording::Objects);
        if (valueAt(*reader, question.time, question.object) !=
            fst.valueAt(question.time, question.object))
            state.SkipWithError("the values differ");
    }
#endif
    std::uint64_t number = 1000;
    for (auto _ : state) {
        const Question question = questionOf(++number, static_cast<unsigned int>(state.range(0)));
        benchmark::DoNotOptimize(valueAt(*reader, question.time, question.object));
    }
}

void valueAtTimeOpening(benchmark::State& state) {
    core();  // is made outside the loop
    std::uint64_t number = 1000;
    for (auto _ : state) {
        const Question question = questionOf(++number, static_cast<unsigned int>(state.range(0)));
        benchmark::DoNotOptimize(valueAt(*openReader(), question.time, question.object));
    }
}

#ifdef KORVEL_HAS_FST
void valueAtTimeFst(benchmark::State& state) {
    const FstReader fst;
    std::uint64_t number = 1000;
    for (auto _ : state) {
        const Question question = questionOf(++number, static_cast<unsigned int>(state.range(0)));
        benchmark::DoNotOptimize(fst.valueAt(question.time, question.object));
    }
}

void valueAtTimeOpeningFst(benchmark::State& state) {
    core();  // is made outside the loop
    std::uint64_t number = 1000;
    for (auto _ : state) {
        const Question question = questionOf(++number, static_cast<unsigned int>(state.range(0)));
        benchmark::DoNotOptimize(FstReader().valueAt(question.time, question.object));
    }
}
#endif

// --- First draw: some objects over all time, from a file that nobody has looked at. ---

void firstDraw(benchmark::State& state) {
    core();  // is made outside the loop
    std::vector<WdbScalar> scalars;
    for (unsigned int i = 0; i < state.range(0); ++i)
        appendBits(i * CoreRecording::Objects / DrawnObjects, scalars);
    double bytes = 0;
    double records = 0;
    for (auto _ : state) {
        const ReaderPtr reader = openReader();
        const std::vector<WdbScalarBTree*> trees = reader->getBTreeManager().getBTrees(scalars);
        std::vector<WdbTimeByteValues> out;
        for (unsigned int i = 0; i < state.range(0); ++i) {
            out.clear();
            reader->getValueEvents(0, core().endTime(), core().endTime() / Pixels,
                                   {trees.begin() + 32 * i, trees.begin() + 32 * (i + 1)}, out);
        }
        if (out.empty()) state.SkipWithError("nothing was drawn");
        state.PauseTiming();
        bytes = static_cast<double>(reader->getBTreeManager().getIndexSize());
        records = 0;
        for (const WdbScalarBTree* tree : trees)
            records += static_cast<double>(tree->getRecordCount());
        state.ResumeTiming();
    }
    state.counters["records"] = records;
    state.counters["indexBytesPerRecord"] = bytes / records;
}

// Only unpacks the blocks of the buckets that hold the objects, on all cores.
void firstDrawUnpackOnly(benchmark::State& state) {
    core();  // is made outside the loop
    std::vector<long long> addresses;
    for (unsigned int i = 0; i < state.range(0); ++i)
        addresses.push_back(CoreRecording::addressOf(i * CoreRecording::Objects / DrawnObjects));
    for (auto _ : state) {
        WdbFileManager manager;
        manager.open(core().wdbPath());
        std::unique_ptr<WdbIEventBlockDatabase> database(
            WdbEventBlockDatabaseFactory::getInstance().create(
                WdbEventBlockDatabaseFactory::MultipleBucket, manager));
        database->initialize(manager.getSectionFileOffset(WdbIEventBlockDatabase::SectionID, 1),
                             false);
        std::vector<std::pair<WdbIEventBlockDatabase::IteratorPtr, WdbStoredBlock>> blocks;
        for (const auto& bucket : database->getEventBlockDatabaseIterator(addresses)) {
            for (; *bucket; ++*bucket)
                blocks.emplace_back(bucket, bucket->getStoredBlock());
        }
        std::atomic<std::size_t> next{0};
        boost::thread_group threads;
        for (unsigned int i = 0; i < boost::thread::hardware_concurrency(); ++i) {
            threads.create_thread([&] {
                WdbEventBlock block(WdbEventDatabaseHeader::EventBlockSize, 0);
                for (std::size_t b = next++; b < blocks.size(); b = next++)
                    blocks[b].first->loadStoredBlock(blocks[b].second, block);
            });
        }
        threads.join_all();
        state.counters["blocks"] = static_cast<double>(blocks.size());
    }
}

#ifdef KORVEL_HAS_FST
void firstDrawFst(benchmark::State& state) {
    core();  // is made outside the loop
    for (auto _ : state) {
        const FstReader fst;
        fstReaderClrFacProcessMaskAll(fst.context);
        for (unsigned int i = 0; i < state.range(0); ++i)
            fstReaderSetFacProcessMask(fst.context, 1 + i * CoreRecording::Objects / DrawnObjects);
        std::uint64_t changes = 0;
        fstReaderIterBlocks(
            fst.context,
            [](void* count, std::uint64_t, fstHandle, const unsigned char*) {
                ++*static_cast<std::uint64_t*>(count);
            },
            &changes, nullptr);
        if (changes == 0) state.SkipWithError("nothing was read");
        state.counters["records"] = static_cast<double>(changes);
    }
}
#endif

// --- Redraw: all of a scalar's time on a screen, whatever it did. ---

// Bursts of changes with pauses as long as they are, on the whole screen: nearly every pixel begins
// or ends a run.
std::unique_ptr<WdbScalarBTree> burstyTree(std::int64_t changes, std::size_t pageSize) {
    constexpr std::int64_t Bursts = 400;
    auto tree = std::make_unique<WdbScalarBTree>(0, WdbScalarBTree::WholeByte,
                                                 std::make_shared<WdbIndexPages>(pageSize));
    std::mt19937_64 random(1);
    long long time = 0;
    for (std::int64_t burst = 0; burst < Bursts; ++burst) {
        const long long begin = time;
        for (std::int64_t i = 0; i <= changes / Bursts; ++i) {
            time += 1 + static_cast<long long>(random() % 8);
            tree->records().add(time, static_cast<unsigned char>(i & 1));
        }
        time += time - begin;
    }
    return tree;
}

void redraw(benchmark::State& state) {
    const auto changes =
        static_cast<std::int64_t>(changesWanted(static_cast<std::uint64_t>(state.range(0))));
    const auto tree = burstyTree(changes, static_cast<std::size_t>(state.range(1)));
    const WdbStaticReader reader;
    const long long end = tree->getLastValueTime();
    std::vector<WdbTimeByteValues> out;
    for (auto _ : state) {
        out.clear();
        reader.getValueEvents(0, end, std::max(1LL, end / Pixels), {tree.get()}, out);
    }
    state.counters["snapshots"] = static_cast<double>(out.size());
}

}  // namespace
}  // namespace Korvel

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    using namespace Korvel;
    const auto add = [](const char* name, auto function) {
        return benchmark::RegisterBenchmark(name, function);
    };
    const auto addValue = [&](const char* name, auto function) {
        // Of the objects that change often, and of all.
        add(name, function)
            ->ArgName("objects")
            ->Arg(20)
            ->Arg(CoreRecording::Objects)
            ->Unit(benchmark::kMicrosecond);
    };
    const auto addDraw = [&](const char* name, auto function) {
        add(name, function)
            ->ArgName("objects")
            ->Arg(1)
            ->Arg(DrawnObjects)
            ->UseRealTime()
            ->Unit(benchmark::kMillisecond);
    };
    addValue("valueAtTime", valueAtTime);
    addValue("valueAtTimeOpening", valueAtTimeOpening);
    addDraw("firstDraw", firstDraw);
    addDraw("firstDrawUnpackOnly", firstDrawUnpackOnly);
#ifdef KORVEL_HAS_FST
    addValue("valueAtTimeFst", valueAtTimeFst);
    addValue("valueAtTimeOpeningFst", valueAtTimeOpeningFst);
    addDraw("firstDrawFst", firstDrawFst);
#endif
    auto* redraws =
        add("redraw", redraw)->ArgNames({"changes", "page"})->Unit(benchmark::kMicrosecond);
    for (std::int64_t changes = 1'000; changes <= 100'000'000; changes *= 10)
        redraws->Args({changes, static_cast<std::int64_t>(WdbIndexPages::DefaultPageSize)});
    for (const std::int64_t page : {256, 1024, 2048, 4096, 8192})
        redraws->Args({10'000'000, page});
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

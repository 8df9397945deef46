// What the simulation's thread pays for a recording, against what it could not do without: copying
// each change into a block, and compressing the blocks. The limits work on the same changes.

#include <malloc.h>
#include <zlib.h>

#include <filesystem>
#include <memory>

#include <benchmark/benchmark.h>
#include <unistd.h>

#include "bench/TraceScenario.h"
#include "container/WdbBlockCodec.h"
#include "writers/WdbStandAloneWriter.h"

namespace Korvel {
namespace {

using Kind = TraceScenario::Kind;

std::filesystem::path recordingPath() {
    return std::filesystem::temp_directory_path() /
           ("bench-record-" + std::to_string(::getpid()) + ".wdb");
}

// One scenario at a time: they are large, and benchmarks of one scenario follow each other.
TraceScenario& scenarioOf(Kind kind, unsigned int width, long long addresses) {
    struct Made {
        Kind kind;
        unsigned int width;
        long long addresses;
        std::unique_ptr<TraceScenario> scenario;
        bool isSame(Kind k, unsigned int w, long long a) const {
            return scenario && kind == k && width == w && addresses == a;
        }
    };
    static Made made;
    if (!made.isSame(kind, width, addresses)) {
        made.scenario.reset();
        made = {kind, width, addresses, std::make_unique<TraceScenario>(kind, width, addresses)};
    }
    return *made.scenario;
}

double heapMegabytes() {
    const struct mallinfo2 info = mallinfo2();
    return static_cast<double>(info.uordblks + info.hblkhd) / 1e6;
}

// A whole recording, from open to close. The last block of a bucket is part of the work.
void record(benchmark::State& state, Kind kind, unsigned int width, bool checkpoints,
            int databaseType = IWdbWriter::MultipleBucket) {
    TraceScenario& scenario = scenarioOf(kind, width, state.range(0));
    const std::string path = recordingPath().string();
    WdbStandAloneWriter writer;
    writer.setAddressSize(scenario.addressSize());
    writer.setCheckpointing(checkpoints);
    writer.setDatabaseType(databaseType);
    double peak = 0;
    for (auto _ : state) {
        const double before = heapMegabytes();
        writer.open(IWdbWriter::DefaultMode, path, path, 0);
        scenario.trace(writer);
        peak = heapMegabytes() - before;
        writer.close();
    }
    if (!scenario.isRecordedIn(path.c_str(), databaseType)) {
        state.SkipWithError("the recording lost or altered a change");
    }
    const auto changes = static_cast<double>(scenario.changeCount());
    state.counters["bytesPerChange"] =
        static_cast<double>(std::filesystem::file_size(path)) / changes;
    state.counters["heapMB"] = peak;
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(changes));
    std::filesystem::remove(path);
}

void copyOnly(benchmark::State& state, Kind kind, unsigned int width) {
    TraceScenario& scenario = scenarioOf(kind, width, state.range(0));
    for (auto _ : state) {
        scenario.copyOnly();
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(scenario.changeCount()));
}

// Every image through zlib's one-call form, as anybody would write it.
void compressOnly(benchmark::State& state, Kind kind, unsigned int width) {
    TraceScenario& scenario = scenarioOf(kind, width, state.range(0));
    std::vector<Bytef> stored(compressBound(WdbEventDatabaseHeader::EventBlockSize));
    for (auto _ : state) {
        for (const std::vector<char>& image : scenario.images()) {
            uLongf size = stored.size();
            compress2(stored.data(), &size, reinterpret_cast<const Bytef*>(image.data()),
                      image.size(), 1);
            benchmark::DoNotOptimize(size);
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(scenario.changeCount()));
}

// Every image through our codec, which keeps zlib's memory: the limit within the library.
void codecOnly(benchmark::State& state, Kind kind, unsigned int width) {
    TraceScenario& scenario = scenarioOf(kind, width, state.range(0));
    WdbBlockCodec codec;
    for (auto _ : state) {
        for (const std::vector<char>& image : scenario.images()) {
            benchmark::DoNotOptimize(codec.deflate(image.data(), image.size()).size);
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(scenario.changeCount()));
}

void registerScenario(const std::string& name, Kind kind, unsigned int width) {
    const auto add = [&](const std::string& suffix, auto function) {
        return benchmark::RegisterBenchmark((name + suffix).c_str(), function)
            ->ArgName("addresses")
            ->Unit(benchmark::kMillisecond);
    };
    for (const std::int64_t addresses : {100, 10'000, 1'000'000}) {
        add("", [=](benchmark::State& s) { record(s, kind, width, true); })->Arg(addresses);
        add("NoCheckpoint", [=](benchmark::State& s) {
            record(s, kind, width, false);
        })->Arg(addresses);
        add("Btree", [=](benchmark::State& s) {
            record(s, kind, width, true, IWdbWriter::MultipleBucketBtree);
        })->Arg(addresses);
        add("Single", [=](benchmark::State& s) {
            record(s, kind, width, true, IWdbWriter::SingleBucket);
        })->Arg(addresses);
        add("CompressOnly", [=](benchmark::State& s) {
            compressOnly(s, kind, width);
        })->Arg(addresses);
        add("CodecOnly", [=](benchmark::State& s) { codecOnly(s, kind, width); })->Arg(addresses);
        add("CopyOnly", [=](benchmark::State& s) { copyOnly(s, kind, width); })->Arg(addresses);
    }
}

}  // namespace
}  // namespace Korvel

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    using Korvel::registerScenario;
    registerScenario("traceVhdlByte", Korvel::Kind::Vhdl, 1);
    registerScenario("traceVlogBit", Korvel::Kind::Vlog, 1);
    registerScenario("traceVlogWord", Korvel::Kind::Vlog, 32);
    registerScenario("traceVlogWide", Korvel::Kind::Vlog, 512);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

// The smallest kernel of a simulator: a design, its description, and its trace calls.
//
//   simulator DIR [--live] [--cycles N] [--cycles-per-second R] [-o FILE]
//
// DIR is the snapshot's directory, torq.dir/NAME. The changes go into a recording, or, with --live,
// to whoever follows: the same trace calls do for both.

#include "description/DesignDescriptionWriter.h"
#include "korvel/IWdbWriter.h"
#include "korvel/WdbLiveSimulation.h"
#include "korvel/korvelApi.h"

#include <getopt.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

namespace {

using Korvel::IWdbWriter;

struct Options {
    std::string directory;
    std::string file;  // empty: "torq.wdb"
    bool isLive = false;
    long long cycles = 1000;
    double cyclesPerSecond = 0;  // 0: as fast as it goes
};

// Where the values lie in the data space. A Verilog value is a pair of words, value and second
// plane; a VHDL one is a byte an element.
enum Address { Clock = 0, Random = 8, Level = 16, Light = 24, DataSpaceSize = 25 };

// Positions in the enumeration type.
enum LightState : unsigned char { Red, RedYellow, Green, Yellow };
constexpr int CyclesOfState[] = {20, 4, 24, 6};

constexpr int TimeOfHalfCycle = 5;
constexpr std::uint32_t FifoDepth = 12;
constexpr std::uint32_t Seed = 0xACE1;

// A compiler does this once for a design; the kernel then finds the file in the snapshot.
void describeDesign(const std::string& file) {
    Korvel::DesignDescriptionWriter design;
    design.setTimeUnit({-9, 1});
    const Korvel::ScopeId top =
        design.addScope(Korvel::RootScope, Korvel::ScopeKind::Module, "top");
    const auto addRegister = [&](const char* name, Address address, std::int32_t width) {
        Korvel::ObjectDefinition object;
        object.name = name;
        object.scope = top;
        object.kind = Korvel::VariableKind::Reg;
        object.width = static_cast<std::uint32_t>(width);
        if (width > 1) object.range = {Korvel::RangeForm::Bounds, width - 1, 0};
        object.address = address;
        design.addObject(object);
    };
    addRegister("clk", Clock, 1);
    addRegister("random", Random, 16);
    addRegister("level", Level, 4);
    Korvel::ObjectDefinition light;
    light.name = "light";
    light.scope = top;
    light.kind = Korvel::VariableKind::Enum;
    light.representation = Korvel::ValueRepresentation::VhdlEnumeration;
    light.type = design.addEnumeration("light_state", {{"RED", Red, ""},
                                                       {"RED_YELLOW", RedYellow, ""},
                                                       {"GREEN", Green, ""},
                                                       {"YELLOW", Yellow, ""}});
    light.address = Light;
    design.addObject(light);
    const std::vector<std::uint8_t> bytes = design.finish();
    std::ofstream stream(file, std::ios::binary);
    stream.write(reinterpret_cast<const char*>(bytes.data()),
                 static_cast<std::streamsize>(bytes.size()));
}

// The values of the design, every change of which is traced. The writer is open.
class DataSpace {
public:
    explicit DataSpace(IWdbWriter& writer)
        : m_writer(writer),
          m_traceVlog(writer.getTraceVlogFunc()),
          m_traceVhdl(writer.getTraceVhdlFunc()) {
        writer.setBaseDPOffset(reinterpret_cast<long long>(m_bytes));
    }

    void setBits(Address address, unsigned int width, std::uint32_t value) {
        std::uint32_t pair[2] = {value, 0};
        unsigned char* const storage = m_bytes + address;
        if (!isFirst() && std::memcmp(storage, pair, sizeof(pair)) == 0) return;
        m_traceVlog(m_time, 0, 0, storage, reinterpret_cast<unsigned char*>(pair), 0, width);
        std::memcpy(storage, pair, sizeof(pair));  // only now: tracing needs the old bits too
    }

    void setState(Address address, unsigned char state) {
        if (!isFirst() && m_bytes[address] == state) return;
        m_bytes[address] = state;
        m_traceVhdl(m_time, 0, 1, m_bytes + address, &state);
    }

    /// Everything up to now has been traced.
    void advance() {
        m_writer.markCurrentTime(m_time);
        m_time += TimeOfHalfCycle;
    }

private:
    // A value that nothing was traced of is not known to anybody.
    bool isFirst() const { return m_time == 0; }

    IWdbWriter& m_writer;
    IWdbWriter::TraceVlogFunc m_traceVlog;
    IWdbWriter::TraceVhdlFunc m_traceVhdl;
    long long m_time = 0;
    unsigned char m_bytes[DataSpaceSize] = {};
};

// A shift register of random bits fills and empties a queue; a traffic light counts cycles.
void simulate(DataSpace& values, const Options& options) {
    const auto begin = std::chrono::steady_clock::now();
    std::uint32_t random = Seed;
    std::uint32_t level = 0;
    int light = Red;
    int cyclesOfLight = 0;
    for (long long cycle = 0; cycle < options.cycles; ++cycle) {
        values.setBits(Clock, 1, 1);
        values.setBits(Random, 16, random);
        values.setBits(Level, 4, level);
        values.setState(Light, static_cast<unsigned char>(light));
        values.advance();
        values.setBits(Clock, 1, 0);
        values.advance();

        random = random >> 1 ^ ((random & 1U) != 0 ? 0xB400U : 0U);
        if ((random & 1U) != 0 && level < FifoDepth) ++level;
        if ((random & 8U) != 0 && level > 0) --level;
        if (++cyclesOfLight == CyclesOfState[light]) {
            light = light == Yellow ? Red : light + 1;
            cyclesOfLight = 0;
        }
        if (options.cyclesPerSecond > 0) {
            const std::chrono::duration<double> due((static_cast<double>(cycle) + 1) /
                                                    options.cyclesPerSecond);
            std::this_thread::sleep_until(begin + due);
        }
    }
}

void run(const Options& options) {
    const std::string designPath = std::filesystem::path(options.directory) / "";
    const std::string snapshot = Korvel::WdbLiveSimulation(designPath).getDirectory();
    std::filesystem::create_directories(snapshot);
    describeDesign(snapshot + "/torq.dbg");

    auto* const writer = static_cast<IWdbWriter*>(
        options.isLive ? korvelApi_getWdbWriter() : korvelApi_getStandAloneWdbWriter());
    writer->setApplication("simulator example");
    writer->setAddressSize(DataSpaceSize);
    writer->open(options.isLive ? IWdbWriter::LiveMode : IWdbWriter::DefaultMode, designPath,
                 options.file, 0);
    DataSpace values(*writer);
    simulate(values, options);
    writer->close();
}

bool parse(int argc, char** argv, Options& options) {
    const option names[] = {{"live", no_argument, nullptr, 'l'},
                            {"cycles", required_argument, nullptr, 'c'},
                            {"cycles-per-second", required_argument, nullptr, 'r'},
                            {}};
    for (int found; (found = getopt_long(argc, argv, "o:", names, nullptr)) != -1;) {
        if (found == '?') return false;
        if (found == 'l') options.isLive = true;
        if (found == 'c') options.cycles = std::stoll(optarg);
        if (found == 'r') options.cyclesPerSecond = std::stod(optarg);
        if (found == 'o') options.file = optarg;
    }
    if (optind + 1 != argc) return false;
    options.directory = argv[optind];
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        Options options;
        if (parse(argc, argv, options)) {
            run(options);
            return 0;
        }
        std::fprintf(stderr,
                     "usage: %s DIR [--live] [--cycles N] [--cycles-per-second R] [-o FILE]\n",
                     argv[0]);
        return 2;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s: %s\n", argv[0], error.what());
        return 1;
    }
}

// Import, then export: every variable has the same value at every time as in the dump. The dumps
// are compared by a reader that shares nothing with the tool.

#include "tests/support/FileBytes.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/tools/NaiveVcd.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace Korvel {
namespace {

constexpr std::size_t SimulatedBytes = 300'000;

void run(const std::string& command) {
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
}

// What export makes of what import made of a dump.
std::string againOf(const std::string& dump) {
    const TemporaryDirectory directory;
    writeFile(directory.file("in.vcd"), dump);
    run("cd '" + directory.file("") +
        "' && '" WDB_TOOL "' import -q in.vcd r.wdb && '" WDB_TOOL "' export r.wdb - >out.vcd");
    return readFile(directory.file("out.vcd"));
}

// By name, each variable's values that lasted: of several at one time the last one, and only where
// it differs from the one before.
std::map<std::string, std::vector<NaiveVcd::History>> lasting(const NaiveVcd& dump) {
    std::map<std::string, std::vector<NaiveVcd::History>> histories;
    for (const NaiveVcd::Variable& variable : dump.variables) {
        NaiveVcd::History history;
        for (const auto& change : dump.historyOf(variable)) {
            if (!history.empty() && history.back().first == change.first) history.pop_back();
            if (history.empty() || history.back().second != change.second) {
                history.push_back(change);
            }
        }
        histories[variable.path].push_back(std::move(history));
    }
    return histories;
}

void expectSameAgain(const std::string& dump) {
    const NaiveVcd before(dump);
    const NaiveVcd after(againOf(dump));
    EXPECT_EQ(after.endTime, before.endTime);
    EXPECT_EQ(after.variables.size(), before.variables.size());
    const auto exported = lasting(after);
    for (const auto& [name, histories] : lasting(before)) {
        const auto found = exported.find(name);
        ASSERT_NE(found, exported.end()) << name;
        EXPECT_EQ(found->second, histories) << name;
    }
}

TEST(Export, keepsEveryValueOfRealDumps) {
    const char* fromEnvironment = std::getenv("KORVEL_REAL_DUMPS");
    const std::string folder = fromEnvironment != nullptr ? fromEnvironment : KORVEL_REAL_DUMPS;
    if (!std::filesystem::is_directory(folder)) GTEST_SKIP() << "no dumps in " << folder;
    for (const auto& file : std::filesystem::directory_iterator(folder)) {
        if (file.path().extension() != ".vcd") continue;
        SCOPED_TRACE(file.path().filename());
        expectSameAgain(readFile(file.path()));
    }
}

TEST(Export, keepsEveryValueOfASimulation) {
    if (*KORVEL_IVERILOG == 0 || *KORVEL_VVP == 0) GTEST_SKIP() << "no Icarus Verilog";
    const TemporaryDirectory directory;
    const std::string design = KORVEL_RISCV;
    const std::string file = directory.file("riscv");
    run(KORVEL_IVERILOG " -g2005 -y '" + design + "' -o '" + file + "' '" + design +
        "/testbench.v' && " KORVEL_VVP " -n '" + file + "' '+program=" + design +
        "/program.hex' '+dump=" + file + ".vcd' >'" + file + ".log'");
    // The beginning is enough, cut where a time ends.
    const std::string dump = readFile(file + ".vcd").substr(0, SimulatedBytes);
    expectSameAgain(dump.substr(0, dump.rfind("\n#") + 1));
}

// Dumping that ends and begins again, and what a dump cannot say with plain changes.
TEST(Export, keepsBlackoutsAndDescriptions) {
    const std::string dump =
        "$timescale 10ps $end\n$attrbegin misc 03 /src/top.vhd 1 $end\n"
        "$attrbegin misc 04 1 42 $end\n$scope vhdl_architecture top $end\n"
        "$attrbegin misc 02 STD_LOGIC 1030 $end\n$var logic 1 % s $end\n"
        "$attrbegin misc 07 t.st 2 IDLE RUN\\040IT 00 01 1 $end\n"
        "$attrbegin misc 07 \"\" 1 $end\n$var logic 2 & st [1:0] $end\n"
        "$var wire 1 ' \\a[3] $end\n$upscope $end\n$enddefinitions $end\n";
    const std::string changes =
        "#0\n$dumpvars\n$end\n#5\n$dumpoff\nx'\n$end\n#9\n$dumpon\n$end\n$dumpoff\n$end\n"
        "#12\n$dumpon\n1'\n$end\n#20\n";
    EXPECT_EQ(againOf(dump + changes), dump + changes);
}

}  // namespace
}  // namespace Korvel

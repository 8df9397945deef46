// Import, then export: every variable has the same value at every time as in the dump. The dumps
// are compared by a reader that shares nothing with the tool.

#include "tests/support/FileBytes.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/tools/NaiveVcd.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace Korvel {
namespace {

constexpr std::size_t SimulatedBytes = 300'000;

void run(const std::string& command) {
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
}

// What export makes of what import made of a dump. However a recording keeps its events, all verbs
// answer alike.
std::string againOf(const std::string& dump) {
    const TemporaryDirectory directory;
    writeFile(directory.file("in.vcd"), dump);
    run("set -e; wdb='" WDB_TOOL "'; cd '" + directory.file("") +
        "'; for type in btree buckets single; do"
        "  \"$wdb\" import -q --database $type in.vcd r.wdb;"
        "  \"$wdb\" export r.wdb - >out.vcd; cp out.vcd $type.txt;"
        "  \"$wdb\" changes r.wdb --limit 999 '*' >>$type.txt 2>&1;"
        "  for time in 0 7 999; do \"$wdb\" value r.wdb -t $time >>$type.txt 2>&1; done;"
        "  cmp btree.txt $type.txt; done");
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

// Random but valid dumps: every type, odd widths (one wider than an event can be, one across a
// bucket's end), shared codes, values shorter than declared or of other states, odd layout. Its
// seed chooses the codes, and so how they are found: dense, sparse, some too long, not ASCII.
class RandomDump {
public:
    explicit RandomDump(unsigned int seed) : m_random(seed) {
        m_codeBegin = pickOf({"", "aaaaa", "long_c", "\xe2\x82"}, seed);
        if (pick(2) == 0) text += "$timescale 10ps $end\n";
        text += "$scope module top $end\n";
        for (std::size_t i = 0; i < 300; ++i) {
            const bool isAlias = !m_codes.empty() && pick(6) == 0;
            const Code code = isAlias ? m_codes[pick(m_codes.size())] : newCode(i);
            if (!isAlias) m_codes.push_back(code);
            if (pick(10) == 0)
                text += "$scope begin b" + std::to_string(i) + " $end $upscope $end ";
            text += "$var " + code.type + ' ' + std::to_string(code.width) + ' ' + code.text +
                    " v" + std::to_string(i) + ' ' + blank() + "$end\n";
        }
        text += "$upscope $end $enddefinitions $end";
        for (int i = 0; i < 3000; ++i) {
            if (pick(4) == 0) text += blank() + '#' + std::to_string(m_time += pick(3) * pick(999));
            if (pick(50) == 0) text += blank() + "$comment b1 #7 $end";
            if (pick(90) == 0) text += blank() + pickOf({"$dumpoff $end", "$dumpon $end"});
            const Code& code = m_codes[pick(m_codes.size())];
            text += blank() + change(code);
            if (pick(20) == 0) text += blank() + '1' + code.text + '~';  // is not declared
        }
        text += '\n';
    }

    std::string text;

private:
    struct Code {
        std::string text;
        std::string type;
        std::size_t width;
        bool isVhdl;
    };

    std::size_t pick(std::size_t count) { return m_random() % count; }
    static std::string pickOf(const std::vector<const char*>& words, std::size_t number) {
        return words[number % words.size()];
    }
    std::string pickOf(const std::vector<const char*>& words) { return pickOf(words, m_random()); }
    std::string blank() { return pickOf({" ", "\n", "\r\n", "\t", "\n\n  "}); }

    Code newCode(std::size_t index) {
        std::string text = m_codeBegin;
        for (auto number = m_codes.size(); text == m_codeBegin || number != 0; number /= 94)
            text += static_cast<char>('!' + number % 94);
        const std::size_t widths[] = {1, 1, 2, 31, 32, 33, 64, 65, 700, 50000};
        return {text, pickOf({"wire", "reg", "logic", "real", "string", "event", "integer"}),
                widths[index == 7 ? 9 : pick(9)], pick(4) == 0};
    }

    std::string change(const Code& code) {
        if (code.type == "event") return '1' + code.text;
        if (code.type == "real") {
            return 'r' + std::to_string(static_cast<int>(pick(2000)) - 1000) + "e-" +
                   std::to_string(pick(20)) + blank() + code.text;
        }
        if (code.type == "string") {
            const std::size_t length = pick(40) == 0 ? 3000 : pick(3);
            return 's' + std::string(length, static_cast<char>('a' + pick(26))) + "\\040." +
                   blank() + code.text;
        }
        const std::string states = code.isVhdl ? "01UXxzWL-h" : "0011xXzZ01";
        std::string digits(1 + pick(code.width), states[pick(10)]);
        if (pick(3) != 0)
            std::generate(digits.begin(), digits.end(), [&] { return states[pick(10)]; });
        if (digits.size() == 1 && pick(2) == 0) return digits + code.text;
        return pickOf({"b", "B"}) + digits + blank() + code.text;
    }

    std::mt19937 m_random;
    std::string m_codeBegin;
    std::vector<Code> m_codes;
    unsigned long long m_time = 0;
};

TEST(Export, keepsEveryValueOfRandomDumps) {
    for (unsigned int seed = 1; seed <= 4; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        expectSameAgain(RandomDump(seed).text);
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
        "#12\n$dumpon\n1'\n$end\n#20\n$dumpoff\nx'\n$end\n";
    EXPECT_EQ(againOf(dump + changes), dump + changes);
}

}  // namespace
}  // namespace Korvel

#include "import/Importer.h"

#include "ToolError.h"
#include "description/DesignDescription.h"
#include "description/ValueText.h"
#include "korvel/korvelApi.h"
#include "tests/support/FileBytes.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/system/StoredRecording.h"
#include "tests/tools/NaiveVcd.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <random>

namespace Korvel {
namespace {

using ::testing::HasSubstr;

// A dump, imported through the library's own writer, and what the file then holds.
class Imported {
public:
    explicit Imported(const std::string& dump) {
        const TemporaryDirectory directory;
        const std::string file = directory.file("recording.wdb");
        VcdMemorySource source(dump);
        auto* writer = static_cast<IWdbWriter*>(korvelApi_getStandAloneWdbWriter());
        result = importVcd(source, "dump", file, *writer, [](double) {});
        const std::string bytes = readFile(file);
        m_recording = decode(bytes);
        for (const StoredSection& section : m_recording.sections) {
            if (section.id != "Pellon DBG") continue;
            const std::string text = bytes.substr(static_cast<std::size_t>(section.offset),
                                                  static_cast<std::size_t>(section.size));
            description = DesignDescription::fromBytes({text.begin(), text.end()});
        }
        if (!description) throw std::runtime_error("the recording has no description");
        for (const StoredEvent& event : m_recording.allEvents()) {
            m_events[event.address].push_back(events.size());
            events.push_back(event);
        }
    }

    NaiveVcd::History historyOf(const ObjectView& object) const {
        // An event may be cut where a bucket ends; the n-th pieces belong together.
        std::vector<std::pair<long long, std::string>> values;
        const auto end = m_events.lower_bound(object.address + object.size);
        for (auto piece = m_events.lower_bound(object.address); piece != end; ++piece) {
            values.resize(piece->second.size());
            for (std::size_t i = 0; i < values.size(); ++i) {
                const StoredEvent& event = events[piece->second[i]];
                values[i].first = event.time;
                values[i].second += event.value;
            }
        }
        for (auto& [time, bytes] : values) {
            std::string text;
            EXPECT_TRUE(appendValueText(text, object, bytes.data(), bytes.size(), [this](auto id) {
                return std::optional<std::string>(m_recording.strings.at(id - 1));
            }));
            const bool isReal = object.representation == ValueRepresentation::Real;
            bytes = isReal ? naiveReal(text) : text;
        }
        return values;
    }

    ImportResult result;
    std::optional<DesignDescription> description;
    std::vector<StoredEvent> events;
    long long latestTime() const { return m_recording.latestTime; }

private:
    StoredRecording m_recording;
    std::map<long long, std::vector<std::size_t>> m_events;  // by address, in time order
};

void expectAllIsThere(const std::string& dump) {
    const NaiveVcd naive(dump);
    const Imported imported(dump);
    EXPECT_EQ(imported.result.damage, "");
    EXPECT_EQ(imported.latestTime(), naive.endTime);
    ASSERT_EQ(imported.description->objectCount(), naive.variables.size());
    for (ObjectId id = 0; id < naive.variables.size(); ++id) {
        const NaiveVcd::Variable& variable = naive.variables[id];
        EXPECT_EQ(imported.description->objectPathWithRange(id), variable.path);
        EXPECT_EQ(imported.historyOf(imported.description->object(id)), naive.historyOf(variable))
            << variable.path;
    }
}

TEST(Import, keepsEveryChangeOfRealDumps) {
    const char* fromEnvironment = std::getenv("KORVEL_REAL_DUMPS");
    const std::string folder = fromEnvironment != nullptr ? fromEnvironment : KORVEL_REAL_DUMPS;
    if (!std::filesystem::is_directory(folder)) GTEST_SKIP() << "no dumps in " << folder;
    int count = 0;
    for (const auto& file : std::filesystem::directory_iterator(folder)) {
        if (file.path().extension() != ".vcd") continue;
        SCOPED_TRACE(file.path().filename());
        expectAllIsThere(readFile(file.path()));
        ++count;
    }
    EXPECT_GT(count, 0);
}

// Random but valid dumps: every type, odd widths (one wider than an event can be, one across a
// bucket's end), shared codes, values shorter than declared or of other states, odd layout.
class RandomDump {
public:
    explicit RandomDump(unsigned int seed) : m_random(seed) {
        m_text = pick(2) == 0 ? "" : "$timescale 10ps $end\n";
        m_text += "$scope module top $end\n";
        const char* const types[] = {"wire", "reg", "logic", "real", "string", "event", "integer"};
        const int widths[] = {1, 1, 2, 31, 32, 33, 64, 65, 700, 50000};
        for (int i = 0; i < 300; ++i) {
            const bool isAlias = !m_codes.empty() && pick(6) == 0;
            const Code code = isAlias ? m_codes[pick(m_codes.size())]
                                      : Code{newCode(), types[pick(7)],
                                             widths[i == 7 ? 9 : pick(9)], pick(4) == 0};
            if (!isAlias) m_codes.push_back(code);
            if (pick(10) == 0)
                m_text += "$scope begin b" + std::to_string(i) + " $end $upscope $end ";
            m_text += "$var " + std::string(code.type) + ' ' + std::to_string(code.width) + ' ' +
                      code.text + " v" + std::to_string(i) + ' ' + blank() + "$end\n";
        }
        m_text += "$upscope $end $enddefinitions $end";
        for (int i = 0; i < 3000; ++i) {
            if (pick(4) == 0)
                m_text += blank() + '#' + std::to_string(m_time += pick(3) * pick(999));
            if (pick(50) == 0) m_text += blank() + "$comment b1 #7 $end";
            if (pick(90) == 0)
                m_text += blank() + (pick(2) == 0 ? "$dumpoff $end" : "$dumpon $end");
            m_text += blank() + change(m_codes[pick(m_codes.size())]);
        }
        m_text += '\n';
    }

    const std::string& text() const { return m_text; }

private:
    struct Code {
        std::string text;
        std::string type;
        int width;
        bool isVhdl;
    };

    std::size_t pick(std::size_t count) { return m_random() % count; }

    std::string blank() {
        const char* const blanks[] = {" ", "\n", "\r\n", "\t", "\n\n  "};
        return blanks[pick(5)];
    }

    std::string newCode() {
        std::string code;
        for (auto number = m_codes.size(); code.empty() || number != 0; number /= 94) {
            code += static_cast<char>('!' + number % 94);
        }
        return code;
    }

    std::string change(const Code& code) {
        if (code.type == "event") return '1' + code.text;
        if (code.type == "real") {
            return 'r' + std::to_string(static_cast<int>(pick(2000)) - 1000) + "e-" +
                   std::to_string(pick(20)) + blank() + code.text;
        }
        if (code.type == "string") {
            return 's' +
                   std::string(pick(40) == 0 ? 3000 : pick(3), static_cast<char>('a' + pick(26))) +
                   "\\040." + blank() + code.text;
        }
        const std::string states = code.isVhdl ? "01UXxzWL-h" : "0011xXzZ01";
        std::string digits;
        const auto length = 1 + pick(static_cast<std::size_t>(code.width));
        const bool isRun = pick(3) == 0;
        for (std::size_t i = 0; i < length; ++i) {
            digits += isRun && i > 0 ? digits[0] : states[pick(states.size())];
        }
        if (length == 1 && pick(2) == 0) return digits + code.text;
        return (pick(2) == 0 ? 'b' : 'B') + digits + blank() + code.text;
    }

    std::mt19937 m_random;
    std::string m_text;
    std::vector<Code> m_codes;
    unsigned long long m_time = 0;
};

TEST(Import, keepsEveryChangeOfRandomDumps) {
    for (unsigned int seed = 1; seed <= 5; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        expectAllIsThere(RandomDump(seed).text());
    }
}

const std::string Small =
    "$timescale 1 ns $end $scope module top $end\n"
    "$var wire 4 ! bus [3:0] $end $var wire 1 \" clk $end\n"
    "$upscope $end $enddefinitions $end\n";

// Whatever a killed simulator leaves: the events are those of the whole dump up to some change.
TEST(Import, keepsWhatComesBeforeACut) {
    const std::string dump =
        Small + "#0\n$dumpvars\nb1x !\n0\"\n$end\n#10\n1\"\n$comment bla $end\nb0110 !\n#25\n0\"\n";
    const std::vector<StoredEvent> all = Imported(dump).events;
    std::size_t mostEvents = 0;
    for (std::size_t cut = Small.size(); cut < dump.size(); ++cut) {
        const Imported imported(dump.substr(0, cut));
        for (const StoredEvent& event : imported.events) {
            EXPECT_NE(std::find(all.begin(), all.end(), event), all.end()) << "cut at " << cut;
        }
        EXPECT_GE(imported.events.size(), mostEvents) << "cut at " << cut;
        mostEvents = std::max(mostEvents, imported.events.size());
        const std::string& damage = imported.result.damage;
        EXPECT_TRUE(damage.empty() || damage.rfind("line ", 0) == 0) << "cut at " << cut;
    }
    EXPECT_EQ(mostEvents, all.size());
}

struct NoteCase {
    const char* name;
    std::string dump;
    const char* damage;   // a part of it, or ""
    const char* warning;  // the same
    std::size_t events;
};

const NoteCase NoteCases[] = {
    {"nothingToSay", Small + "#0 1\"\n", "", "", 1},
    {"timeBack", Small + "#5\n1\"\n#4\n0\"\n", "line 6: time goes back from 5 to 4", "", 1},
    {"garbage", Small + "#5\n1\"\n\n\x01garbage\n", "line 7: ", "", 1},
    {"noTimescale", Small.substr(Small.find("$scope")) + "1\"\n", "", "no $timescale", 1},
    {"oddTimescale", "$timescale 3 weeks $end" + Small.substr(21) + "1\"\n", "", "3weeks", 1},
    {"undeclared", Small + "1? 1? 0\"\n", "", "2 value changes of identifier codes", 1},
    {"tooManyDigits", Small + "b10101 !\n", "", "1 vectors with more digits", 1},
    {"wrongKind", Small + "r1.5 ! b1 !\n", "", "1 value changes left out", 1},
    {"noNumber", "$var real 64 ! r $end $enddefinitions $end r1,5 ! r2 !\n", "",
     "1 real values left out", 1},
};

TEST(Import, saysWhatIsWrong) {
    for (const NoteCase& row : NoteCases) {
        const Imported imported(row.dump);
        EXPECT_THAT(imported.result.damage, HasSubstr(row.damage)) << row.name;
        EXPECT_EQ(imported.result.damage.empty(), *row.damage == 0) << row.name;
        const std::string warnings = ::testing::PrintToString(imported.result.warnings);
        EXPECT_THAT(warnings, HasSubstr(row.warning)) << row.name;
        EXPECT_EQ(imported.result.warnings.empty(), *row.warning == 0) << row.name << warnings;
        EXPECT_EQ(imported.events.size(), row.events) << row.name;
    }
}

// What values are decides where the declaration is wrong about them, so that none is lost.
TEST(Import, followsTheValuesWhereTheDeclarationIsWrong) {
    const Imported imported(
        "$timescale 1ns $end $var wire 64 ! number $end $var real 64 \" bits $end\n"
        "$var wire 8 # text $end $var string 0 $ word $end $var wire 1 % never $end\n"
        "$enddefinitions $end r1.5 ! b101 \" sok # sok $\n");
    const ValueRepresentation expected[] = {
        ValueRepresentation::Real, ValueRepresentation::VerilogFourState,
        ValueRepresentation::String, ValueRepresentation::String,
        ValueRepresentation::VerilogFourState};
    for (ObjectId id = 0; id < 5; ++id) {
        EXPECT_EQ(imported.description->object(id).representation, expected[id]) << id;
    }
    EXPECT_EQ(imported.events.size(), 4U);
    EXPECT_TRUE(imported.result.warnings.empty());
}

TEST(Import, describesWhatAttributesSay) {
    const Imported imported(
        "$timescale 1ns $end\n$attrbegin misc 03 /src/top.vhd 1 $end $attrbegin misc 04 1 42 $end\n"
        "$scope vhdl_architecture top $end\n$attrbegin misc 02 STD_LOGIC 1030 $end\n"
        "$var logic 1 ! s $end\n$attrbegin misc 07 t.st 2 IDLE RUN\\040IT 00 01 9 $end\n"
        "$attrbegin misc 07 \"\" 9 $end $var logic 2 \" st [1:0] $end\n"
        "$upscope $end $enddefinitions $end\n#5 $dumpoff $end #9 $dumpon $end #12 $dumpoff $end\n");
    const DesignDescription& description = *imported.description;
    EXPECT_EQ(description.scope(0).kind, ScopeKind::VhdlArchitecture);
    ASSERT_EQ(description.scopeAttributes(0).size(), 1U);
    EXPECT_EQ(description.scopeAttributes(0)[0].text, "/src/top.vhd");
    EXPECT_EQ(description.scopeAttributes(0)[0].first, 42);
    EXPECT_EQ(description.object(0).kind, VariableKind::StdLogic);
    EXPECT_EQ(description.typeName(description.object(0).type), "STD_LOGIC");
    const TypeId states = description.object(1).type;
    ASSERT_EQ(description.literalCount(states), 2U);
    EXPECT_EQ(description.literal(states, 1).name, "RUN IT");
    EXPECT_EQ(description.literal(states, 1).bits, "01");
    const std::vector<Blackout> blackouts = description.blackouts();
    ASSERT_EQ(blackouts.size(), 2U);
    EXPECT_EQ(blackouts[0].start, 5);
    EXPECT_EQ(blackouts[0].end, 9);
    EXPECT_EQ(blackouts[1].start, 12);
    EXPECT_EQ(blackouts[1].end, OpenEnd);
}

}  // namespace
}  // namespace Korvel

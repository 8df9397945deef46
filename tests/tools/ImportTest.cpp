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
#include <map>
#include <random>

namespace Korvel {
namespace {

using namespace ::testing;

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

TEST(Import, keepsEveryChangeOfRandomDumps) {
    for (unsigned int seed = 1; seed <= 8; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        const RandomDump dump(seed);
        const NaiveVcd naive(dump.text);
        const Imported imported(dump.text);
        EXPECT_EQ(imported.result.damage, "");
        EXPECT_EQ(imported.latestTime(), naive.endTime);
        ASSERT_EQ(imported.description->objectCount(), naive.variables.size());
        for (ObjectId id = 0; id < naive.variables.size(); ++id) {
            const NaiveVcd::Variable& variable = naive.variables[id];
            EXPECT_EQ(imported.description->objectPathWithRange(id), variable.path);
            EXPECT_EQ(imported.historyOf(imported.description->object(id)),
                      naive.historyOf(variable))
                << variable.path;
        }
    }
}

const std::string Small =
    "$timescale 1 ns $end $scope module top $end\n"
    "$var wire 4 ! bus [3:0] $end $var wire 1 \" clk $end\n"
    "$upscope $end $enddefinitions $end\n";

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
    {"cut", Small + "#5\n1\"\n#7\nb01", "line 7: the dump ends within a value change", "", 1},
    {"noTimescale", Small.substr(Small.find("$scope")) + "1\"\n", "", "no $timescale", 1},
    {"oddTimescale", "$timescale 3 weeks $end" + Small.substr(21) + "1\"\n", "", "3weeks", 1},
    {"undeclared", Small + "1? 1? 0\"\n", "", "2 value changes of identifier codes", 1},
    {"port", Small + "p0 0 0 <0 0\"\n", "", "1 value changes of extended ports", 1},
    {"command", Small + "$nobody x $end 0\" $comment $end\n", "", "1 unknown commands", 1},
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
        const std::string warnings = PrintToString(imported.result.warnings);
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
    using enum ValueRepresentation;
    ObjectId id = 0;
    for (const auto expected : {Real, VerilogFourState, String, String, VerilogFourState})
        EXPECT_EQ(imported.description->object(id++).representation, expected) << id;
    EXPECT_EQ(imported.events.size(), 4U);
    EXPECT_THAT(imported.result.warnings, IsEmpty());
}

// What is said twice; the rest comes back when it is exported.
TEST(Import, describesWhatAttributesSay) {
    const Imported imported(
        "$timescale 1ns $end\n$attrbegin misc 03 /src/top.vhd 1 $end $attrbegin misc 04 1 42 $end\n"
        "$scope vhdl_architecture top $end\n$attrbegin misc 07 t.st 2 IDLE RUN\\040IT 00 01 9 "
        "$end\n"
        "$attrbegin misc 07 \"\" 9 $end $var logic 2 \" st [1:0] $end\n"
        "$upscope $end $enddefinitions $end\n#5 $dumpoff $end #9 $dumpon $end #12 $dumpoff $end\n");
    const DesignDescription& description = *imported.description;
    EXPECT_THAT(description.scopeAttributes(0), ElementsAre(FieldsAre(_, "/src/top.vhd", 42, _)));
    EXPECT_THAT(description.literal(description.object(0).type, 1), FieldsAre("RUN IT", _, "01"));
    EXPECT_THAT(description.blackouts(), ElementsAre(FieldsAre(5, 9), FieldsAre(12, OpenEnd)));
}

}  // namespace
}  // namespace Korvel

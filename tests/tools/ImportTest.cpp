#include "import/Importer.h"

#include "description/DesignDescription.h"
#include "korvel/korvelApi.h"
#include "tests/support/FileBytes.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/system/StoredRecording.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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
        const StoredRecording recording = decode(bytes);
        for (const StoredSection& section : recording.sections) {
            if (section.id != "Pellon DBG") continue;
            const std::string text = bytes.substr(static_cast<std::size_t>(section.offset),
                                                  static_cast<std::size_t>(section.size));
            description = DesignDescription::fromBytes({text.begin(), text.end()});
        }
        if (!description) throw std::runtime_error("the recording has no description");
        events = recording.allEvents();
    }

    ImportResult result;
    std::optional<DesignDescription> description;
    std::vector<RecordedEvent> events;
};

const std::string Small =
    "$timescale 1 ns $end $scope module top $end\n"
    "$var wire 4 ! bus [3:0] $end $var wire 1 \" clk $end\n"
    "$upscope $end $enddefinitions $end\n";

std::string many(int number, const std::string& change) {
    std::string all;
    while (number-- > 0)
        all += change;
    return all;
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
    {"severalAtOneTime", Small + many(1000, "0\"\n1\"\n"), "", "", 2000},
    {"timeBack", Small + "#5\n1\"\n#4\n0\"\n", "line 6: time goes back from 5 to 4", "", 1},
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

}  // namespace
}  // namespace Korvel

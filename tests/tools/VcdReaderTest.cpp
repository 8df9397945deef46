#include "vcd/VcdReader.h"

#include "vcd/VcdDeclarations.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace Korvel {
namespace {

using ::testing::HasSubstr;

// Codes: a one-character one, two that begin with it, and one too long for a table.
const std::string Header =
    "$timescale 1ns $end $scope module top $end\n"
    "$var wire 8 ! data [7:0] $end $var wire 1 !! clk $end $var real 64 !\" r $end\n"
    "$var string 1 long_code_9 s $end $upscope $end $enddefinitions $end\n";

// Spells what it is told, an item a call: "#5 0=1 1=b01x(3)". Classes are in brackets.
struct Speller {
    const std::size_t limit;
    std::string said;

    bool onTime(long long time) { return say("#" + std::to_string(time)); }
    void onScalar(std::uint32_t signal, char digit) { value(signal, {&digit, 1}); }
    void onVector(std::uint32_t signal, std::string_view digits, std::uint8_t classes) {
        value(signal, "b", digits, '(' + std::to_string(classes) + ')');
    }
    void onReal(std::uint32_t signal, std::string_view text) { value(signal, "r", text); }
    void onText(std::uint32_t signal, std::string_view text) { value(signal, "s", text); }
    void onDumping(bool isOn) { say(isOn ? "on" : "off"); }
    bool onProgress(std::uint64_t) { return true; }

    void value(std::uint32_t signal, std::string kind, std::string_view text = {},
               const std::string& end = {}) {
        say(std::to_string(signal) + '=' + kind.append(text) + end);
    }
    bool say(const std::string& item) {
        said += (said.empty() ? "" : " ") + item;
        return said.size() < limit;
    }
};

struct Reading {
    std::string said;
    VcdOutcome outcome;
    std::string left;  // from the outcome's offset on
};

Reading read(const std::string& changes, std::size_t chunk, std::size_t limit = 1 << 20) {
    const std::string text = Header + changes;
    VcdMemorySource source(text);
    VcdTokenizer declarationTokens(source, 0, UINT64_MAX, chunk);
    const VcdDeclarations declarations = readVcdDeclarations(declarationTokens);
    VcdTokenizer tokens(source, declarations.endOffset, UINT64_MAX, chunk);
    Speller speller{limit, ""};
    VcdReader reader(tokens, declarations.ids, speller);
    Reading reading;
    reading.outcome = reader.read();
    reading.said = speller.said;
    reading.left = text.substr(reading.outcome.offset);
    return reading;
}

// Where the window ends must not matter: chunks from one byte up cut every item at every place.
constexpr std::size_t Chunks[] = {1, 2, 3, 7, 16, 61, VcdTokenizer::DefaultChunk};

struct GoodCase {
    const char* name;
    std::string changes;
    std::string said;
};

const GoodCase GoodCases[] = {
    {"vectorClasses", "b0 !\nB1010101010 !\nbz01x !\nbUX1 !\nb- !\n",
     "0=b0(1) 0=b1010101010(1) 0=bz01x(3) 0=bUX1(7) 0=b-(4)"},
    {"realsAndTexts", "r1.5e-3 !\"\nRNaN !\"\nsab\\040c long_code_9\ns long_code_9\n",
     "2=r1.5e-3 2=rNaN 3=sab\\040c 3=s"},
    {"textWithBlanksGoesToTheLastCode", "sto be or long_code_9\n1!!\n", "3=sto be or 1=1"},
    {"valuesBeforeTheFirstTime", "1!!\n#7\n0!!\n", "1=1 #7 1=0"},
    {"sameTimeTwiceIsOneTime", "#3\n#3\n1!!\n", "#3 1=1"},
    {"greatestTime", "#9223372036854775807\n", "#9223372036854775807"},
    {"dumpCommands",
     "$dumpvars 1!! $end #1 $dumpoff x!! $end #2 $dumpon 0!! $end $dumpall 1!! $end $end\n",
     "1=1 #1 off 1=x #2 on 1=0 1=1"},
    {"commentsAndUnknownCommands", "#1 $comment 1!! #9 $end 0!!\n$vcdclose #5 $end\n1!!\n",
     "#1 1=0 1=1"},
    {"undeclaredCodesAreSkipped", "1? b1 !!! r1 longer_than_8 1~~~~~ 1\x7f 0!!\n", "1=0"},
    {"noLineEndAtTheEnd", "1!!\nb1 !!", "1=1 1=b1(1)"},
};

TEST(VcdReader, readsWhateverTheWindow) {
    for (const GoodCase& row : GoodCases) {
        for (const std::size_t chunk : Chunks) {
            const Reading reading = read(row.changes, chunk);
            EXPECT_EQ(reading.said, row.said) << row.name << ", chunk " << chunk;
            EXPECT_EQ(reading.outcome.kind, VcdOutcome::AtEnd)
                << row.name << ", chunk " << chunk << ": " << reading.outcome.reason;
        }
    }
}

struct BadCase {
    const char* name;
    std::string changes;
    std::string said;    // what comes before
    std::string left;    // the item that is bad, and all behind it
    std::string reason;  // a part of it
};

const BadCase BadCases[] = {
    {"timeGoesBack", "#5 1!!\n#4\n0!!\n", "#5 1=1", "#4\n0!!\n", "back from 5 to 4"},
    {"timeTooLarge", "#9223372036854775808\n", "", "#9223372036854775808\n", "beyond"},
    {"timeIsNoNumber", "#1 #1x\n", "#1", "#1x\n", "no number"},
    {"negativeTime", "#-1\n", "", "#-1\n", "no number"},
    {"noDigit", "1!! b012 ! 0!!\n", "1=1", "b012 ! 0!!\n", "no digit"},
    {"noValueChange", "1!! ?? 0!!\n", "1=1", "?? 0!!\n", "expected"},
    {"cutScalar", "0!! 1", "1=0", "1", "ends within a value change"},
    {"cutVector", "0!! b101", "1=0", "b101", "ends within a value change"},
    {"cutVectorBeforeItsCode", "0!! b101 ", "1=0", "b101 ", "ends within a value change"},
    {"cutCodeCouldGoOn", "0!! b101 !", "1=0", "b101 !", "ends within a value change"},
    {"cutCodeOfNobody", "0!! r1 long", "1=0", "r1 long", "ends within a value change"},
    {"cutPort", "0!! p0 6 0", "1=0", "p0 6 0", "ends within a value change"},
    {"cutTime", "#120 0!! #1", "#120 1=0", "#1", "ends within a time"},
    {"cutCommand", "0!! $dum", "1=0", "$dum", "ends within a command"},
    {"openComment", "0!! $comment 1!!\n", "1=0", "", "$end is missing"},
};

TEST(VcdReader, stopsBeforeDamage) {
    for (const BadCase& row : BadCases) {
        for (const std::size_t chunk : Chunks) {
            const Reading reading = read(row.changes, chunk);
            EXPECT_EQ(reading.outcome.kind, VcdOutcome::Damaged) << row.name;
            EXPECT_EQ(reading.said, row.said) << row.name << ", chunk " << chunk;
            EXPECT_EQ(reading.left, row.left) << row.name << ", chunk " << chunk;
            EXPECT_THAT(reading.outcome.reason, HasSubstr(row.reason)) << row.name;
        }
    }
}

TEST(VcdReader, stopsWhenTheHandlerSaysSo) {
    const Reading reading = read("#1 1!! #2 0!!\n", 16, /*limit=*/9);
    EXPECT_EQ(reading.outcome.kind, VcdOutcome::Stopped);
    EXPECT_EQ(reading.left, "#2 0!!\n");
}

TEST(VcdText, unescapes) {
    const std::string zero("\0001", 2);
    EXPECT_EQ(unescapeVcdText("plain a\\040b\\'z\\'\\n\\t\\\\\\x41\\101\\0001\\7"),
              "plain a b'z'\n\t\\AA" + zero + '\a');
    EXPECT_EQ(unescapeVcdText("end\\"), "end\\");
}

}  // namespace
}  // namespace Korvel

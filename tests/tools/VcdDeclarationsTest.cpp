#include "vcd/VcdDeclarations.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>

namespace Korvel {
namespace {

using ::testing::HasSubstr;

VcdDeclarations declarationsOf(const std::string& text) {
    VcdMemorySource source(text);
    VcdTokenizer tokens(source, 0, UINT64_MAX, /*chunk=*/16);
    return readVcdDeclarations(tokens);
}

// "wire data|7:0|8 s0", an index as "|3|", no range as "|".
std::string spell(const VcdDeclarations& declarations, const VcdVariable& variable) {
    std::string text = declarations.keywords[variable.keyword] + ' ' +
                       std::string(declarations.nameOf(variable)) + '|';
    if (variable.hasRange) text += std::to_string(variable.left);
    if (variable.hasRange && !variable.isIndex) text += ':' + std::to_string(variable.right);
    return text + '|' + std::to_string(variable.width) + " s" + std::to_string(variable.signal);
}

// What stands between "$var" and "$end", and how it is read.
const std::pair<const char*, const char*> NameCases[] = {
    {"wire 8 ! data $end", "wire data||8 s0"},
    {"wire 8 ! data[7:0]", "wire data|7:0|8 s0"},
    {"wire 8 ! data [ 7 : 0 ]", "wire data|7:0|8 s0"},
    {"reg 4 ! up [0:3]", "reg up|0:3|4 s0"},
    {"reg 4 ! neg [-1:2]", "reg neg|-1:2|4 s0"},
    {"wire 1 ! r_nxt [2]", "wire r_nxt|2|1 s0"},
    {"logic 8 ! mem[3][7:0]", "logic mem[3]|7:0|8 s0"},
    {"logic 8 ! mem[3]", "logic mem[3]||8 s0"},
    {"logic 16 ! packed[1:0][7:0]", "logic packed[1:0][7:0]||16 s0"},
    {"reg 8 ! mem(0)", "reg mem(0)||8 s0"},
    {"reg 8 ! \\esc[7:0] [7:0]", "reg esc[7:0]|7:0|8 s0"},
    {"reg 1 ! \\a.b", "reg a.b||1 s0"},
    {"reg 1 ! \\vhdl.ext\\", "reg \\vhdl.ext\\||1 s0"},
    {"string 0 ! text[1:10]", "string text|1:10|0 s0"},
    {"wire 1 $end odd", "wire odd||1 s0"},
    {"port [7:0] <0 bus", "port bus||8 s0"},
    {"wire 1 ! two words", "wire two words||1 s0"},
    {"wire 8 ! huge[99999999999:0]", "wire huge[99999999999:0]||8 s0"},
};

TEST(VcdDeclarations, tellsNameFromRange) {
    for (const auto& [variable, spelled] : NameCases) {
        const VcdDeclarations declarations =
            declarationsOf(std::string("$var ") + variable + " $end\r\n$enddefinitions $end\r\n");
        ASSERT_EQ(declarations.variables.size(), 1U) << variable;
        EXPECT_EQ(spell(declarations, declarations.variables[0]), spelled);
    }
}

TEST(VcdDeclarations, readsAWholeHeader) {
    const VcdDeclarations declarations = declarationsOf(
        "$comment made by hand $end\n$date\n\t Mon  Jan 1\n$end $version any 1.0 $end\n"
        "$timescale\n 10 ps $end $timezero -5 $end\n"
        "$attrbegin misc 02 STD_LOGIC 1030 $end $var wire 1 % outside $end\n"
        "$scope module top $end $var reg 4 ! a $end $scope begin \\b[0] $end\n"
        "$var wire 8 ! alias $end $upscope $end $upscope $end\n"
        "$scope module top $end $var event 1 # e $end $upscope $end $upscope $end\n"
        "$whatever 1 2 $end $enddefinitions $end\n#0\n");
    EXPECT_EQ(declarations.comments, std::vector<std::string>{"made by hand"});
    EXPECT_EQ(declarations.date, "Mon Jan 1");
    EXPECT_EQ(declarations.version, "any 1.0");
    EXPECT_EQ(declarations.timescale, "10ps");
    EXPECT_EQ(declarations.timeZero, -5);
    EXPECT_EQ(declarations.variables[0].scope, VcdNoScope);
    EXPECT_EQ(declarations.variables[3].scope, 0U) << "the same scope again";
    EXPECT_EQ(declarations.scopes.size(), 2U);
    EXPECT_EQ(declarations.variables[2].signal, 1U);
    EXPECT_EQ(declarations.signals[1].width, 8U);
    EXPECT_EQ(declarations.signals[2].kind, VcdValueKind::Event);
    ASSERT_EQ(declarations.attributes.size(), 1U);
    EXPECT_EQ(declarations.attributes[0].text, "misc 02 STD_LOGIC 1030");
    EXPECT_THAT(declarations.warnings,
                ::testing::ElementsAre(HasSubstr("different widths"), HasSubstr("$upscope"),
                                       HasSubstr("$whatever")));
}

const std::tuple<const char*, const char*, std::uint64_t> BadHeaders[] = {
    // the header, a part of the reason, the offset
    {"", "nothing is declared", 0},
    {"\177ELF\x02 binary", "is no value-change dump", 0},
    {"$date today $end", "nothing is declared", 16},
    {"$var wire 1 ! a $end ", "before $enddefinitions", 21},
    {" $var wire 1 ! a", "$end is missing", 1},
    {"$var wire 1 ! $end", "needs type, width", 0},
    {"$var wire one ! a $end", "\"one\" is no width", 0},
    {"$var wire 99999999 ! a $end", "too wide", 0},
    {"$scope $end", "no name", 0},
};

TEST(VcdDeclarations, refusesDamagedHeaders) {
    for (const auto& [text, reason, offset] : BadHeaders) {
        try {
            declarationsOf(text);
            FAIL() << text;
        } catch (const VcdError& error) {
            EXPECT_THAT(error.what(), HasSubstr(reason));
            EXPECT_EQ(error.offset(), offset) << text;
        }
    }
}

TEST(VcdDeclarations, changesMayBeginWithoutEnd) {
    const std::string header = "$var wire 1 ! a $end\n";
    for (const char* changes : {"#0\n1!\n", "$dumpvars 1! $end\n", "1!\n"}) {
        const VcdDeclarations declarations = declarationsOf(header + changes);
        EXPECT_EQ(declarations.endOffset, header.size());
        EXPECT_FALSE(declarations.warnings.empty());
    }
}

}  // namespace
}  // namespace Korvel

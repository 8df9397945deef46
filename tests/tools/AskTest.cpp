// The tool as its user meets it: names on the command line, spelling of values, exit status.

#include "ToolError.h"
#include "ask/ObjectArguments.h"
#include "ask/ValueFormat.h"
#include "description/DesignDescriptionWriter.h"
#include "description/ValueText.h"
#include "tests/support/FileBytes.h"
#include "tests/support/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

namespace Korvel {
namespace {

using ::testing::HasSubstr;

// ---- Values ----

constexpr auto Vlog = ValueRepresentation::VerilogFourState;
constexpr auto Vhdl = ValueRepresentation::VhdlEnumeration;
constexpr auto SystemC = ValueRepresentation::SystemCBytes;
constexpr auto Real = ValueRepresentation::Real;

struct TextCase {
    ValueRepresentation representation;
    std::uint32_t width;
    const char* value;
    Radix radix;
    const char* text;
    VariableKind kind = VariableKind::Wire;
    bool isSigned = false;
};

const TextCase TextCases[] = {
    {Vlog, 1, "z", Radix::Default, "z"},
    {Vlog, 9, "101011111", Radix::Default, "15f"},
    {Vlog, 14, "zx1zzzzxxxx0x1", Radix::Default, "XZXX"},
    {Vlog, 9, "zxxxxzzzz", Radix::Hexadecimal, "zxz"},
    {Vlog, 8, "11001010", Radix::Octal, "312"},
    {Vlog, 8, "10000000", Radix::SignedDecimal, "-128"},
    {Vlog, 4, "1xz0", Radix::Decimal, "X"},
    {Vlog, 4, "1z00", Radix::Decimal, "Z"},
    {Vlog, 4, "xxxx", Radix::SignedDecimal, "x"},
    {Vlog, 32, "11111111111111111111111111111110", Radix::Default, "-2", VariableKind::Integer,
     true},
    {Vlog, 100, "11111111111111111111111111111111111111111111111111111111111111111111",
     Radix::Decimal, "295147905179352825855"},  // 2^68 - 1
    {Vlog, 17, "x0100000101000010", Radix::Ascii, "\"?AB\""},
    {Vlog, 24, "010000100100001", Radix::Ascii, "\"!!\""},
    {Vlog, 32, "00111111110000000000000000000000", Radix::Real, "1.5"},
    {Vlog, 2, "01", Radix::Default, "BUSY", VariableKind::Enum},
    {Vlog, 2, "01", Radix::Binary, "01", VariableKind::Enum},
    {Vlog, 2, "10", Radix::Default, "2", VariableKind::Enum},
    {Vlog, 8, "", Radix::Default, "x"},
    {Vhdl, 8, "HL01UUUU", Radix::Default, "9U"},
    {Vhdl, 9, "-LH01UUUU", Radix::Hexadecimal, "-5U"},
    {Vhdl, 4, "1W10", Radix::Default, "?"},
    {Vhdl, 5, "H0011", Radix::Decimal, "19"},
    {Vhdl, 4, "", Radix::Default, "U"},
    {Vhdl, 1, "BUSY", Radix::Hexadecimal, "BUSY", VariableKind::Enum},
    {Vhdl, 1, "", Radix::Default, "-", VariableKind::Enum},
    {SystemC, 12, "101000001111", Radix::Default, "a0f"},
    {Real, 64, "1e-09", Radix::Default, "1e-09"},
    {Real, 64, "-2", Radix::Hexadecimal, "-2"},
};

TEST(ValueFormat, spellsValues) {
    for (const TextCase& row : TextCases) {
        DesignDescriptionWriter writer;
        ObjectDefinition object;
        object.kind = row.kind;
        object.representation = row.representation;
        object.width = row.width;
        object.isSigned = row.isSigned;
        if (row.kind == VariableKind::Enum) {
            object.type = writer.addEnumeration("t", {{"IDLE", 0, "00"}, {"BUSY", 1, "01"}});
        }
        writer.addObject(object);
        const auto description = DesignDescription::fromBytes(writer.finish());
        const ViewedObject viewed = viewWhole(*description, 0);
        ViewedValue value;
        if (*row.value != 0) {
            const auto bytes = parseLiteralText(*description, viewed.object, row.value);
            ASSERT_TRUE(bytes) << row.value;
            value = {ViewedValue::Known, *bytes};
        }
        EXPECT_EQ(ValueFormat(&*description, {}, row.radix).text(viewed, value), row.text)
            << row.value;
    }
}

// The slice begins and ends within bytes: 12 bits from bit 5 on of ..c3 5a 96, lowest byte first.
TEST(ViewedObject, shiftsSlicesOfBytes) {
    ViewedObject whole;
    whole.object.representation = SystemC;
    whole.object.width = 24;
    const ViewedObject part = viewSlice(whole, 5, 12);
    std::vector<WdbScalar> scalars;
    part.appendScalars(scalars);
    ASSERT_EQ(scalars.size(), 3U);
    const WdbByteValue entries[] = {{1, 0x96}, {1, 0x5A}, {1, 0xC3}};
    const ValueFormat format(nullptr, {}, Radix::Hexadecimal);
    EXPECT_EQ(format.text(part, assembleValue(part, entries)), "ad4");
}

// ---- Verbs ----

const std::string Dump =
    "$timescale 10ns $end $scope module top $end $scope module cpu $end\n"
    "$var wire 8 ! pc [7:0] $end $var wire 1 \" clk $end $var reg 4 # up [2:5] $end\n"
    "$var wire 1 $ bit [1] $end $var wire 1 % bit [0] $end $var real 64 & volt $end\n"
    "$var wire 70 ' wide [69:0] $end $var wire 9 ( nine [1:9] $end $var string 1 ) note $end\n"
    "$attrbegin misc 07 t.st 2 IDLE RUN\\040IT 00 01 9 $end\n"
    "$attrbegin misc 07 \"\" 9 $end $var logic 2 * st [1:0] $end\n"
    "$upscope $end $upscope $end $enddefinitions $end\n"
    "#0\n$dumpvars b101 ! 0\" b1x0z # 1$ 0% b1 * r1.5 & bUX01ZWLH- ( sa\"\\n\\001 ) $end\n"
    "bx1z000000000000000000000000000000001 '\n"
    "#5\n1\"\n#6\n0\"\n#7\n1\"\n#8\n0\"\n#20\nb11110000 !\n1%\n#30\n";

const std::string SmallDump =
    "$timescale 1ns $end $var wire 1 ! clk $end $enddefinitions $end\n#0\n0!\n#5\n1!\n";

struct VerbCase {
    const char* arguments;
    int status;
    const char* output;  // a part of it, "" = nothing at all
    const char* error;   // a part of its one line, "" = nothing at all
};

const VerbCase VerbCases[] = {
    {"import good.vcd o.wdb", 0, "1 objects in 0 scopes, 2 value changes up to 5 x 1ns", ""},
    {"import - o.wdb <good.vcd", 0, "2 value changes", ""},
    {"import /dev/stdin o.wdb <good.vcd", 0, "2 value changes", ""},
    {"import --json good.vcd o.wdb", 0, "\"changes\": 2", ""},
    {"import -q good.vcd o.wdb", 0, "", ""},
    {"import cut.vcd o.wdb", 1, "2 value changes", "wdb: cut.vcd: line 7: the dump ends within"},
    {"import text.txt o.wdb", 1, "", "wdb: text.txt: line 1: is no value-change dump"},
    {"import missing.vcd o.wdb", 1, "", "wdb: missing.vcd: cannot open: No such file"},
    {"import folder o.wdb", 1, "", "wdb: folder: is a directory"},
    {"import good.vcd missing/o.wdb", 1, "", "wdb: missing/o.wdb: "},
    {"import good.vcd folder", 1, "", "wdb: folder: "},
    {"import good.vcd /dev/full 2>&1 | cat", 0, "WDB FATAL ERROR: ", ""},
    {"import good.vcd ./good.vcd", 1, "", "wdb: ./good.vcd: is the dump itself"},
    {"import good.vcd", 2, "", nullptr},
    {"import --nonsense good.vcd o.wdb", 2, "", nullptr},
    {"import --help", 0, "IN.vcd", ""},
    {"value r.wdb -t 200ns top.cpu.pc[6:4] top.cpu.pc[4:6]", 0, "top.cpu.pc[6:4]  7\n", ""},
    {"value r.wdb -t 199.9ns top.cpu.pc[2] -r hex", 0, "top.cpu.pc[2]  1\n", ""},
    {"value r.wdb -t 0 'top.cpu.up[3:5]' -r bin", 0, "top.cpu.up[3:5]  x0z\n", ""},
    {"value r.wdb -r bin -t 0 top.cpu.wide[36:31]", 0, "wide[36:31]  xx1z00\n", ""},
    {"value r.wdb -r bin -t 0 top.cpu.nine[3:8] top.cpu.nine[9]", 0,
     "[3:8]  01ZWLH\ntop.cpu.nine[9]    -\n", ""},
    {"value r.wdb -t 0 top.cpu.bit[1:0]", 0, "bit[1]  1\ntop.cpu.bit[0]  0\n", ""},
    {"value r.wdb -t 0 top.cpu.clk 'top.c*'", 0, "clk         0\ntop.cpu.pc[7:0]     05\n", ""},
    {"value r.wdb -t 0 @0:1 -r bin", 0, "@0  00000101\n", ""},
    {"value r.wdb -t 0 top.cpu.note", 0, "note  \"a\\\"\\n\\x01\"\n", ""},
    {"value r.wdb -t 0 top.cpu.st", 0, "st[1:0]  RUN IT\n", ""},
    {"value r.wdb --json -t 0 top.cpu.volt", 0, "\"object\":\"top.cpu.volt\",\"value\":\"1.5\"",
     ""},
    {"value r.wdb -t 400ns top.cpu.clk", 0, "clk  0", "400ns is after the end of the recording"},
    {"value r.wdb -t 99999999999s top.cpu.clk", 0, "clk  0", "after the end"},
    {"value r.wdb -t -5ns", 1, "", "'-5ns' is negative"},
    {"value r.wdb -t 0 top.cpu.pd", 1, "",
     "no object is called 'top.cpu.pd'; did you mean top.cpu.pc"},
    {"value r.wdb -t 0 pc[3:0]", 1, "", "did you mean top.cpu.pc?"},
    {"value r.wdb -t 0 top.cpu", 1, "", "'top.cpu' is a scope; 'top.cpu.*'"},
    {"value r.wdb -t 0 'x*'", 1, "", "no object matches 'x*'"},
    {"value r.wdb -t 0 top.cpu.pc[8]", 1, "", "out of range: the object is top.cpu.pc[7:0]"},
    {"value r.wdb -t 0 top.cpu.up[1:2]", 1, "", "out of range: the object is top.cpu.up[2:5]"},
    {"value r.wdb -t 0 top.cpu.clk[0]", 1, "", "'top.cpu.clk' has no bits"},
    {"value r.wdb -t 0 @9223372036854775807:8", 1, "", "is no address"},
    {"value r.wdb -t 0 -r 3", 2, "", nullptr},
    {"value empty.wdb -t 0", 1, "", "wdb: empty.wdb: "},
    {"value r.wdb -t 0 >/dev/full", 1, "", "standard output: cannot write"},
    {"changes r.wdb --from 60ns --to 7 top.cpu.clk", 0,
     "60ns  top.cpu.clk  0\n          70ns  top.cpu.clk  1\n", ""},
    {"changes r.wdb --resolution 20ns --from 10ns top.cpu.clk", 0,
     "10ns  top.cpu.clk  0\n          50ns  top.cpu.clk  ...\n          80ns  top.cpu.clk  0\n",
     ""},
    {"changes r.wdb --resolution 9999999999999s top.cpu.clk --limit 1", 0, "clk  ...\n", ""},
    {"changes r.wdb --from 20 --to 10 top.cpu.clk", 1, "", "ends at 10, before it begins at 20"},
    {"changes r.wdb --resolution -1 top.cpu.clk", 1, "", "'-1' is negative"},
    {"export r.wdb - top.cpu.pc[5:4]", 0, "$var wire 2 % pc [5:4] $end", ""},
    {"export r.wdb ./r.wdb", 1, "", "is the recording itself"},
    {"export r.wdb missing/o.vcd", 1, "", "missing/o.vcd: cannot create: No such file"},
    {"export r.wdb /dev/full", 1, "", "/dev/full: cannot write: No space left"},
};

TEST(Verbs, tellByStatusAndOneLine) {
    const TemporaryDirectory directory;
    writeFile(directory.file("in.vcd"), Dump);
    writeFile(directory.file("empty.wdb"), "");
    writeFile(directory.file("text.txt"), "no dump\n");
    writeFile(directory.file("good.vcd"), SmallDump);
    writeFile(directory.file("cut.vcd"), SmallDump + "#10\n0");
    std::filesystem::create_directory(directory.file("folder"));
    std::filesystem::create_directory(directory.file("temporary"));
    const std::string tool = "cd '" + directory.file("") + "' && (TMPDIR=temporary '" WDB_TOOL "' ";
    ASSERT_EQ(std::system((tool + "import -q in.vcd r.wdb)").c_str()), 0);
    const std::string recording = readFile(directory.file("r.wdb"));
    for (const VerbCase& row : VerbCases) {
        const std::string command = tool + row.arguments + ") >out.txt 2>err.txt";
        const int status = std::system(command.c_str());
        EXPECT_EQ(WEXITSTATUS(status), row.status) << row.arguments;
        const std::string output = readFile(directory.file("out.txt"));
        EXPECT_THAT(output, HasSubstr(row.output)) << row.arguments;
        EXPECT_EQ(output.empty(), *row.output == 0) << row.arguments << ": " << output;
        EXPECT_TRUE(std::filesystem::is_empty(directory.file("temporary"))) << row.arguments;
        if (row.error == nullptr) continue;
        const std::string error = readFile(directory.file("err.txt"));
        EXPECT_THAT(error, HasSubstr(row.error)) << row.arguments;
        EXPECT_EQ(std::count(error.begin(), error.end(), '\n'), *row.error == 0 ? 0 : 1) << error;
    }
    EXPECT_EQ(readFile(directory.file("r.wdb")), recording);
    EXPECT_EQ(readFile(directory.file("good.vcd")), SmallDump);
}

}  // namespace
}  // namespace Korvel

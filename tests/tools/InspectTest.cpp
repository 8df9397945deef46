#include "ToolError.h"
#include "description/DesignDescriptionWriter.h"
#include "inspect/ChangeReader.h"
#include "inspect/Json.h"
#include "inspect/TimeText.h"
#include "tests/support/RecordingFile.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace Korvel {
namespace {

using namespace ::testing;

TEST(TimeText, parsesTimesToUnitsOfTheRecording) {
    // With the first unit of the recording that is not before the time, and the last not after it.
    const std::tuple<const char*, TimeUnit, std::int64_t, std::int64_t> cases[] = {
        {"120 ns", {-9, 10}, 12, 12},
        {"0.4ps", {-9, 100}, 1, 0},
        {"125ns", {-9, 10}, 13, 12},
        {"-1.5ns", {-9, 1}, -1, -2},
        {".5s", {-15, 1}, 500000000000000, 500000000000000},
        {"9223372036854775807", {0, 1}, INT64_MAX, INT64_MAX}};
    for (const auto& [text, unit, from, to] : cases) {
        const auto time = parseTime(text, unit).value_or(ParsedTime{-77});
        EXPECT_EQ(std::pair(time.roundedUp(), time.units), std::pair(from, to)) << text;
    }
    for (const char* text :
         {"9223372036854775808", "9223372036854776us", "1.5", "", "ns", "1 parsec"})
        EXPECT_FALSE(parseTime(text, TimeUnit{-9, 1})) << text;
    EXPECT_EQ(formatTime(5, TimeUnit{-9, 7}), "5");
}

struct Outcome {
    int status;
    std::string text;  // standard output, then what went wrong
};

// "@" stands for the recording; nothing else means anything to the shell.
Outcome run(std::string line, const std::string& path) {
    line.replace(line.find('@'), 1, path);
    line = "set -f; '" WDB_TOOL "' " + line + " >" + path + ".out 2>" + path + ".err";
    const int status = std::system(line.c_str()) / 256;
    return {status, readFile(path + ".out") + readFile(path + ".err")};
}

// Two scopes; an object across the end of a bucket, one with two names, a text, a vector.
std::vector<std::uint8_t> smallDesign() {
    DesignDescriptionWriter writer;
    writer.setTimeUnit({-12, 10});
    writer.setProducer("by hand");
    const ScopeId top = writer.addScope(RootScope, ScopeKind::Module, "top");
    const ScopeId unit = writer.addScope(top, ScopeKind::Module, "unit");
    const TypeId state = writer.addEnumeration("state", {{"idle", 0, ""}, {"busy", 1, ""}});
    using enum ValueRepresentation;
    constexpr VariableKind Wire = VariableKind::Wire;
    const ObjectDefinition objects[] = {
        {"clk", top, Wire, {}, VerilogFourState, {}, 1, 0},
        {"clk", unit, Wire, {}, VerilogFourState, {}, 1, 0},
        {"ports", unit, Wire, {}, VhdlEnumeration, {}, 4, 2046},
        {"state", unit, Wire, {}, VhdlEnumeration, {}, 1, 2050, 1, state},
        {"text", top, Wire, {}, String, {}, 1, 4096},
        {"bus", top, Wire, {}, VerilogFourState, {RangeForm::Bounds, 39, 0}, 40, 8}};
    for (const ObjectDefinition& object : objects)
        writer.addObject(object);
    return writer.finish();
}

class Inspect : public ::testing::Test {
protected:
    Inspect() {
        file.write(0, 0, fieldOf(0LL));
        file.write(0, 8, fieldOf(0LL) + fieldOf(0x100000001LL));
        file.write(5, 2046, std::string("\3\2\3\2", 4));  // cut at the end of the bucket
        file.write(5, 0, fieldOf(1LL));
        file.write(5, 0, fieldOf(0LL));             // back again at the same time: no change
        file.write(6, 2050, std::string(1, '\0'));  // first known, as a value that looks unknown
        file.write(7, 2050, "\1");
        file.write(12, 8, fieldOf(0x80000001LL));
        file.write(12, 2048, "\4");
        file.write(20, 4096, fieldOf(file.writer().addString("hello")));
        file.close();
    }
    Outcome ask(const std::string& line) { return run(line, file.path); }

    RecordingFile file{5000, smallDesign()};
};

struct Question {
    const char* line;
    int status;
    const char* expected;  // the end of the output, or of the error; "|" separates lines
};

const Question Questions[] = {
    {"dump @ *", 0,
     "           0ps  top.clk         0|"
     "           0ps  top.unit.clk    0|"
     "           0ps  top.bus[39:0]   0000000x00000000000000000000000000000000|"
     "          50ps  top.unit.ports  1010|"
     "          60ps  top.unit.state  idle|"
     "          70ps  top.unit.state  busy|"
     "         120ps  top.unit.ports  10Z0|"
     "         120ps  top.bus[39:0]   0000000x10000000000000000000000000000001|"
     "         200ps  top.text        hello|"},
    {"dump @ *??it.* --from 61ps --to 0.119ns", 0, "          70ps  top.unit.state  busy|"},
    {"dump @ --limit 1 top.text top.clk", 0, "           0ps  top.clk   0|"},
    {"dump @ --json --from 7 top.unit.state", 0,
     R"({"time":7,"object":"top.unit.state","value":"X","literal":"busy"}|)"},
    {"dump @ --events --address 2049", 0, "          50ps        2048  03 02|"},
    {"dump @ --blocks --from 200ps", 0, " bytes stored, 1 events from 200ps to 200ps|"},
    {"dump @ --raw --address 4096 --limit 1", 0,
     "--WdbEventBlock:dump()|  m_startTime = 20|  m_timeLength = 0|  numberOfEvents = 1|"
     "--current Event Index = 0|--WdbEvent::dump()|  m_pTime = 20|  m_pStartAddress = 4096|"
     "  m_pLength = 8|  m_value = 1 0 0 0 0 0 0 0 |"},
    {"dump @ --raw --address 2050 --limit 1", 0,  // the number is 0 for each event
     "--current Event Index = 0|--WdbEvent::dump()|  m_pTime = 12|  m_pStartAddress = 2048|"
     "  m_pLength = 1|  m_value = 4 |"},
    {"dump @ *.cl", ExitFailure, "no object is called '*.cl'|"},
    {"dump @ *clk?", ExitFailure, "no object is called '*clk?'|"},
    {"dump @ top.unit", ExitFailure, "'top.unit.*' is all in it|"},
    {"dump @ --from noon", ExitFailure, "'noon' is no time|"},
    {"dump @ --events top.clk", ExitWrongUsage, ""},
    {"list @ *s[39:0]**", 0,
     "   address   size  width  direction kind              name : type = same as|"
     "         8     16     40            wire              top.bus[39:0]|"},
    {"list @ --json *unit.c?k", 0,
     R"({"name":"top.unit.clk","kind":"wire","representation":"verilog_four_state",)"
     R"("range":"","width":1,"direction":"implicit","address":0,"size":8,)"
     R"("signed":false,"aliasOf":"top.clk"}|)"},
    {"info @", 0, "|time unit      10ps|producer       by hand|"},
    {"verify @", 0, ": sound: 3 sections, 6 objects, 3 blocks, 11 events, 1 strings, 0 warnings|"}};

TEST_F(Inspect, answersQuestions) {
    for (const Question& question : Questions) {
        const Outcome outcome = ask(question.line);
        std::string expected = question.expected;
        std::replace(expected.begin(), expected.end(), '|', '\n');
        EXPECT_EQ(outcome.status, question.status) << question.line;
        EXPECT_THAT(outcome.text, EndsWith(expected));
    }
}

// What must be in the JSON, whatever else is: three blocks of 20 bytes, 11 events of 16 and values.
TEST_F(Inspect, tellsWhatARecordingHolds) {
    const auto info = Json::parse(ask("info @ --json --full").text);
    auto expected = info;
    expected.merge_patch(Json::parse(
        R"({"strings": {"count": 1}, "design": {"objects": 6, "scopes": 2}, "events": {"blocks": 3,
            "bucketsUsed": 3, "latestTimeText": "200ps", "events": 11, "unpackedBytes": 299,
            "firstTime": 0, "lastTime": 20}})"));
    EXPECT_EQ(info, expected);
    EXPECT_THAT(ask("info @ --json").text, Not(HasSubstr("unpackedBytes")));
}

// What can be read is shown all the same; the fault is named and the exit status tells.
TEST_F(Inspect, showsTheSoundPartOfADamagedRecording) {
    std::string bytes = file.bytes();
    bytes[bytes.find("\x78\x01", bytes.find("WDB.StringMap")) + 10] ^= 0x55;  // in a block
    writeFile(file.path, bytes);
    const auto fault = HasSubstr(file.path + ": the recording is damaged, 1 fault");
    EXPECT_THAT(ask("dump @").text, AllOf(HasSubstr("bucket 2, block"), fault));
    EXPECT_THAT(ask("verify @").text, AllOf(HasSubstr("DAMAGED"), fault));
    writeFile(file.path, bytes.substr(0, 40));
    for (const char* line : {"info @", "list @", "dump @", "verify @"})
        EXPECT_EQ(ask(line).status, ExitFailure) << line;
    EXPECT_THAT(ask("info @no").text, HasSubstr("No such file"));
}

// Where there is no description, and where another compiler left something else in its place.
TEST(InspectUndescribed, listsAddresses) {
    for (const char* description : {"", "S", "another compiler's design"}) {
        RecordingFile file(100, {description, description + std::strlen(description)});
        file.write(1, 8, "ab");
        file.write(2, 8, "abc");
        file.close();
        const auto ask = [&](const char* line) { return run(line, file.path); };
        EXPECT_THAT(ask("list @"),
                    FieldsAre(0, MatchesRegex("   address   size    changes\n"
                                              "         8      3          2\n"
                                              "wdb: .*: the design is not described.*\n")));
        EXPECT_EQ(ask("list @ *").status, ExitFailure);
        EXPECT_EQ(ask("dump @ *").status, ExitFailure);
        EXPECT_THAT(ask("dump @ --from 1ns").text, HasSubstr("time unit"));
        EXPECT_THAT(ask("dump @ --from 2").text, HasSubstr("61 62 63\n"));
    }
}

// Overlapping objects of any place and size against a data space that replays the writes.
TEST(ChangeReader, agreesWithAReplayedDataSpace) {
    constexpr std::uint32_t Space = 6000;
    std::mt19937 random(7);
    DesignDescriptionWriter design;
    std::vector<ObjectDefinition> objects(40);
    std::vector<ObjectId> ids;
    for (ObjectDefinition& object : objects) {
        object.name = "o";
        object.representation = ValueRepresentation::VhdlEnumeration;
        object.width = 1 + random() % (ids.size() % 8 == 0 ? 2500 : 20);
        object.address = random() % (Space - object.width);
        ids.push_back(design.addObject(object));
    }
    RecordingFile file(Space, design.finish());
    std::string space(Space, '\0');
    using Change = std::tuple<std::int64_t, ObjectId, std::string>;  // time, object, value
    std::vector<Change> expected;
    for (long long time = 0; time < 200; ++time) {
        const std::string before = space;
        for (int i = 0; i < 5; ++i) {
            const std::string values(1 + random() % 100, static_cast<char>('a' + random() % 3));
            const std::size_t first = random() % (Space - values.size());
            file.write(time, static_cast<long long>(first), values);
            space.replace(first, values.size(), values);
        }
        for (const ObjectId id : ids) {
            const auto first = static_cast<std::size_t>(objects[id].address);
            const std::string value = space.substr(first, objects[id].width);
            if (before.compare(first, value.size(), value) != 0)
                expected.emplace_back(time, id, value);
        }
    }
    file.close();

    OpenRecording recording(file.path);
    std::vector<Change> actual;
    ChangeReader(recording, *recording.description(), ids)
        .read(0, 1000, [&](auto time, const ObjectView& object, const std::uint8_t* bytes) {
            actual.emplace_back(time, object.id, std::string(bytes, bytes + object.size));
            return true;
        });
    EXPECT_EQ(actual, expected);
}

}  // namespace
}  // namespace Korvel

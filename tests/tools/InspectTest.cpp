#include "DumpVerb.h"
#include "InfoVerb.h"
#include "ListVerb.h"
#include "ToolError.h"
#include "VerifyVerb.h"
#include "description/DesignDescriptionWriter.h"
#include "inspect/ChangeReader.h"
#include "inspect/Json.h"
#include "inspect/ObjectSelection.h"
#include "inspect/TimeText.h"
#include "tests/support/RecordingFile.h"

#include <gmock/gmock.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace Korvel {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;

struct TimeCase {
    const char* text;
    TimeUnit unit;
    std::optional<std::int64_t> from;  // first unit not before the time
    std::optional<std::int64_t> to;    // last unit not after it
};

const TimeCase TimeCases[] = {
    {"120", {-9, 10}, 120, 120},
    {"120ns", {-9, 1}, 120, 120},
    {"120 ns", {-9, 10}, 12, 12},
    {"1.5us", {-9, 1}, 1500, 1500},
    {"1.5ns", {-9, 1}, 2, 1},
    {"0.4ps", {-9, 100}, 1, 0},
    {"125ns", {-9, 10}, 13, 12},
    {"-1.5ns", {-9, 1}, -1, -2},
    {".5s", {-15, 1}, 500000000000000, 500000000000000},
    {"9223372036854775807", {0, 1}, INT64_MAX, INT64_MAX},
    {"9223372036854775808", {0, 1}, {}, {}},
    {"9223372036854776s", {-3, 1}, {}, {}},
    {"1.5", {-9, 1}, {}, {}},
    {"", {-9, 1}, {}, {}},
    {"ns", {-9, 1}, {}, {}},
    {"1 parsec", {-9, 1}, {}, {}},
};

TEST(TimeText, parsesTimesToUnitsOfTheRecording) {
    for (const TimeCase& row : TimeCases) {
        const auto time = parseTime(row.text, row.unit);
        EXPECT_EQ(time ? std::optional(time->roundedUp()) : std::nullopt, row.from) << row.text;
        EXPECT_EQ(time ? std::optional(time->units) : std::nullopt, row.to) << row.text;
    }
    EXPECT_FALSE(parseTime("1ns", std::nullopt));
    EXPECT_EQ(formatTime(12, TimeUnit{-9, 100}), "1200ns");
    EXPECT_EQ(formatTime(0, TimeUnit{-12, 10}), "0ps");
    EXPECT_EQ(formatTime(5, TimeUnit{-9, 7}), "5");
}

TEST(ObjectSelection, matchesNamesWithBrackets) {
    struct Row {
        const char* pattern;
        const char* text;
        bool matches;
    };
    for (const Row& row :
         {Row{"*", "", true}, Row{"a*c*e", "abcde", true}, Row{"a*c", "abcd", false},
          Row{"top.pc[31:0]", "top.pc[31:0]", true}, Row{"?.b", "a.b", true},
          Row{"*b.c", "a.bb.c", true}, Row{"a?", "a", false}, Row{"", "a", false},
          Row{"*aab", "aaaaab", true}, Row{"a**", "a", true}}) {
        EXPECT_EQ(matchesGlob(row.pattern, row.text), row.matches)
            << row.pattern << ' ' << row.text;
    }
}

// Two scopes; an object across the end of a bucket, one with two names, a text, a vector.
std::vector<std::uint8_t> smallDesign() {
    DesignDescriptionWriter writer;
    writer.setTimeUnit({-12, 10});
    writer.setProducer("by hand");
    const ScopeId top = writer.addScope(RootScope, ScopeKind::Module, "top");
    const ScopeId unit = writer.addScope(top, ScopeKind::Module, "unit");
    const TypeId state = writer.addEnumeration("state", {{"idle", 0, ""}, {"busy", 1, ""}});
    ObjectDefinition object;
    const auto add = [&](const char* name, ScopeId scope, long long address, std::uint32_t width,
                         ValueRepresentation representation, TypeId type) {
        object.name = name;
        object.scope = scope;
        object.address = address;
        object.width = width;
        object.representation = representation;
        object.type = type;
        writer.addObject(object);
    };
    add("clk", top, 0, 1, ValueRepresentation::VerilogFourState, NoType);
    add("clk", unit, 0, 1, ValueRepresentation::VerilogFourState, NoType);
    add("ports", unit, 2046, 4, ValueRepresentation::VhdlEnumeration, NoType);
    add("state", unit, 2050, 1, ValueRepresentation::VhdlEnumeration, state);
    add("text", top, 4096, 1, ValueRepresentation::String, NoType);
    object.range = {RangeForm::Bounds, 39, 0};
    add("bus", top, 8, 40, ValueRepresentation::VerilogFourState, NoType);
    return writer.finish();
}

std::string pair(unsigned int value, unsigned int secondPlane) {
    return fieldOf(value) + fieldOf(secondPlane);
}

struct Outcome {
    int status;
    std::string out;
    std::string error;
};

// Runs a verb as the tool's main() does.
Outcome run(std::vector<std::string> arguments) {
    CLI::App tool;
    addInfoVerb(tool);
    addListVerb(tool);
    addDumpVerb(tool);
    addVerifyVerb(tool);
    std::reverse(arguments.begin(), arguments.end());
    Outcome outcome{0, "", ""};
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    try {
        tool.parse(arguments);
    } catch (const CLI::ParseError&) {
        outcome.status = ExitWrongUsage;
    } catch (const ToolError& error) {
        outcome = {ExitFailure, "", error.what()};
    }
    outcome.out = ::testing::internal::GetCapturedStdout();
    outcome.error += ::testing::internal::GetCapturedStderr();
    return outcome;
}

class Inspect : public ::testing::Test {
protected:
    Inspect() {
        file.write(0, 0, pair(0, 0));
        file.write(0, 8, pair(0, 0) + pair(1, 1));
        file.write(5, 2046, std::string("\3\2\3\2", 4));  // cut at the end of the bucket
        file.write(5, 0, pair(1, 0));
        file.write(5, 0, pair(0, 0));  // back again at the same time: no change
        file.write(7, 2050, "\1");
        file.write(12, 8, pair(0x80000001, 0));
        file.write(12, 2048, "\4");
        const auto id = file.writer().addString("hello");
        file.write(20, 4096, fieldOf(id));
        file.close();
    }
    std::vector<std::string> with(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin() + 1, file.path);
        return arguments;
    }

    RecordingFile file{5000, smallDesign()};
};

TEST_F(Inspect, printsChangesInTimeOrder) {
    EXPECT_EQ(run(with({"dump", "*"})).out,
              "           0ps  top.clk         0\n"
              "           0ps  top.unit.clk    0\n"
              "           0ps  top.bus[39:0]   "
              "0000000x00000000000000000000000000000000\n"
              "          50ps  top.unit.ports  1010\n"
              "          70ps  top.unit.state  busy\n"
              "         120ps  top.unit.ports  10Z0\n"
              "         120ps  top.bus[39:0]   "
              "0000000x10000000000000000000000000000001\n"
              "         200ps  top.text        hello\n");
}

// The end of what comes out for what is asked. "|" separates lines.
struct Question {
    const char* name;
    std::vector<std::string> arguments;
    int status;
    const char* expected;  // on standard output, or of the error
};

const Question Questions[] = {
    {"fromAndTo",
     {"dump", "top.unit.*", "--from", "51ps", "--to", "0.119ns"},
     0,
     "          70ps  top.unit.state  busy|"},
    {"limit", {"dump", "--limit", "1", "top.text", "top.clk"}, 0, "           0ps  top.clk   0|"},
    {"changesAsJson",
     {"dump", "--json", "top.unit.state"},
     0,
     "{\"time\":7,\"object\":\"top.unit.state\",\"value\":\"X\",\"literal\":\"busy\"}|"},
    {"address", {"dump", "--events", "--address", "2049"}, 0, "          50ps        2048  03 02|"},
    {"blocks",
     {"dump", "--blocks", "--from", "200ps"},
     0,
     " bytes stored, 1 events from 200ps to 200ps|"},
    {"raw",
     {"dump", "--raw", "--address", "4096", "--limit", "1"},
     0,
     "--WdbEventBlock:dump()|  m_startTime = 20|  m_timeLength = 0|  numberOfEvents = 1|"
     "--current Event Index = 0|--WdbEvent::dump()|  m_pTime = 20|  m_pStartAddress = 4096|"
     "  m_pLength = 8|  m_value = 1 0 0 0 0 0 0 0 |"},
    {"noSuchObject", {"dump", "nobody"}, 1, "no object is called 'nobody'"},
    {"scopeForAnObject", {"dump", "top.unit"}, 1, "'top.unit.*' is all in it"},
    {"badTime", {"dump", "--from", "noon"}, 1, "'noon' is no time"},
    {"objectsOfStoredEvents", {"dump", "--events", "top.clk"}, 2, ""},
    {"listOne",
     {"list", "top.bus"},
     0,
     "   address   size  width  direction kind              name : type = same as|"
     "         8     16     40            wire              top.bus[39:0]|"},
    {"listAliasAsJson",
     {"list", "--json", "*unit.c?k"},
     0,
     "{\"name\":\"top.unit.clk\",\"kind\":\"wire\",\"representation\":\"verilog_four_state\","
     "\"range\":\"\",\"width\":1,\"direction\":\"implicit\",\"address\":0,\"size\":8,"
     "\"signed\":false,\"aliasOf\":\"top.clk\"}|"},
    {"noUsage", {"info", "--nonsense"}, 2, ""},
};

TEST_F(Inspect, answersQuestions) {
    for (const Question& question : Questions) {
        const Outcome outcome = run(with(question.arguments));
        std::string expected = question.expected;
        std::replace(expected.begin(), expected.end(), '|', '\n');
        EXPECT_EQ(outcome.status, question.status) << question.name;
        const std::string& actual = question.status == 0 ? outcome.out : outcome.error;
        if (question.status != 2) {
            EXPECT_THAT(actual, EndsWith(expected)) << question.name;
        }
    }
}

TEST_F(Inspect, tellsWhatARecordingHolds) {
    const auto cheap = Json::parse(run(with({"info", "--json"})).out);
    EXPECT_EQ(cheap["sections"].size(), 3U);
    EXPECT_EQ(cheap["events"]["blocks"], 3);
    EXPECT_EQ(cheap["events"]["bucketsUsed"], 3);
    EXPECT_EQ(cheap["events"]["latestTimeText"], "200ps");
    EXPECT_EQ(cheap["events"].count("events"), 0U);
    EXPECT_EQ(cheap["strings"]["count"], 1);
    EXPECT_EQ(cheap["design"]["objects"], 6);
    EXPECT_EQ(cheap["design"]["scopes"], 2);
    const auto full = Json::parse(run(with({"info", "--json", "--full"})).out);
    EXPECT_EQ(full["events"]["events"], 10);
    EXPECT_EQ(full["events"]["unpackedBytes"], 3 * 20 + 10 * 16 + 62);
    EXPECT_EQ(full["events"]["lastTime"], 20);
    EXPECT_THAT(run(with({"info"})).out, HasSubstr("3 in 3 used buckets"));
    EXPECT_EQ(run(with({"verify"})).out,
              file.path +
                  ": sound: 3 sections, 6 objects, 3 blocks, 10 events, 1 strings, "
                  "0 warnings\n");
}

// What can be read is shown all the same; the fault is named and the exit status tells.
TEST_F(Inspect, showsTheSoundPartOfADamagedRecording) {
    std::string bytes = file.bytes();
    const std::size_t firstBlock = bytes.find("\x78\x01", bytes.find("WDB.StringMap"));
    bytes[firstBlock + 10] = static_cast<char>(bytes[firstBlock + 10] ^ 0x55);
    writeFile(file.path, bytes);
    for (const char* verb : {"dump", "verify"}) {
        const Outcome outcome = run(with({verb}));
        EXPECT_EQ(outcome.status, ExitFailure);
        EXPECT_THAT(outcome.error, HasSubstr(file.path + ": the recording is damaged, 1 fault"));
        EXPECT_THAT(outcome.out,
                    HasSubstr(std::string(verb) == "dump" ? "bucket 2, block" : "DAM"));
    }
    writeFile(file.path, bytes.substr(0, 40));
    for (const char* verb : {"info", "list", "dump", "verify"})
        EXPECT_EQ(run(with({verb})).status, ExitFailure) << verb;
    EXPECT_THAT(run({"info", file.path + "no"}).error, HasSubstr("No such file"));
}

TEST(InspectUndescribed, listsAddresses) {
    RecordingFile file(100);
    file.write(1, 8, "ab");
    file.write(2, 8, "abc");
    file.close();
    const Outcome list = run({"list", file.path});
    EXPECT_EQ(list.out, "   address   size    changes\n         8      3          2\n");
    EXPECT_THAT(list.error, HasSubstr("not described"));
    EXPECT_EQ(run({"list", file.path, "*"}).status, ExitFailure);
    EXPECT_EQ(run({"dump", file.path, "*"}).status, ExitFailure);
    EXPECT_THAT(run({"dump", file.path, "--from", "1ns"}).error, HasSubstr("time unit"));
    EXPECT_THAT(run({"dump", file.path, "--from", "2"}).out, HasSubstr("61 62 63\n"));
}

// Overlapping objects of any place and size against a data space that replays the writes.
TEST(ChangeReader, agreesWithAReplayedDataSpace) {
    constexpr int Space = 6000;
    constexpr std::uint32_t Objects = 40;
    constexpr unsigned int Seed = 7;
    SCOPED_TRACE(Seed);
    std::mt19937 random(Seed);
    DesignDescriptionWriter design;
    std::vector<std::pair<int, int>> ranges;  // first address and size
    for (std::uint32_t i = 0; i < Objects; ++i) {
        const int size = 1 + static_cast<int>(random() % (i % 8 == 0 ? 2500 : 20));
        ranges.emplace_back(static_cast<int>(random() % (Space - size)), size);
        ObjectDefinition object;
        const std::string name = "o" + std::to_string(i);
        object.name = name;
        object.representation = ValueRepresentation::VhdlEnumeration;
        object.address = ranges.back().first;
        object.width = static_cast<std::uint32_t>(size);
        design.addObject(object);
    }
    RecordingFile file(Space, design.finish());
    std::string space(Space, '\0');
    std::map<ObjectId, std::string> before;
    std::vector<std::string> expected;
    for (long long time = 0; time < 200; ++time) {
        std::vector<bool> isTouched(Objects);
        for (int i = 0; i < 5; ++i) {
            const int size = 1 + static_cast<int>(random() % 100);
            const int first = static_cast<int>(random() % (Space - size));
            const std::string values(static_cast<std::size_t>(size),
                                     static_cast<char>(random() % 3));
            file.write(time, first, values);
            space.replace(static_cast<std::size_t>(first), values.size(), values);
            for (std::uint32_t o = 0; o < Objects; ++o) {
                if (ranges[o].first < first + size && first < ranges[o].first + ranges[o].second)
                    isTouched[o] = true;
            }
        }
        for (std::uint32_t o = 0; o < Objects; ++o) {
            const std::string value = space.substr(static_cast<std::size_t>(ranges[o].first),
                                                   static_cast<std::size_t>(ranges[o].second));
            if (!isTouched[o] || (before.count(o) != 0 && before[o] == value)) continue;
            before[o] = value;
            expected.push_back(std::to_string(time) + " " + std::to_string(o) + " " + value);
        }
    }
    file.close();

    OpenRecording recording(file.path);
    std::vector<ObjectId> objects(Objects);
    for (std::uint32_t o = 0; o < Objects; ++o)
        objects[o] = o;
    std::vector<std::string> actual;
    ChangeReader(recording, *recording.description(), objects)
        .read(0, 1000, [&](auto time, const ObjectView& object, const std::uint8_t* bytes) {
            actual.push_back(std::to_string(time) + " " + std::to_string(object.id) + " " +
                             std::string(reinterpret_cast<const char*>(bytes), object.size));
            return true;
        });
    EXPECT_EQ(actual, expected);
}

}  // namespace
}  // namespace Korvel

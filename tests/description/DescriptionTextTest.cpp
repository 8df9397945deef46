#include "description/DesignDescriptionWriter.h"
#include "description/ValueText.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace Korvel {
namespace {

using ::testing::FieldsAre;
using ::testing::Optional;
using R = ValueRepresentation;
using Bytes = std::vector<std::uint8_t>;

enum : TypeId { State, Digit, Coded, Plain };

const DesignDescription& types() {
    static const DesignDescription description = [] {
        DesignDescriptionWriter writer;
        writer.addEnumeration("state", {{"idle", 0, ""}, {"Busy", 7, ""}});
        writer.addEnumeration("digit", {{"a", 1, ""}, {"b", 0, ""}, {"A", 2, ""}});
        writer.addEnumeration("coded", {{"off", 0, "0X"}, {"on", -1, ""}});
        writer.addType("std_logic");
        return DesignDescription::fromBytes(writer.finish()).value();
    }();
    return description;
}

ObjectView view(R representation, std::uint32_t width, std::uint32_t size, TypeId type = NoType) {
    ObjectView object;
    object.representation = representation;
    object.width = width;
    object.size = size;
    object.type = type;
    return object;
}

// What was appended before a refusal would show behind the word.
std::string textOf(const ObjectView& object, const Bytes& bytes, const StringLookup& strings = {}) {
    std::string text;
    return appendLiteralText(text, types(), object, bytes.data(), bytes.size(), strings)
               ? text
               : "(refused)" + text;
}

TEST(ValueText, spellsAndReadsBack) {
    const std::string Zeros28(28, '0');
    ObjectView signedBytes = view(R::SystemCBytes, 12, 4);
    signedBytes.isSigned = true;
    const struct {
        ObjectView object;
        Bytes bytes;
        std::string text;
        bool readsBack = true;
    } rows[] = {
        {view(R::VhdlEnumeration, 9, 9), {0, 1, 2, 3, 4, 5, 6, 7, 8}, "UX01ZWLH-"},
        {view(R::VhdlEnumeration, 2, 2), {9, 255}, "??", false},
        {view(R::VerilogFourState, 4, 8), {5, 0, 0, 0, 3, 0, 0, 0}, "01zx"},
        {view(R::VerilogFourState, 33, 16),  // the leftmost bit alone in its pair of words
         {0, 0, 0, 0, 0, 0, 0, 0x80, 1, 0, 0, 0, 0, 0, 0, 0},
         "1z000" + Zeros28},
        {view(R::VerilogFourState, 32, 8), {0, 0, 0, 0xF0, 0, 0, 0, 0xC0}, "xx11" + Zeros28},
        {view(R::VerilogFourState, 0, 0), {}, "", false},
        {signedBytes, {0x05, 0xF8, 0xFF, 0xFF}, "100000000101"},
        {view(R::SystemCBytes, 12, 2), {0x05, 0x08}, "100000000101"},
        {view(R::Real, 64, 8), {0x9A, 0x99, 0x99, 0x99, 0x99, 0x99, 0xB9, 0x3F}, "0.1"},
        {view(R::Real, 64, 8), {0, 0, 0, 0, 0, 0, 0xF0, 0xFF}, "-inf"},
        {view(R::Event, 1, 1), {250}, "250", false},
        {view(static_cast<R>(77), 1, 2), {0x0A, 0xB1}, "0x0ab1", false},
        {view(R::VhdlEnumeration, 2, 2, State), {0, 7}, "idle,Busy"},
        {view(R::VhdlEnumeration, 1, 1, State), {2}, "?", false},
        {view(R::VhdlEnumeration, 3, 3, Digit), {2, 1, 0}, "Aab"},
        {view(R::VerilogFourState, 2, 8, Coded), {1, 0, 0, 0, 1, 0, 0, 0}, "off"},
        {view(R::VerilogFourState, 2, 8, Coded), {3, 0, 0, 0, 0, 0, 0, 0}, "on"},
        {view(R::VerilogFourState, 2, 8, Coded), {1, 0, 0, 0, 0, 0, 0, 0}, "01"},
        {view(R::SystemCBytes, 70, 9, Coded), Bytes(9, 0), std::string(70, '0')},
        {view(R::VhdlEnumeration, 1, 1, Plain), {8}, "-"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(textOf(row.object, row.bytes), row.text);
        EXPECT_EQ(parseLiteralText(types(), row.object, row.text),
                  row.readsBack ? std::optional(row.bytes) : std::nullopt)
            << row.text;
        if (row.bytes.empty()) continue;
        // A heap buffer of the exact size: the sanitizer sees the first byte read past it.
        EXPECT_EQ(textOf(row.object, {row.bytes.begin(), row.bytes.end() - 1}), "(refused)");
    }
    EXPECT_EQ(textOf(view(R::Real, 64, 8), {0, 0, 0, 0, 0, 0, 0xF8, 0xFF}), "nan");
    EXPECT_EQ(textOf(view(R::Event, 1, 1), {3, 9}), "3") << "bytes past the size";
    EXPECT_EQ(textOf(view(R::VerilogFourState, 64, 8), Bytes(8)), "(refused)");
}

// Dumps leave leading digits out, and every reader has to put the same ones back.
TEST(ValueText, extendsOnTheLeftOrRefuses) {
    const struct {
        ObjectView object;
        std::vector<std::pair<const char*, const char*>> wholes;
        std::vector<const char*> refused;
    } rows[] = {
        {view(R::VerilogFourState, 5, 8),
         {{"1", "00001"}, {"01", "00001"}, {"X1", "xxxx1"}, {"Z", "zzzzz"}, {"1x", "0001x"}},
         {"", "000000", "0u"}},
        {view(R::VhdlEnumeration, 5, 5),
         {{"u", "UUUUU"}, {"-0", "----0"}, {"1H", "0001H"}},
         {"0?"}},
        {view(R::SystemCBytes, 5, 1), {{"11", "00011"}}, {"0x"}},
        {view(R::Real, 64, 8), {{"+1.5", "1.5"}}, {"1.5v", "+-1", ""}},
        {view(R::String, ~0U, 8), {}, {"text"}},
        // Sizes that do not suit the width, and a literal that no byte can hold.
        {view(R::VerilogFourState, 64, 8), {}, {"01"}},
        {view(R::VerilogFourState, 5, 16), {}, {"01"}},
        {view(R::SystemCBytes, 12, 1), {}, {"01"}},
        {view(R::VhdlEnumeration, 1, 1, Coded), {}, {"on"}},
        {view(R::VhdlEnumeration, 2, 2, State),
         {{"IDLE,busy", "idle,Busy"}},
         {"", "idle", "idle,", "idle,busy,idle", "idle busy"}},
    };
    for (const auto& row : rows) {
        for (const auto& [text, whole] : row.wholes) {
            const auto bytes = parseLiteralText(types(), row.object, text);
            EXPECT_EQ(textOf(row.object, bytes.value_or(Bytes{})), whole) << text;
        }
        for (const char* text : row.refused)
            EXPECT_FALSE(parseLiteralText(types(), row.object, text)) << text;
    }
}

TEST(ValueText, joinsThePiecesOfAString) {
    const StringLookup pieces = [](std::uint32_t id) {
        const std::string text = id == ~0U ? "z" : std::string(1, static_cast<char>('a' + id));
        return id < 3 || id == ~0U ? std::optional(text) : std::nullopt;
    };
    const ObjectView string = view(R::String, 0, 8);
    EXPECT_EQ(textOf(string, {0, 0, 0, 0, 0, 0, 0, 0}, pieces), "");
    EXPECT_EQ(textOf(string, {0, 0, 0, 0, 1, 0, 0, 0}, pieces), "ab");
    EXPECT_EQ(textOf(string, {1, 0, 0, 0, 1, 0, 0, 0}, pieces), "bc");
    EXPECT_EQ(textOf(string, {1, 0, 0, 0, 0, 0, 0, 0}), "?");
    // A damaged count ends at the first unknown piece, and ids do not wrap round to 0.
    EXPECT_EQ(textOf(string, {2, 0, 0, 0, 255, 255, 255, 255}, pieces), "c?");
    EXPECT_EQ(textOf(string, {255, 255, 255, 255, 1, 0, 0, 0}, pieces), "z?");
}

TEST(Vocabulary, readsBackEveryWord) {
    const auto expectReadBack = [](auto parse, auto last) {
        for (int i = 0; i <= static_cast<int>(last); ++i) {
            const auto value = static_cast<decltype(last)>(i);
            EXPECT_EQ(parse(toString(value)), value) << i;
        }
        for (const char* word : {"unknown", "", "wires"})
            EXPECT_EQ(parse(word), std::nullopt);
    };
    expectReadBack(parseScopeKind, ScopeKind::SystemCModule);
    expectReadBack(parseVariableKind, VariableKind::SystemC);
    expectReadBack(parseDirection, Direction::Linkage);
    EXPECT_EQ(parseScopeKind("VHDL_Architecture"), ScopeKind::VhdlArchitecture);
    EXPECT_EQ(parseVariableKind("std_logic_vector"), VariableKind::StdLogicVector);
}

TEST(Vocabulary, spellsAndReadsTimeUnitsAndRanges) {
    const struct {
        const char* text;
        TimeUnit unit;
    } rows[] = {{"1s", {0, 1}},   {"10ms", {-3, 10}},  {"100us", {-6, 100}},
                {"1ns", {-9, 1}}, {"10ps", {-12, 10}}, {"100fs", {-15, 100}}};
    for (const auto& [text, unit] : rows) {
        EXPECT_THAT(parseTimeUnit(text), Optional(FieldsAre(unit.exponent, unit.multiplier)));
        EXPECT_EQ(toString(unit), text);
    }
    EXPECT_THAT(parseTimeUnit("10 \tMS"), Optional(FieldsAre(-3, 10U)));
    for (const char* text : {"", "ns", "2ns", "1", "1 n", "1ns2", "1000ps", "-1ns", "1as"}) {
        EXPECT_FALSE(parseTimeUnit(text)) << text;
    }
    EXPECT_EQ(toString(TimeUnit{-10, 1}), "100ps");
    EXPECT_EQ(toString(TimeUnit{-18, 10}), "10 * 10^-18 s");
    EXPECT_EQ(toString(TimeUnit{3, 1}), "1 * 10^3 s");
    EXPECT_EQ(toString(DeclaredRange{RangeForm::Index, 3, 3}), "[3]");
}

}  // namespace
}  // namespace Korvel

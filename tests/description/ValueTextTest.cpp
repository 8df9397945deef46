#include "description/DesignDescriptionWriter.h"
#include "description/ValueText.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace Korvel {
namespace {

using R = ValueRepresentation;
using Bytes = std::vector<std::uint8_t>;

ObjectView view(R representation, std::uint32_t width, std::uint32_t size, bool isSigned = false) {
    ObjectView object;
    object.representation = representation;
    object.width = width;
    object.size = size;
    object.isSigned = isSigned;
    return object;
}

std::string textOf(const ObjectView& object, const Bytes& bytes, const StringLookup& strings = {}) {
    std::string text;
    return appendValueText(text, object, bytes.data(), bytes.size(), strings) ? text : "(refused)";
}

struct Row {
    const char* name;
    ObjectView object;
    Bytes bytes;
    std::string text;
};

const Row Rows[] = {
    {"allNineStates", view(R::VhdlEnumeration, 9, 9), {0, 1, 2, 3, 4, 5, 6, 7, 8}, "UX01ZWLH-"},
    {"theFourStates", view(R::VerilogFourState, 4, 8), {5, 0, 0, 0, 3, 0, 0, 0}, "01zx"},
    {"leftBitInTheSecondPair",
     view(R::VerilogFourState, 33, 16),
     {1, 0, 0, 0, 0, 0, 0, 0x80, 1, 0, 0, 0, 0, 0, 0, 0},
     "1z" + std::string(30, '0') + "1"},
    {"aWholePair",
     view(R::VerilogFourState, 32, 8),
     {0, 0, 0, 0xF0, 0, 0, 0, 0xC0},
     "xx11" + std::string(28, '0')},
    {"noBits", view(R::VerilogFourState, 0, 0), {}, ""},
    {"signedBytes", view(R::SystemCBytes, 12, 4, true), {0x05, 0xF8, 0xFF, 0xFF}, "100000000101"},
    {"unsignedBytes", view(R::SystemCBytes, 12, 2), {0x05, 0x08}, "100000000101"},
    {"shortestReal", view(R::Real, 64, 8), {0x9A, 0x99, 0x99, 0x99, 0x99, 0x99, 0xB9, 0x3F}, "0.1"},
    {"minusInfinity", view(R::Real, 64, 8), {0, 0, 0, 0, 0, 0, 0xF0, 0xFF}, "-inf"},
};

class ValueText : public ::testing::TestWithParam<Row> {};

TEST_P(ValueText, spellsAndReadsBack) {
    const Row& row = GetParam();
    EXPECT_EQ(textOf(row.object, row.bytes), row.text);
    if (row.bytes.empty()) return;
    EXPECT_EQ(parseValueText(row.object, row.text), row.bytes);
    // A heap buffer of the exact size: the sanitizer sees the first byte read past it.
    const Bytes cut(row.bytes.begin(), row.bytes.end() - 1);
    EXPECT_EQ(textOf(row.object, cut), "(refused)");
}

INSTANTIATE_TEST_SUITE_P(Representations, ValueText, ::testing::ValuesIn(Rows),
                         [](const auto& row) { return std::string(row.param.name); });

// Dumps leave leading digits out, and every reader has to put the same ones back.
TEST(ValueText, extendsOnTheLeft) {
    const struct {
        R representation;
        const char* text;
        const char* whole;
    } rows[] = {
        {R::VerilogFourState, "1", "00001"},  {R::VerilogFourState, "01", "00001"},
        {R::VerilogFourState, "X1", "xxxx1"}, {R::VerilogFourState, "Z", "zzzzz"},
        {R::VerilogFourState, "1x", "0001x"}, {R::VhdlEnumeration, "u", "UUUUU"},
        {R::VhdlEnumeration, "-0", "----0"},  {R::VhdlEnumeration, "1H", "0001H"},
        {R::SystemCBytes, "11", "00011"},
    };
    for (const auto& row : rows) {
        const ObjectView object = view(row.representation, 5, sizeOfWidth(row.representation, 5));
        const auto bytes = parseValueText(object, row.text);
        ASSERT_TRUE(bytes) << row.text;
        EXPECT_EQ(textOf(object, *bytes), row.whole) << row.text;
    }
}

TEST(ValueText, refusesWhatIsNoValue) {
    const struct {
        ObjectView object;
        const char* text;
    } rows[] = {
        {view(R::VerilogFourState, 2, 8), ""},
        {view(R::VerilogFourState, 2, 8), "000"},
        {view(R::VerilogFourState, 2, 8), "0u"},
        {view(R::VhdlEnumeration, 2, 2), "0?"},
        {view(R::SystemCBytes, 2, 1), "0x"},
        {view(R::Real, 64, 8), "1.5v"},
        {view(R::Real, 64, 8), "+-1"},
        {view(R::Real, 64, 8), ""},
        {view(R::String, ~0U, 8), "text"},
        {view(R::Event, 1, 1), "1"},
        {view(R::VerilogFourState, 64, 8), "01"},
        {view(static_cast<R>(77), 1, 1), "1"},
    };
    for (const auto& row : rows)
        EXPECT_FALSE(parseValueText(row.object, row.text)) << row.text;
    EXPECT_EQ(textOf(view(R::VerilogFourState, 64, 8), Bytes(8)), "(refused)");
    EXPECT_EQ(textOf(view(R::VhdlEnumeration, 2, 2), {9, 255}), "??");
    EXPECT_EQ(textOf(view(static_cast<R>(77), 1, 2), {0x0A, 0xB1, 0xCC}), "0x0ab1");
    EXPECT_EQ(textOf(view(R::Real, 64, 8), {0, 0, 0, 0, 0, 0, 0xF8, 0xFF}), "nan");
    EXPECT_EQ(textOf(view(R::Event, 1, 1), {250}), "250");
}

TEST(ValueText, joinsThePiecesOfAString) {
    const std::map<std::uint32_t, std::string> map = {
        {0, "zero"}, {1, "one"}, {2, "two"}, {~0U, "last"}};
    const StringLookup lookup = [&map](std::uint32_t id) {
        const auto found = map.find(id);
        return found == map.end() ? std::nullopt : std::optional(found->second);
    };
    const auto text = [&](std::uint32_t first, std::uint32_t further, const StringLookup& strings) {
        Bytes bytes(8);
        std::memcpy(bytes.data(), &first, 4);
        std::memcpy(bytes.data() + 4, &further, 4);
        return textOf(view(R::String, 0, 8), bytes, strings);
    };
    EXPECT_EQ(text(0, 0, lookup), "");
    EXPECT_EQ(text(0, 1, lookup), "zeroone");
    EXPECT_EQ(text(1, 1, lookup), "onetwo");
    EXPECT_EQ(text(2, ~0U, lookup), "two?") << "a damaged count ends at the first unknown piece";
    EXPECT_EQ(text(~0U, 1, lookup), "last?") << "ids do not wrap round to 0";
    EXPECT_EQ(text(1, 0, {}), "?");
}

TEST(ValueText, namesLiterals) {
    DesignDescriptionWriter writer;
    const TypeId state = writer.addEnumeration("state", {{"idle", 0, ""}, {"Busy", 7, ""}});
    const TypeId digit = writer.addEnumeration("digit", {{"a", 1, ""}, {"b", 0, ""}, {"A", 2, ""}});
    const TypeId coded = writer.addEnumeration("coded", {{"off", 0, "0X"}, {"on", -1, ""}});
    const TypeId plain = writer.addType("std_logic");
    const auto description = DesignDescription::fromBytes(writer.finish());
    ASSERT_TRUE(description);
    const struct {
        TypeId type;
        ObjectView object;
        Bytes bytes;
        std::string text;
        bool readsBack;
    } rows[] = {
        {state, view(R::VhdlEnumeration, 1, 1), {7}, "Busy", true},
        {state, view(R::VhdlEnumeration, 2, 2), {0, 7}, "idle,Busy", true},
        {state, view(R::VhdlEnumeration, 1, 1), {2}, "?", false},
        {digit, view(R::VhdlEnumeration, 3, 3), {2, 1, 0}, "Aab", true},
        {coded, view(R::VerilogFourState, 2, 8), {1, 0, 0, 0, 1, 0, 0, 0}, "off", true},
        {coded, view(R::VerilogFourState, 2, 8), {3, 0, 0, 0, 0, 0, 0, 0}, "on", true},
        {coded, view(R::VerilogFourState, 2, 8), {1, 0, 0, 0, 0, 0, 0, 0}, "01", true},
        {coded, view(R::SystemCBytes, 70, 9), Bytes(9, 0), std::string(70, '0'), true},
        {plain, view(R::VhdlEnumeration, 1, 1), {8}, "-", true},
    };
    for (const auto& row : rows) {
        ObjectView object = row.object;
        object.type = row.type;
        std::string text;
        ASSERT_TRUE(
            appendLiteralText(text, *description, object, row.bytes.data(), row.bytes.size()));
        EXPECT_EQ(text, row.text);
        const auto bytes = parseLiteralText(*description, object, text);
        EXPECT_EQ(bytes, row.readsBack ? std::optional(row.bytes) : std::nullopt) << text;
    }
    ObjectView two = view(R::VhdlEnumeration, 2, 2);
    two.type = state;
    EXPECT_EQ(parseLiteralText(*description, two, "IDLE,busy"), (Bytes{0, 7}));
    for (const char* wrong : {"", "idle", "idle,", "idle,busy,idle", "idle busy"}) {
        EXPECT_FALSE(parseLiteralText(*description, two, wrong)) << wrong;
    }
}

}  // namespace
}  // namespace Korvel

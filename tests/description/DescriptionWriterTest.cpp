#include "description/DesignDescription.h"
#include "description/DesignDescriptionWriter.h"
#include "description/StringPool.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace Korvel {
namespace {

using ::testing::ElementsAre;

ObjectDefinition wire(std::string_view name, std::uint32_t width = 1) {
    ObjectDefinition object;
    object.name = name;
    object.width = width;
    return object;
}

TEST(DescriptionWriter, keepsTheHeadTheTypesAndTheAttributes) {
    DesignDescriptionWriter writer;
    writer.setTimeUnit({-12, 10});
    writer.setTimeZero(-7);
    writer.setProducer("a simulator");
    writer.setDate("today");
    writer.addComment("one");
    writer.addComment("");
    writer.addBlackout({5, OpenEnd});
    const TypeId plain = writer.addType("std_logic_vector");
    const TypeId state = writer.addEnumeration("state", {{"idle", -1, ""}, {"busy", 3, "1x"}});
    ObjectDefinition object = wire("s", 70);
    object.type = state;
    object.range = {RangeForm::Bounds, 67, -2};
    const ObjectId id = writer.addObject(object);
    writer.addObjectAttribute(id, AttributeKind::PackedArray, "", -3, INT64_MAX);

    const auto description = DesignDescription::fromBytes(writer.finish());
    ASSERT_TRUE(description);
    EXPECT_EQ(toString(description->timeUnit()), "10ps");
    EXPECT_EQ(description->timeZero(), -7);
    EXPECT_EQ(description->producer(), "a simulator");
    EXPECT_EQ(description->date(), "today");
    EXPECT_THAT(description->comments(), ElementsAre("one", ""));
    ASSERT_EQ(description->blackouts().size(), 1U);
    EXPECT_EQ(description->blackouts()[0].start, 5);
    EXPECT_EQ(description->blackouts()[0].end, OpenEnd);
    EXPECT_EQ(description->typeName(plain), "std_logic_vector");
    EXPECT_EQ(description->literalCount(plain), 0U);
    ASSERT_EQ(description->literalCount(state), 2U);
    EXPECT_EQ(description->literal(state, 0).position, -1);
    EXPECT_EQ(description->literal(state, 1).name, "busy");
    EXPECT_EQ(description->literal(state, 1).bits, "1x");
    EXPECT_EQ(description->object(id).size, 24U);
    EXPECT_EQ(description->object(id).type, state);
    EXPECT_EQ(description->objectPathWithRange(id), "s[67:-2]");
    const auto attributes = description->objectAttributes(id);
    ASSERT_EQ(attributes.size(), 1U);
    EXPECT_EQ(attributes[0].kind, AttributeKind::PackedArray);
    EXPECT_EQ(attributes[0].first, -3);
    EXPECT_EQ(attributes[0].second, INT64_MAX);
    EXPECT_THROW((void)description->object(1), std::out_of_range);
    EXPECT_THROW((void)description->literal(state, 2), std::out_of_range);
    EXPECT_THROW((void)description->childScopes(0), std::out_of_range);
}

// A refused call must leave no half-added record behind: ids would shift under the caller.
TEST(DescriptionWriter, addsNothingWhenItRefuses) {
    DesignDescriptionWriter writer;
    const ScopeId top = writer.addScope(RootScope, ScopeKind::Module, "top");
    const auto before = writer.finish();
    ObjectDefinition noScope = wire("new");
    noScope.scope = top + 1;
    ObjectDefinition noType = wire("new");
    noType.type = 0;
    ObjectDefinition wrongSize = wire("new", 33);
    wrongSize.size = 8;
    ObjectDefinition negative = wire("new");
    negative.address = -1;
    ObjectDefinition tooFar = wire("new");
    tooFar.address = INT64_MAX - 7;
    EXPECT_THROW(writer.addObject(noScope), std::out_of_range);
    EXPECT_THROW(writer.addObject(noType), std::out_of_range);
    EXPECT_THROW(writer.addObject(wrongSize), std::invalid_argument);
    EXPECT_THROW(writer.addObject(negative), std::invalid_argument);
    EXPECT_THROW(writer.addObject(tooFar), std::invalid_argument);
    EXPECT_THROW(writer.addScope(top + 1, ScopeKind::Module, "new"), std::out_of_range);
    EXPECT_THROW(writer.addScopeAttribute(RootScope, AttributeKind::Comment, "new"),
                 std::out_of_range);
    EXPECT_THROW(writer.addObjectAttribute(0, AttributeKind::Comment, "new"), std::out_of_range);
    EXPECT_THROW(writer.addBlackout({5, 4}), std::invalid_argument);
    EXPECT_THROW(writer.setTimeUnit({-9, 0}), std::invalid_argument);
    EXPECT_EQ(writer.finish(), before);
}

TEST(DescriptionWriter, nestsScopesToTheLimitOnly) {
    DesignDescriptionWriter writer;
    ScopeId scope = RootScope;
    for (unsigned int depth = 0; depth < MaxScopeDepth; ++depth) {
        scope = writer.addScope(scope, ScopeKind::Begin, "b");
    }
    EXPECT_THROW(writer.addScope(scope, ScopeKind::Begin, "b"), std::out_of_range);
    const auto description = DesignDescription::fromBytes(writer.finish());
    ASSERT_TRUE(description);
    EXPECT_EQ(description->findScopes(description->scopePath(scope)), std::vector<ScopeId>{scope});
}

// The limit is the format's: whatever is added, the finished bytes never pass it.
TEST(DescriptionWriter, staysBelowItsLimitWhateverFillsIt) {
    constexpr std::size_t Limit = 30000;
    using Add = void (*)(DesignDescriptionWriter&, const std::string&);
    const Add adds[] = {
        [](auto& w, const auto& name) { w.addScope(RootScope, ScopeKind::Module, name, name); },
        [](auto& w, const auto& name) { w.addObject(wire(name)); },
        [](auto& w, const auto& name) {
            w.addEnumeration(name, {{name, 0, name}});
        },
        [](auto& w, const auto& name) {
            if (name == "0") w.addScope(RootScope, ScopeKind::Module, name);
            w.addScopeAttribute(0, AttributeKind::Comment, name);
        },
        [](auto& w, const auto& name) { w.addComment(name); },
        [](auto& w, const auto&) { w.addBlackout({}); },
        [](auto& w, const auto& name) { w.setDate(name); },
    };
    for (const Add add : adds) {
        DesignDescriptionWriter writer(Limit);
        int count = 0;
        EXPECT_THROW(for (; count < 10000; ++count) add(writer, std::to_string(count)),
                     std::length_error);
        const auto bytes = writer.finish();
        EXPECT_GT(count, 10);
        EXPECT_LE(bytes.size(), Limit);
        EXPECT_TRUE(DesignDescription::fromBytes(bytes));
    }
}

// Among so many names some share their 32-bit hash; taken for equal, they would rename an object.
TEST(StringPool, tellsNamesOfOneHashApart) {
    constexpr std::uint32_t Count = 300'000;
    StringPool pool;
    for (std::uint32_t id = 1; id < Count; ++id)
        ASSERT_EQ(pool.intern(std::to_string(id)), id);
    for (std::uint32_t id = 1; id < Count; ++id)
        ASSERT_EQ(pool.text(id), std::to_string(id));
    EXPECT_EQ(pool.intern("77777"), 77777U);
}

TEST(Vocabulary, readsBackEveryWord) {
    const auto count = [](auto parse, auto first) {
        using Enumeration = decltype(first);
        int known = 0;
        for (int i = 0; i < 256; ++i) {
            const auto value = static_cast<Enumeration>(i);
            if (toString(value) == "unknown") continue;
            EXPECT_EQ(parse(toString(value)), value) << toString(value);
            ++known;
        }
        return known;
    };
    EXPECT_EQ(count(parseScopeKind, ScopeKind{}), 27);
    EXPECT_EQ(count(parseVariableKind, VariableKind{}), 42);
    EXPECT_EQ(count(parseDirection, Direction{}), 6);
    EXPECT_EQ(parseScopeKind("VHDL_Architecture"), ScopeKind::VhdlArchitecture);
    EXPECT_EQ(parseVariableKind("trireg"), VariableKind::TriReg);
    EXPECT_EQ(parseVariableKind("std_logic_vector"), VariableKind::StdLogicVector);
    EXPECT_EQ(parseVariableKind("shortreal"), VariableKind::ShortReal);
    EXPECT_EQ(parseVariableKind("wires"), std::nullopt);
    EXPECT_EQ(parseVariableKind(""), std::nullopt);
    EXPECT_EQ(parseVariableKind("unknown"), std::nullopt);
}

TEST(Vocabulary, spellsAndReadsTimeUnits) {
    const struct {
        const char* text;
        int exponent;
        unsigned int multiplier;
        const char* spelled;
    } rows[] = {{"1s", 0, 1, "1s"},      {"10 ms", -3, 10, "10ms"}, {"100us", -6, 100, "100us"},
                {"1\tNS", -9, 1, "1ns"}, {"10ps", -12, 10, "10ps"}, {"100fs", -15, 100, "100fs"}};
    for (const auto& row : rows) {
        const auto unit = parseTimeUnit(row.text);
        ASSERT_TRUE(unit) << row.text;
        EXPECT_EQ(unit->exponent, row.exponent) << row.text;
        EXPECT_EQ(unit->multiplier, row.multiplier) << row.text;
        EXPECT_EQ(toString(*unit), row.spelled);
    }
    for (const char* text : {"", "ns", "2ns", "1", "1 n", "1ns2", "1000ps", "-1ns", "1as"}) {
        EXPECT_FALSE(parseTimeUnit(text)) << text;
    }
    EXPECT_EQ(toString(TimeUnit{-10, 1}), "100ps");
    EXPECT_EQ(toString(TimeUnit{-18, 10}), "10 * 10^-18 s");
    EXPECT_EQ(toString(TimeUnit{1, 1}), "10s");
    EXPECT_EQ(toString(TimeUnit{3, 1}), "1 * 10^3 s");
}

}  // namespace
}  // namespace Korvel

#include "description/DescriptionTables.h"
#include "description/DesignDescription.h"
#include "description/DesignDescriptionWriter.h"
#include "description/StringPool.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace Korvel {
namespace {

using namespace DescriptionFormat;
using ::testing::ElementsAre;
using ::testing::FieldsAre;
using ::testing::HasSubstr;
using Bytes = std::vector<std::uint8_t>;

// Two scopes, two objects, two types, at least one of everything else.
Bytes smallDescription() {
    DesignDescriptionWriter writer;
    writer.setTimeUnit({-12, 10});
    writer.setTimeZero(-7);
    writer.setProducer("hand");
    writer.setDate("today");
    writer.addComment("made by hand");
    writer.addComment("");
    writer.addBlackout({5, OpenEnd});
    const ScopeId top = writer.addScope(RootScope, ScopeKind::Module, "top");
    const ScopeId cpu = writer.addScope(top, ScopeKind::Module, "cpu");
    const TypeId state = writer.addEnumeration("state", {{"idle", -1, ""}, {"busy", 3, "1x"}});
    writer.addType("std_logic_vector");
    const DeclaredRange range = {RangeForm::Bounds, 67, -2};
    writer.addObject({.name = "pc", .scope = cpu, .range = range, .width = 70, .address = 1});
    writer.addObject({.name = "alu", .scope = cpu, .range = {}, .address = 40, .type = state});
    writer.addScopeAttribute(cpu, AttributeKind::DeclaredAt, "cpu.v", 12);
    writer.addObjectAttribute(0, AttributeKind::PackedArray, "", -3, INT64_MAX);
    writer.addObjectAttribute(1, AttributeKind::Comment, "first");
    writer.addObjectAttribute(1, AttributeKind::Comment, "second");
    return writer.finish();
}

std::string refusalOf(const Bytes& bytes) {
    std::string error;
    return DesignDescription::fromBytes(bytes, &error) ? "(accepted)" : error;
}

template <class Record>
Record& writable(const Record& record) {
    return const_cast<Record&>(record);
}

TEST(DesignDescription, keepsTheHeadTheTypesAndTheAttributes) {
    const auto description = DesignDescription::fromBytes(smallDescription());
    ASSERT_TRUE(description);
    EXPECT_THAT(description->timeUnit(), FieldsAre(-12, 10U));
    EXPECT_EQ(description->timeZero(), -7);
    EXPECT_EQ(description->producer(), "hand");
    EXPECT_EQ(description->date(), "today");
    EXPECT_THAT(description->comments(), ElementsAre("made by hand", ""));
    EXPECT_THAT(description->blackouts(), ElementsAre(FieldsAre(5, OpenEnd)));
    EXPECT_EQ(description->literalCount(1), 0U);
    EXPECT_THAT(description->literal(0, 0), FieldsAre("idle", -1, ""));
    EXPECT_THAT(description->literal(0, 1), FieldsAre("busy", 3, "1x"));
    EXPECT_EQ(description->object(0).size, 24U);
    EXPECT_THAT(description->objectAttributes(0),
                ElementsAre(FieldsAre(AttributeKind::PackedArray, "", -3, INT64_MAX)));
    EXPECT_THROW((void)description->object(2), std::out_of_range);
    EXPECT_THROW((void)description->literal(0, 2), std::out_of_range);
    EXPECT_THROW((void)description->childScopes(2), std::out_of_range);
}

// The vector then begins 4 bytes late: the low half of the first address becomes its length.
void moveObjects(DescriptionTables& t) {
    auto* root = reinterpret_cast<flatbuffers::Table*>(const_cast<Description*>(t.root));
    std::uint8_t* offset = root->GetAddressOf(Description::VT_OBJECTS);
    flatbuffers::WriteScalar(offset, flatbuffers::ReadScalar<std::uint32_t>(offset) + 4);
}

// Each row harms one number of a good description, so that nothing but its own check can refuse it.
TEST(DamagedDescription, isRefusedWithItsReason) {
    const struct {
        void (*harm)(DescriptionTables& t);
        const char* error;
    } damages[] = {
        {[](auto& t) { writable(*t.root).mutate_minimum_reader(2); }, "a newer reader (2)"},
        {[](auto& t) { writable(*t.root).mutate_time_multiplier(0); }, "time unit"},
        {[](auto& t) { writable(*t.root).mutate_producer(900); }, "producer"},
        {[](auto& t) { writable(t.comments[0]) = 900; }, "comment 0"},
        {[](auto& t) { writable(t.blackouts[0]).mutate_end(4); }, "blackout 0"},
        {moveObjects, "not aligned"},
        {[](auto& t) { writable(t.nameEnds[0]) = 1; }, "name 0"},
        {[](auto& t) { writable(t.nameEnds[2]) = 1; }, "names overlap"},
        {[](auto& t) { writable(t.nameEnds.back()) = 4000; }, "names reach past"},
        {[](auto& t) { writable(t.scopes[0]).mutate_component(900); }, "scope 0"},
        {[](auto& t) { writable(t.scopes[1]).mutate_parent(1); }, "before its parent"},
        {[](auto& t) { writable(t.types[0]).mutate_first_literal(1); }, "type 0"},
        {[](auto& t) { writable(t.types[0]).mutate_first_literal(~0U); }, "type 0"},
        {[](auto& t) { writable(t.literals[1]).mutate_bits(900); }, "literal 1"},
        {[](auto& t) { writable(t.objects[1]).mutate_name(900); }, "object 1: has no name"},
        {[](auto& t) { writable(t.objects[1]).mutate_scope(2); }, "lies in no scope"},
        {[](auto& t) { writable(t.objects[1]).mutate_type(2); }, "a type that is not"},
        {[](auto& t) { writable(t.objects[0]).mutate_address(-1); }, "outside the data"},
        {[](auto& t) { writable(t.objects[1]).mutate_address(INT64_MAX); }, "outside the data"},
        {[](auto& t) { writable(t.objects[0]).mutate_width(97); }, "does not suit"},
        {[](auto& t) { writable(t.scopeAttributes[0]).mutate_owner(2); }, "scope attribute 0"},
        {[](auto& t) { writable(t.objectAttributes[2]).mutate_owner(0); }, "object attribute 2"},
        {[](auto& t) { writable(t.objectAttributes[0]).mutate_text(900); }, "0: has no text"},
        {[](auto& t) { writable(t.children.starts[1]) = 3; }, "scope in scope do not add up"},
        {[](auto& t) { writable(t.children.starts.back()) = 1; }, "do not add up"},
        {[](auto& t) { writable(t.objectsOfScopes.ids[1]) = 0; }, "scope 1: is out of order"},
        {[](auto& t) { writable(t.children.ids[0]) = 0; }, "scope 0: is in the wrong place"},
        {[](auto& t) { writable(t.childrenByName.ids[0]) = 2; }, "scope 0: is in the wrong place"},
        {[](auto& t) { writable(t.objects[0]).mutate_name(0); }, "scope 1: is out of order"},
        {[](auto& t) { writable(t.objects[1]).mutate_address(0); }, "address 1: is out of order"},
        {[](auto& t) { writable(t.objectsByAddress[1]) = 0; }, "address 1: is out of order"},
        {[](auto& t) { writable(t.objectsByAddress[1]) = 2; }, "address 1: is not there"},
    };
    for (const auto& damage : damages) {
        Bytes bytes = smallDescription();
        DescriptionTables tables(*GetDescription(bytes.data()));
        damage.harm(tables);
        EXPECT_THAT(refusalOf(bytes), HasSubstr(damage.error)) << "row " << &damage - damages;
    }
}

TEST(DamagedDescription, isRefusedWhereverItIsCut) {
    Bytes bytes = smallDescription();
    for (bytes.erase(bytes.end() - 9, bytes.end()); !bytes.empty(); bytes.pop_back())
        EXPECT_NE(refusalOf(bytes), "(accepted)") << bytes.size();
    EXPECT_EQ(refusalOf({}), "not a design description");
}

// Client code recurses over scopes; a chain as deep as the file is long would end its stack.
TEST(DesignDescription, nestsScopesToTheLimitOnly) {
    DesignDescriptionWriter writer;
    ScopeId deepest = RootScope;
    for (unsigned int depth = 0; depth < MaxScopeDepth; ++depth) {
        deepest = writer.addScope(deepest, ScopeKind::Begin, "b");
    }
    EXPECT_THROW(writer.addScope(deepest, ScopeKind::Begin, "b"), std::out_of_range);
    const ScopeId moved = writer.addScope(RootScope, ScopeKind::Begin, "b");
    const Bytes bytes = writer.finish();
    const auto description = DesignDescription::fromBytes(bytes);
    ASSERT_TRUE(description);
    EXPECT_THAT(description->findScopes(description->scopePath(deepest)), ElementsAre(deepest));
    const DescriptionTables tables(*GetDescription(bytes.data()));
    writable(tables.scopes[moved]).mutate_parent(deepest);
    EXPECT_THAT(refusalOf(bytes), HasSubstr("too deep"));
}

// A newer writer knows more kinds; the rest of what it wrote must still be readable.
TEST(DesignDescription, keepsNumbersThatAreNotKnown) {
    const Bytes bytes = smallDescription();
    const DescriptionTables tables(*GetDescription(bytes.data()));
    writable(tables.scopes[0]).mutate_kind(200);
    writable(tables.objects[0]).mutate_kind(200);
    writable(tables.objects[0]).mutate_representation(200);
    writable(tables.objects[0]).mutate_size(5);
    writable(tables.objects[0]).mutate_flags(0xFB);
    const auto description = DesignDescription::fromBytes(bytes);
    ASSERT_TRUE(description);
    EXPECT_EQ(toString(description->scope(0).kind), "unknown");
    EXPECT_EQ(static_cast<int>(description->object(0).representation), 200);
    EXPECT_EQ(description->object(0).size, 5U);
    EXPECT_EQ(description->objectPathWithRange(0), "top.cpu.pc");
}

// Section data lies wherever the reader's buffer put it.
TEST(DesignDescription, isReadFromAnyAlignment) {
    for (std::size_t shift = 0; shift < 8; ++shift) {
        Bytes buffer = smallDescription();
        const std::size_t size = buffer.size();
        buffer.insert(buffer.begin(), shift, 0);
        const auto description = DesignDescription::viewing(buffer.data() + shift, size);
        ASSERT_TRUE(description) << shift;
        EXPECT_EQ(description->objectPath(1), "top.cpu.alu");
    }
    EXPECT_FALSE(DesignDescription::viewing(nullptr, 0));
}

// A refused call must leave no half-added record behind: ids would shift under the caller.
TEST(DescriptionWriter, addsNothingWhenItRefuses) {
    DesignDescriptionWriter writer;
    writer.addScope(RootScope, ScopeKind::Module, "top");
    const auto before = writer.finish();
    const ObjectDefinition misplaced[] = {{.name = "x", .scope = 1, .range = {}},
                                          {.name = "x", .range = {}, .type = 0}};
    for (const ObjectDefinition& object : misplaced)
        EXPECT_THROW(writer.addObject(object), std::out_of_range);
    const ObjectDefinition impossible[] = {{.name = "x", .range = {}, .width = 33, .size = 8},
                                           {.name = "x", .range = {}, .address = -1},
                                           {.name = "x", .range = {}, .address = INT64_MAX - 7}};
    for (const ObjectDefinition& object : impossible)
        EXPECT_THROW(writer.addObject(object), std::invalid_argument);
    constexpr auto Comment = AttributeKind::Comment;
    EXPECT_THROW(writer.addScope(1, ScopeKind::Module, "new"), std::out_of_range);
    EXPECT_THROW(writer.addScopeAttribute(RootScope, Comment, ""), std::out_of_range);
    EXPECT_THROW(writer.addObjectAttribute(0, Comment, ""), std::out_of_range);
    EXPECT_THROW(writer.addBlackout({5, 4}), std::invalid_argument);
    EXPECT_THROW(writer.setTimeUnit({-9, 0}), std::invalid_argument);
    EXPECT_EQ(writer.finish(), before);
}

// The limit is the format's: whatever is added, the finished bytes never pass it.
TEST(DescriptionWriter, staysBelowItsLimitWhateverFillsIt) {
    constexpr std::size_t Limit = 30000;
    using Add = void (*)(DesignDescriptionWriter&, const std::string&);
    const Add adds[] = {
        [](auto& w, const auto& name) { w.addScope(RootScope, {}, name, name); },
        [](auto& w, const auto& name) { w.addObject({.name = name, .range = {}}); },
        [](auto& w, const auto& name) {
            (void)w.addEnumeration(name, {{name, 0, name}});
        },
        [](auto& w, const auto& name) { w.addScopeAttribute(0, AttributeKind::Comment, name); },
        [](auto& w, const auto& name) { w.addComment(name); },
        [](auto& w, const auto&) { w.addBlackout({}); },
        [](auto& w, const auto& name) { w.setDate(name); },
    };
    for (const Add add : adds) {
        DesignDescriptionWriter writer(Limit);
        writer.addScope(RootScope, ScopeKind::Module, "top");
        int count = 0;
        EXPECT_THROW(while (count < 10000) add(writer, std::to_string(++count)), std::length_error);
        EXPECT_GT(count, 10);
        EXPECT_LE(writer.finish().size(), Limit);
        EXPECT_TRUE(DesignDescription::fromBytes(writer.finish()));
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

}  // namespace
}  // namespace Korvel

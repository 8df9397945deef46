#include "description/DescriptionTables.h"
#include "description/DesignDescription.h"
#include "description/DesignDescriptionWriter.h"

#include <gmock/gmock.h>

#include <cstring>
#include <string>
#include <vector>

namespace Korvel {
namespace {

using namespace DescriptionFormat;
using ::testing::HasSubstr;

// Two scopes, two objects, one type, one of everything else.
std::vector<std::uint8_t> smallDescription() {
    DesignDescriptionWriter writer;
    writer.setProducer("hand");
    writer.setTimeUnit({-12, 10});
    writer.addComment("made by hand");
    writer.addBlackout({5, 9});
    const ScopeId top = writer.addScope(RootScope, ScopeKind::Module, "top");
    const ScopeId cpu = writer.addScope(top, ScopeKind::Module, "cpu");
    const TypeId state = writer.addEnumeration("state", {{"idle", 0, ""}, {"busy", 1, ""}});
    ObjectDefinition object;
    object.name = "pc";
    object.scope = cpu;
    object.width = 32;
    object.address = 1;
    writer.addObject(object);
    object.name = "alu";
    object.type = state;
    object.address = 40;
    writer.addObject(object);
    writer.addScopeAttribute(cpu, AttributeKind::DeclaredAt, "cpu.v", 12);
    writer.addObjectAttribute(0, AttributeKind::Comment, "first");
    writer.addObjectAttribute(1, AttributeKind::Comment, "second");
    return writer.finish();
}

template <class Record>
Record& writable(const Record& record) {
    return const_cast<Record&>(record);
}

// The root table's offset of one vector: the vector is moved by 4 bytes. What was the low half of
// the first address becomes its length.
void moveVector(const DescriptionTables& tables, flatbuffers::voffset_t field) {
    const auto* table = reinterpret_cast<const flatbuffers::Table*>(tables.root);
    auto* offset = const_cast<std::uint8_t*>(reinterpret_cast<const std::uint8_t*>(table)) +
                   table->GetOptionalFieldOffset(field);
    std::uint32_t distance = 0;
    std::memcpy(&distance, offset, sizeof distance);
    distance += 4;
    std::memcpy(offset, &distance, sizeof distance);
}

struct Damage {
    const char* name;
    void (*harm)(DescriptionTables& tables);
    const char* error;
};

const Damage Damages[] = {
    {"newerFormat", [](auto& t) { writable(*t.root).mutate_minimum_reader(2); }, "newer reader"},
    {"noUnit", [](auto& t) { writable(*t.root).mutate_time_multiplier(0); }, "time unit"},
    {"producer", [](auto& t) { writable(*t.root).mutate_producer(900); }, "producer"},
    {"comment", [](auto& t) { writable(t.comments[0]) = 900; }, "comment 0"},
    {"blackout", [](auto& t) { writable(t.blackouts[0]).mutate_end(4); }, "blackout 0"},
    {"misalignedRecords", [](auto& t) { moveVector(t, Description::VT_OBJECTS); }, "aligned"},
    {"firstName", [](auto& t) { writable(t.nameEnds[0]) = 1; }, "name 0"},
    {"namesOverlap", [](auto& t) { writable(t.nameEnds[2]) = 1; }, "overlap"},
    {"namesTooLong", [](auto& t) { writable(t.nameEnds.back()) = 4000; }, "reach past"},
    {"scopeName", [](auto& t) { writable(t.scopes[0]).mutate_component(900); }, "scope 0"},
    {"scopeInItself", [](auto& t) { writable(t.scopes[1]).mutate_parent(1); }, "its parent"},
    {"literalCount", [](auto& t) { writable(t.types[0]).mutate_first_literal(1); }, "type 0"},
    {"literalsWrap", [](auto& t) { writable(t.types[0]).mutate_first_literal(~0U); }, "type 0"},
    {"literalName", [](auto& t) { writable(t.literals[1]).mutate_bits(900); }, "literal 1"},
    {"objectName", [](auto& t) { writable(t.objects[1]).mutate_name(900); }, "object 1"},
    {"objectScope", [](auto& t) { writable(t.objects[1]).mutate_scope(2); }, "no scope"},
    {"objectType", [](auto& t) { writable(t.objects[1]).mutate_type(1); }, "type that is not"},
    {"negativeAddress", [](auto& t) { writable(t.objects[0]).mutate_address(-1); }, "outside"},
    {"addressWraps", [](auto& t) { writable(t.objects[1]).mutate_address(INT64_MAX); }, "outside"},
    {"width", [](auto& t) { writable(t.objects[0]).mutate_width(33); }, "does not suit"},
    {"attributeOwner", [](auto& t) { writable(t.scopeAttributes[0]).mutate_owner(2); }, "no owner"},
    {"attributeOrder",
     [](auto& t) {
         writable(t.objectAttributes[0]).mutate_owner(1);
         writable(t.objectAttributes[1]).mutate_owner(0);
     },
     "object attribute 1"},
    {"attributeText", [](auto& t) { writable(t.objectAttributes[0]).mutate_text(900); }, "no text"},
    {"startsDoNotRise", [](auto& t) { writable(t.children.starts[1]) = 3; }, "do not add up"},
    {"startsEndEarly", [](auto& t) { writable(t.children.starts.back()) = 1; }, "do not add up"},
    {"childTwice", [](auto& t) { writable(t.objectsOfScopes.ids[1]) = 0; }, "out of order"},
    {"childElsewhere", [](auto& t) { writable(t.children.ids[0]) = 0; }, "wrong place"},
    {"childMissing", [](auto& t) { writable(t.childrenByName.ids[0]) = 2; }, "wrong place"},
    {"nameOrder",
     [](auto& t) { std::swap(writable(t.objectsByName.ids[0]), writable(t.objectsByName.ids[1])); },
     "out of order"},
    {"addressOrder",
     [](auto& t) { std::swap(writable(t.objectsByAddress[0]), writable(t.objectsByAddress[1])); },
     "out of order"},
    {"addressMissing", [](auto& t) { writable(t.objectsByAddress[1]) = 2; }, "not there"},
};

class DamagedDescription : public ::testing::TestWithParam<Damage> {};

// Each row harms one number of a good description, so that nothing but its own check can refuse it.
TEST_P(DamagedDescription, isRefusedWithItsReason) {
    std::vector<std::uint8_t> bytes = smallDescription();
    DescriptionTables tables(*GetDescription(bytes.data()));
    GetParam().harm(tables);
    std::string error;
    EXPECT_FALSE(DesignDescription::fromBytes(bytes, &error));
    EXPECT_THAT(error, HasSubstr(GetParam().error));
}

INSTANTIATE_TEST_SUITE_P(Records, DamagedDescription, ::testing::ValuesIn(Damages),
                         [](const auto& row) { return std::string(row.param.name); });

// Client code recurses over scopes; a chain as deep as the file is long would end its stack.
TEST(DamagedDescription, isRefusedWhenScopesLieTooDeep) {
    DesignDescriptionWriter writer;
    for (unsigned int i = 0; i <= MaxScopeDepth; ++i) {
        writer.addScope(RootScope, ScopeKind::Begin, "b");
    }
    std::vector<std::uint8_t> bytes = writer.finish();
    const DescriptionTables tables(*GetDescription(bytes.data()));
    for (std::uint32_t i = 1; i <= MaxScopeDepth; ++i)
        writable(tables.scopes[i]).mutate_parent(i - 1);
    std::string error;
    EXPECT_FALSE(DesignDescription::fromBytes(bytes, &error));
    EXPECT_THAT(error, HasSubstr("too deep"));
}

TEST(DamagedDescription, isRefusedWhereverItIsCut) {
    const std::vector<std::uint8_t> whole = smallDescription();
    for (std::size_t size = 0; size + 8 < whole.size(); ++size) {
        EXPECT_FALSE(DesignDescription::fromBytes(
            {whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)}))
            << size;
    }
    std::string error;
    EXPECT_FALSE(DesignDescription::viewing(nullptr, 0, &error));
    EXPECT_EQ(error, "not a design description");
}

// A newer writer knows more kinds; the rest of what it wrote must still be readable.
TEST(NewerDescription, keepsNumbersThatAreNotKnown) {
    std::vector<std::uint8_t> bytes = smallDescription();
    const DescriptionTables tables(*GetDescription(bytes.data()));
    writable(tables.scopes[0]).mutate_kind(200);
    writable(tables.objects[0]).mutate_kind(200);
    writable(tables.objects[0]).mutate_representation(200);
    writable(tables.objects[0]).mutate_size(5);
    writable(tables.objects[0]).mutate_flags(0xFB);
    const auto description = DesignDescription::fromBytes(bytes);
    ASSERT_TRUE(description);
    EXPECT_EQ(toString(description->scope(0).kind), "unknown");
    const ObjectView object = description->object(0);
    EXPECT_EQ(static_cast<int>(object.representation), 200);
    EXPECT_EQ(object.size, 5U);
    EXPECT_EQ(description->objectPathWithRange(0), "top.cpu.pc");
}

// Section data lies wherever the reader's buffer put it.
TEST(Description, isReadFromAnyAlignment) {
    const std::vector<std::uint8_t> bytes = smallDescription();
    std::vector<std::uint8_t> buffer(bytes.size() + 8);
    for (std::size_t shift = 0; shift < 8; ++shift) {
        std::copy(bytes.begin(), bytes.end(), buffer.begin() + static_cast<std::ptrdiff_t>(shift));
        const auto description = DesignDescription::viewing(buffer.data() + shift, bytes.size());
        ASSERT_TRUE(description) << shift;
        EXPECT_EQ(description->objectPath(1), "top.cpu.alu");
    }
}

}  // namespace
}  // namespace Korvel

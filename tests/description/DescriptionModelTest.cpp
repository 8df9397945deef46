#include "description/DesignDescription.h"
#include "description/DesignDescriptionWriter.h"

#include <gmock/gmock.h>

#include <random>
#include <string>
#include <vector>

namespace Korvel {
namespace {

using ::testing::ElementsAreArray;
using ::testing::Matcher;
using Ids = std::vector<std::uint32_t>;

// Few names, so that siblings share them and a path can be read in several ways; some hold dots or
// brackets, one is empty, one has letters above ASCII, two differ only past their eighth letter.
constexpr std::string_view Names[] = {"a",   "b",      "a.b",       "a.b.a",     ".",        "",
                                      "[0]", "a[3:0]", "longname1", "longname2", "a\xc3\xa9"};

// A scope or an object.
struct Node {
    ScopeId parent = RootScope;
    std::string path;
    std::vector<std::string_view> names;
    ObjectDefinition object = {};
    std::vector<Matcher<AttributeView>> attributes = {};
};

template <class Condition>
Ids idsWhere(const std::vector<Node>& nodes, Condition condition) {
    Ids ids;
    for (std::uint32_t id = 0; id < nodes.size(); ++id)
        if (condition(nodes[id])) ids.push_back(id);
    return ids;
}

// A design as its description and as plain lists, whose answers come from walking over everything.
struct RandomDesign {
    explicit RandomDesign(unsigned int seed) : random(seed) {
        for (std::uint32_t left = 5 + below(120); left > 0; --left)
            below(3) == 0 ? addScope() : addObject();
        for (int i = 0; i < 20 && !scopes.empty() && !objects.empty(); ++i)
            addAttributes(i);
    }

    std::uint32_t below(std::size_t end) { return random() % static_cast<std::uint32_t>(end); }

    Node newNode() {
        Node node;
        if (const ScopeId parent = below(scopes.size() + 1); parent < scopes.size()) {
            node = {parent, scopes[parent].path + ".", scopes[parent].names};
        }
        node.names.push_back(Names[below(std::size(Names))]);
        node.path += node.names.back();
        return node;
    }

    void addScope() {
        const Node& scope = scopes.emplace_back(newNode());
        writer.addScope(scope.parent, static_cast<ScopeKind>(below(27)), scope.names.back(),
                        scope.path);
    }

    // Addresses come in any order, with aliases, empty objects, and now and then one that covers
    // everything that follows it.
    void addObject() {
        Node& node = objects.emplace_back(newNode());
        ObjectDefinition& object = node.object;
        object.name = node.names.back();
        object.scope = node.parent;
        object.kind = static_cast<VariableKind>(below(42));
        object.direction = static_cast<Direction>(below(6));
        object.representation = ValueRepresentation::VhdlEnumeration;
        object.range = {static_cast<RangeForm>(below(3)), static_cast<std::int32_t>(below(4)), 0};
        object.width = object.size = below(20) == 0 ? 300 : below(9);
        object.address = below(200);
        object.isSigned = below(2) == 0;
        writer.addObject(object);
    }

    // In an order that has nothing to do with the owners'.
    void addAttributes(int number) {
        const ScopeId scope = below(scopes.size());
        const ObjectId object = below(objects.size());
        const auto attribute = ::testing::FieldsAre(AttributeKind::Comment, "note", number, 0);
        scopes[scope].attributes.emplace_back(attribute);
        objects[object].attributes.emplace_back(attribute);
        writer.addScopeAttribute(scope, AttributeKind::Comment, "note", number);
        writer.addObjectAttribute(object, AttributeKind::Comment, "note", number);
    }

    void expectLists(const DesignDescription& description, ScopeId scope) const {
        const auto liesHere = [scope](const Node& node) { return node.parent == scope; };
        EXPECT_THAT(description.childScopes(scope), ElementsAreArray(idsWhere(scopes, liesHere)));
        EXPECT_THAT(description.objectsOf(scope), ElementsAreArray(idsWhere(objects, liesHere)));
    }

    void expectScope(const DesignDescription& description, ScopeId id) const {
        const Node& scope = scopes[id];
        const auto hasPath = [&](const Node& other) { return other.path == scope.path; };
        const auto hasNames = [&](const Node& other) { return other.names == scope.names; };
        EXPECT_EQ(description.scope(id).component, scope.path);
        EXPECT_THAT(description.scopeAttributes(id), ElementsAreArray(scope.attributes));
        EXPECT_EQ(description.scopePath(id), scope.path);
        EXPECT_EQ(description.findScopes(scope.path), idsWhere(scopes, hasPath));
        EXPECT_EQ(description.findScopes(scope.names), idsWhere(scopes, hasNames));
    }

    // With its range an object is found among those whose whole name looks the same.
    void expectObject(const DesignDescription& description, ObjectId id) const {
        const Node& node = objects[id];
        const auto fields = [](const auto& object) {
            return std::make_tuple(object.name, object.scope, object.kind, object.direction,
                                   object.width, object.size, object.address, object.isSigned);
        };
        const std::string path = node.path + toString(node.object.range);
        const auto looksTheSame = [&](const Node& other) {
            return other.path == path || other.path + toString(other.object.range) == path;
        };
        EXPECT_EQ(fields(description.object(id)), fields(node.object));
        EXPECT_THAT(description.objectAttributes(id), ElementsAreArray(node.attributes));
        EXPECT_EQ(description.objectPathWithRange(id), path);
        EXPECT_EQ(description.findObjects(path), idsWhere(objects, looksTheSame));
        EXPECT_THAT(description.findObjects(node.names), ::testing::Contains(id));
    }

    void expectObjectsAt(const DesignDescription& description, std::int64_t begin,
                         std::int64_t end) const {
        Ids found;
        Ids expected;
        description.findObjectsAt(begin, end, found);
        for (const ObjectId id : description.objectsByAddress()) {
            const ObjectDefinition& object = objects[id].object;
            const bool overlaps = object.address < end && object.address + object.size > begin;
            if (begin < end && object.size > 0 && overlaps) expected.push_back(id);
        }
        EXPECT_EQ(found, expected) << begin << " to " << end;
    }

    std::mt19937 random;
    std::vector<Node> scopes;
    std::vector<Node> objects;
    DesignDescriptionWriter writer;
};

TEST(Description, answersAsAWalkOverTheDesignDoes) {
    for (unsigned int seed = 1; seed <= 60 && !::testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        const RandomDesign design(seed);
        const auto bytes = design.writer.finish();
        EXPECT_EQ(bytes, RandomDesign(seed).writer.finish()) << "same calls, other bytes";
        const auto description = DesignDescription::fromBytes(bytes);
        ASSERT_TRUE(description);
        design.expectLists(*description, RootScope);
        for (ScopeId id = 0; id < design.scopes.size(); ++id) {
            design.expectLists(*description, id);
            design.expectScope(*description, id);
        }
        for (ObjectId id = 0; id < design.objects.size(); ++id)
            design.expectObject(*description, id);
        for (std::int64_t begin = -1; begin < 520; begin += 3) {
            for (const std::int64_t length : {0, 1, 2, 40})
                design.expectObjectsAt(*description, begin, begin + length);
        }
    }
}

}  // namespace
}  // namespace Korvel

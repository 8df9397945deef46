#include "description/DesignDescription.h"
#include "description/DesignDescriptionWriter.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

namespace Korvel {
namespace {

using ::testing::ElementsAreArray;

// A design as plain vectors, whose answers come from walking over everything.
struct Model {
    struct Scope {
        ScopeId parent;
        std::string name;
        std::string component;
        std::vector<std::string> attributes;
    };
    struct Object {
        ObjectDefinition definition;  // name left empty
        std::string name;
        std::vector<std::string> attributes;
    };
    std::vector<Scope> scopes;
    std::vector<Object> objects;

    std::vector<std::string> pathOf(ScopeId scope, const std::string& name) const {
        std::vector<std::string> names = {name};
        for (; scope != RootScope; scope = scopes[scope].parent) {
            names.insert(names.begin(), scopes[scope].name);
        }
        return names;
    }

    template <class Condition>
    std::vector<std::uint32_t> scopesWhere(Condition condition) const {
        std::vector<std::uint32_t> ids;
        for (ScopeId id = 0; id < scopes.size(); ++id) {
            if (condition(scopes[id])) ids.push_back(id);
        }
        return ids;
    }

    template <class Condition>
    std::vector<std::uint32_t> objectsWhere(Condition condition) const {
        std::vector<std::uint32_t> ids;
        for (ObjectId id = 0; id < objects.size(); ++id) {
            if (condition(objects[id])) ids.push_back(id);
        }
        return ids;
    }

    std::vector<std::uint32_t> objectsAt(std::int64_t begin, std::int64_t end) const {
        auto ids = objectsWhere([&](const Object& object) {
            const ObjectDefinition& d = object.definition;
            return d.size > 0 && d.address < end && d.address + d.size > begin;
        });
        std::stable_sort(ids.begin(), ids.end(), [this](ObjectId a, ObjectId b) {
            return objects[a].definition.address < objects[b].definition.address;
        });
        return ids;
    }
};

std::string joined(const std::vector<std::string>& names) {
    std::string text = names.front();
    for (std::size_t i = 1; i < names.size(); ++i)
        text += "." + names[i];
    return text;
}

// Few names, so that siblings share them and a path can be read in several ways; some hold dots or
// brackets, one is empty, one has letters above ASCII, two differ only past their eighth letter.
const std::vector<std::string> Names = {"a",   "b",      "a.b",       "a.b.a",     ".",        "",
                                        "[0]", "a[3:0]", "longname1", "longname2", "a\xc3\xa9"};

class RandomDesign {
public:
    explicit RandomDesign(unsigned int seed) : m_random(seed) {
        const int events = 5 + static_cast<int>(below(120));
        for (int i = 0; i < events; ++i) {
            below(3) == 0 ? addScope() : addObject();
        }
        addAttributes();
    }

    const Model& model() const { return m_model; }
    std::vector<std::uint8_t> bytes() const { return m_writer.finish(); }

private:
    std::uint32_t below(std::uint32_t end) { return m_random() % end; }
    const std::string& anyName() { return Names[below(static_cast<std::uint32_t>(Names.size()))]; }
    ScopeId anyScope() {
        const auto count = static_cast<std::uint32_t>(m_model.scopes.size());
        const std::uint32_t scope = below(count + 1);
        return scope == count ? RootScope : scope;
    }

    void addScope() {
        const Model::Scope scope = {anyScope(), anyName(), anyName(), {}};
        m_writer.addScope(scope.parent, static_cast<ScopeKind>(below(27)), scope.name,
                          scope.component);
        m_model.scopes.push_back(scope);
    }

    // Addresses come in any order, with aliases, empty objects, and now and then one that covers
    // everything that follows it.
    void addObject() {
        ObjectDefinition object;
        object.scope = anyScope();
        object.kind = static_cast<VariableKind>(below(42));
        object.direction = static_cast<Direction>(below(6));
        object.representation = ValueRepresentation::VhdlEnumeration;
        object.range = {static_cast<RangeForm>(below(3)), static_cast<std::int32_t>(below(4)), 0};
        object.width = object.size = below(20) == 0 ? 300 : below(9);
        object.address = below(200);
        object.isSigned = below(2) == 0;
        m_model.objects.push_back({object, anyName(), {}});
        object.name = m_model.objects.back().name;
        m_writer.addObject(object);
    }

    // In an order that has nothing to do with the owners'.
    void addAttributes() {
        for (int i = 0; i < 20; ++i) {
            const std::string text = "note " + std::to_string(i);
            if (const ScopeId scope = anyScope(); scope != RootScope) {
                m_writer.addScopeAttribute(scope, AttributeKind::Comment, text);
                m_model.scopes[scope].attributes.push_back(text);
            }
            if (m_model.objects.empty()) continue;
            const ObjectId object = below(static_cast<std::uint32_t>(m_model.objects.size()));
            m_writer.addObjectAttribute(object, AttributeKind::Comment, text);
            m_model.objects[object].attributes.push_back(text);
        }
    }

    std::mt19937 m_random;
    Model m_model;
    DesignDescriptionWriter m_writer;
};

std::vector<std::string> textsOf(const std::vector<AttributeView>& attributes) {
    std::vector<std::string> texts;
    for (const AttributeView& attribute : attributes)
        texts.emplace_back(attribute.text);
    return texts;
}

void expectSameLists(const DesignDescription& description, const Model& model) {
    for (ScopeId scope = 0; scope <= model.scopes.size(); ++scope) {
        const ScopeId id = scope == model.scopes.size() ? RootScope : scope;
        EXPECT_THAT(
            description.childScopes(id),
            ElementsAreArray(model.scopesWhere([&](const auto& s) { return s.parent == id; })));
        EXPECT_THAT(description.objectsOf(id),
                    ElementsAreArray(model.objectsWhere(
                        [&](const auto& o) { return o.definition.scope == id; })));
    }
}

void expectSameScopes(const DesignDescription& description, const Model& model) {
    for (ScopeId id = 0; id < model.scopes.size(); ++id) {
        const auto path = model.pathOf(model.scopes[id].parent, model.scopes[id].name);
        EXPECT_EQ(description.scope(id).component, model.scopes[id].component);
        EXPECT_EQ(textsOf(description.scopeAttributes(id)), model.scopes[id].attributes);
        EXPECT_EQ(description.scopePath(id), joined(path));
        EXPECT_EQ(description.findScopes(joined(path)), model.scopesWhere([&](const auto& s) {
            return joined(model.pathOf(s.parent, s.name)) == joined(path);
        }));
        EXPECT_EQ(description.findScopes(std::vector<std::string_view>(path.begin(), path.end())),
                  model.scopesWhere(
                      [&](const auto& s) { return model.pathOf(s.parent, s.name) == path; }));
    }
}

void expectSameObjects(const DesignDescription& description, const Model& model) {
    for (ObjectId id = 0; id < model.objects.size(); ++id) {
        const ObjectDefinition& expected = model.objects[id].definition;
        const ObjectView object = description.object(id);
        EXPECT_EQ(std::tie(object.name, object.scope, object.kind, object.direction),
                  std::make_tuple(std::string_view(model.objects[id].name), expected.scope,
                                  expected.kind, expected.direction));
        EXPECT_EQ(std::tie(object.width, object.size, object.address, object.isSigned),
                  std::tie(expected.width, expected.size, expected.address, expected.isSigned));
        EXPECT_EQ(textsOf(description.objectAttributes(id)), model.objects[id].attributes);

        // With its range an object is found among those whose whole name looks the same.
        const auto spelled = [&](const Model::Object& o, bool withRange) {
            return joined(model.pathOf(o.definition.scope, o.name)) +
                   (withRange ? toString(o.definition.range) : "");
        };
        const std::string path = spelled(model.objects[id], true);
        EXPECT_EQ(description.objectPathWithRange(id), path);
        EXPECT_EQ(description.findObjects(path), model.objectsWhere([&](const auto& o) {
            return spelled(o, false) == path || spelled(o, true) == path;
        }));
        const auto names = model.pathOf(expected.scope, model.objects[id].name);
        EXPECT_THAT(
            description.findObjects(std::vector<std::string_view>(names.begin(), names.end())),
            ::testing::Contains(id));
    }
}

void expectSameAddresses(const DesignDescription& description, const Model& model) {
    for (std::int64_t begin = -1; begin < 520; begin += 3) {
        for (const std::int64_t length : {0, 1, 2, 40}) {
            std::vector<ObjectId> found;
            description.findObjectsAt(begin, begin + length, found);
            const auto expected =
                length == 0 ? std::vector<ObjectId>{} : model.objectsAt(begin, begin + length);
            EXPECT_EQ(found, expected) << begin << " + " << length;
        }
    }
}

TEST(Description, answersAsAWalkOverTheDesignDoes) {
    for (unsigned int seed = 1; seed <= 60 && !::testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        const RandomDesign design(seed);
        std::string error;
        const auto description = DesignDescription::fromBytes(design.bytes(), &error);
        ASSERT_TRUE(description) << error;
        ASSERT_EQ(description->scopeCount(), design.model().scopes.size());
        ASSERT_EQ(description->objectCount(), design.model().objects.size());
        expectSameLists(*description, design.model());
        expectSameScopes(*description, design.model());
        expectSameObjects(*description, design.model());
        expectSameAddresses(*description, design.model());
        EXPECT_EQ(design.bytes(), RandomDesign(seed).bytes()) << "same calls, other bytes";
    }
}

}  // namespace
}  // namespace Korvel

#include "description/DesignDescription.h"
#include "description/DesignDescriptionWriter.h"
#include "description/ValueText.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

using namespace Korvel;

namespace {

void require(bool holds) {
    if (!holds) std::abort();
}

bool holds(const std::vector<std::uint32_t>& ids, std::uint32_t id) {
    return std::find(ids.begin(), ids.end(), id) != ids.end();
}

// A good description whose records reach every check; mutations start from it.
std::vector<std::uint8_t> goodDescription() {
    DesignDescriptionWriter writer;
    writer.setProducer("seed");
    writer.addComment("comment");
    writer.addBlackout({1, 2});
    const TypeId state = writer.addEnumeration("state", {{"idle", 0, "0x"}, {"b", 1, ""}});
    ScopeId scope = RootScope;
    for (const char* name : {"top", "a.b", "a", ""}) {
        scope = writer.addScope(scope, ScopeKind::Module, name, "component");
        writer.addScopeAttribute(scope, AttributeKind::DeclaredAt, "file.v", 3);
        for (std::uint8_t kind = 0; kind <= static_cast<std::uint8_t>(ValueRepresentation::Event);
             ++kind) {
            ObjectDefinition object;
            object.name = kind % 2 == 0 ? "pc" : "b.pc";
            object.scope = scope;
            object.representation = static_cast<ValueRepresentation>(kind);
            object.range = {RangeForm::Bounds, kind, 0};
            object.width = kind + 1U;
            object.address = 64 - 8 * kind;
            object.type = state;
            writer.addObjectAttribute(writer.addObject(object), AttributeKind::Comment, name);
        }
    }
    return writer.finish();
}

void walkValue(const DesignDescription& description, const ObjectView& object) {
    constexpr std::uint32_t LargestSize = 4096;
    if (object.size > LargestSize) return;
    const std::vector<std::uint8_t> bytes(object.size, 1);
    const StringLookup strings = [](std::uint32_t id) {
        return id < 100 ? std::optional<std::string>("piece") : std::nullopt;
    };
    std::string digits;
    std::string literals;
    require(appendValueText(digits, object, bytes.data(), bytes.size(), strings));
    require(appendLiteralText(literals, description, object, bytes.data(), bytes.size(), strings));
    const auto stored = parseValueText(object, digits);
    require(!stored || stored->size() == object.size);
    const auto literal = parseLiteralText(description, object, literals);
    require(!literal || literal->size() == object.size);
}

void walkScopes(const DesignDescription& description) {
    std::size_t scopes = description.childScopes(RootScope).size();
    std::size_t objects = description.objectsOf(RootScope).size();
    for (ScopeId id = 0; id < description.scopeCount(); ++id) {
        scopes += description.childScopes(id).size();
        objects += description.objectsOf(id).size();
        require(holds(description.findScopes(description.scopePath(id)), id));
        require(toString(description.scope(id).kind).size() > 0);
        for (const AttributeView& a : description.scopeAttributes(id))
            (void)toString(a.kind);
    }
    require(scopes == description.scopeCount() && objects == description.objectCount());
}

void walkObjects(const DesignDescription& description) {
    for (ObjectId id = 0; id < description.objectCount(); ++id) {
        const ObjectView object = description.object(id);
        require(holds(description.findObjects(description.objectPath(id)), id));
        require(holds(description.findObjects(description.objectPathWithRange(id)), id));
        std::vector<ObjectId> found;
        description.findObjectsAt(object.address, object.address + object.size, found);
        require(object.size == 0 || holds(found, id));
        for (const AttributeView& a : description.objectAttributes(id))
            (void)toString(a.kind);
        walkValue(description, object);
    }
}

void walkTypes(const DesignDescription& description) {
    std::size_t letters = 0;
    for (TypeId id = 0; id < description.typeCount(); ++id) {
        letters += description.typeName(id).size();
        for (std::uint32_t i = 0; i < description.literalCount(id); ++i) {
            letters += description.literal(id, i).name.size();
        }
    }
    for (const std::string_view comment : description.comments())
        letters += comment.size();
    letters += description.producer().size() + description.date().size();
    require(letters < SIZE_MAX && !toString(description.timeUnit()).empty());
}

void open(const std::uint8_t* data, std::size_t size) {
    std::string error;
    const auto description = DesignDescription::viewing(data, size, &error);
    require(description.has_value() == error.empty());
    if (!description) return;
    walkScopes(*description);
    walkObjects(*description);
    walkTypes(*description);
}

}  // namespace

// Any bytes are refused with a reason, or every accessor is safe, finite and agrees with the others
// on them. The input is taken as a description, and as patches of (16-bit place, byte) on a good
// one: few random bytes have all their orders right, so that most mutations would end in the
// checks.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t PatchSize = 3;
    constexpr std::size_t MaxPatches = 16;
    open(data, size);
    static const std::vector<std::uint8_t> good = goodDescription();
    std::vector<std::uint8_t> patched = good;
    const std::size_t patches = std::min(size / PatchSize, MaxPatches);
    for (std::size_t i = 0; i < patches; ++i) {
        std::uint16_t place = 0;
        std::memcpy(&place, data + i * PatchSize, sizeof place);
        patched[place % patched.size()] = data[i * PatchSize + 2];
    }
    open(patched.data(), patched.size());
    return 0;
}

#include "description/DesignDescription.h"

#include "description/DescriptionCheck.h"
#include "description/DescriptionTables.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace Korvel {

using namespace DescriptionFormat;

namespace {

constexpr std::size_t Alignment = 8;

template <class Record>
const Record& at(std::span<const Record> records, std::size_t index, const char* what) {
    if (index >= records.size()) {
        throw std::out_of_range("the design description has no " + std::string(what) + " " +
                                std::to_string(index));
    }
    return records[index];
}

// The description has one table; a file that claims more is not one of ours.
bool isVerified(const std::uint8_t* bytes, std::size_t size) {
    constexpr flatbuffers::uoffset_t MaxDepth = 4;
    constexpr flatbuffers::uoffset_t MaxTables = 4;
    flatbuffers::Verifier verifier(bytes, size, MaxDepth, MaxTables);
    return VerifyDescriptionBuffer(verifier);
}

std::string faultOf(const std::uint8_t* bytes, std::size_t size) {
    constexpr std::size_t SmallestSize = 2 * sizeof(flatbuffers::uoffset_t);
    if (size >= FLATBUFFERS_MAX_BUFFER_SIZE) return "the design description is too large";
    if (size < SmallestSize || !DescriptionBufferHasIdentifier(bytes)) {
        return "not a design description";
    }
    if (!isVerified(bytes, size)) {
        return "the design description is damaged: its tables reach past its end";
    }
    const Description& root = *GetDescription(bytes);
    if (root.minimum_reader() > ReaderVersion) {
        return "the design description needs a newer reader (" +
               std::to_string(root.minimum_reader()) + ")";
    }
    const std::string fault = checkTables(DescriptionTables(root));
    return fault.empty() ? fault : "the design description is damaged: " + fault;
}

}  // namespace

// What answers the questions. The objects by ascending address are seen as a balanced binary tree
// whose root is the middle of the list, the root of each half the middle of that half, and so on:
// m_reach[i] is the largest end address in the subtree of entry i. A search leaves out every
// subtree that ends before the addresses asked for, so that one object that spans them all does
// not make it a walk.
struct DesignDescription::Content {
    std::vector<std::uint8_t> owned;  // empty when the caller keeps the bytes
    const std::uint8_t* bytes = nullptr;
    std::size_t size = 0;
    std::optional<DescriptionTables> tables;
    std::vector<std::int64_t> reach;

    std::int64_t endOf(std::size_t entry) const {
        const ObjectRecord& object = tables->objects[tables->objectsByAddress[entry]];
        return object.address() + object.size();
    }

    // Half-open range of entries; returns the largest end address in it.
    std::int64_t fillReach(std::size_t first, std::size_t last) {
        if (first == last) return 0;
        const std::size_t middle = first + (last - first) / 2;
        const std::int64_t below = fillReach(first, middle);
        const std::int64_t above = fillReach(middle + 1, last);
        return reach[middle] = std::max({endOf(middle), below, above});
    }

    void collect(std::size_t first, std::size_t last, std::int64_t begin, std::int64_t end,
                 std::vector<ObjectId>& found) const {
        if (first == last) return;
        const std::size_t middle = first + (last - first) / 2;
        if (reach[middle] <= begin) return;
        collect(first, middle, begin, end, found);
        const ObjectId id = tables->objectsByAddress[middle];
        const ObjectRecord& object = tables->objects[id];
        if (object.address() >= end) return;
        if (object.size() > 0 && endOf(middle) > begin) found.push_back(id);
        collect(middle + 1, last, begin, end, found);
    }

    // What lies directly in a scope and has this name, in the order of declaration.
    template <class Record>
    IdList named(std::span<const Record> records, const GroupedIds& byName, ScopeId scope,
                 std::string_view name) const {
        const IdList all = byName.group(tables->groupOf(scope));
        const auto first = std::partition_point(all.begin(), all.end(), [&](std::uint32_t id) {
            return tables->text(records[id].name()) < name;
        });
        const auto last = std::partition_point(first, all.end(), [&](std::uint32_t id) {
            return tables->text(records[id].name()) == name;
        });
        return {first, static_cast<std::size_t>(last - first)};
    }

    IdList scopesNamed(ScopeId scope, std::string_view name) const {
        return named(tables->scopes, tables->childrenByName, scope, name);
    }

    DeclaredRange rangeOf(const ObjectRecord& object) const {
        return {static_cast<RangeForm>(object.flags() & RangeFormMask), object.left(),
                object.right()};
    }

    void findObjectsNamed(ScopeId scope, std::string_view name,
                          std::vector<ObjectId>& found) const {
        const IdList exact = named(tables->objects, tables->objectsByName, scope, name);
        found.insert(found.end(), exact.begin(), exact.end());
        const std::size_t bracket = name.rfind('[');
        if (bracket == std::string_view::npos || name.back() != ']') return;
        for (const ObjectId id :
             named(tables->objects, tables->objectsByName, scope, name.substr(0, bracket))) {
            const std::string range = toString(rangeOf(tables->objects[id]));
            if (range == name.substr(bracket)) found.push_back(id);
        }
    }

    // Calls visit(scope, rest) for every way to read the beginning of a path as the full name of a
    // scope. A dot may divide two names or be part of one, so each is tried as an end of a name. A
    // scope has one full name, hence no scope is visited twice.
    template <class Visit>
    void forEachReading(std::string_view path, Visit visit) const {
        std::vector<std::pair<ScopeId, std::size_t>> open = {{RootScope, 0}};
        while (!open.empty()) {
            const auto [scope, start] = open.back();
            open.pop_back();
            const std::string_view rest = path.substr(start);
            visit(scope, rest);
            for (std::size_t dot = rest.find('.'); dot != std::string_view::npos;
                 dot = rest.find('.', dot + 1)) {
                for (const ScopeId child : scopesNamed(scope, rest.substr(0, dot))) {
                    open.emplace_back(child, start + dot + 1);
                }
            }
        }
    }

    // The scopes that the elements of a path before the last one lead to.
    std::vector<ScopeId> scopesBeforeLast(const std::vector<std::string_view>& path) const {
        std::vector<ScopeId> level = {RootScope};
        for (std::size_t i = 0; i + 1 < path.size(); ++i) {
            std::vector<ScopeId> next;
            for (const ScopeId scope : level) {
                const IdList children = scopesNamed(scope, path[i]);
                next.insert(next.end(), children.begin(), children.end());
            }
            level = std::move(next);
        }
        return level;
    }

    std::vector<AttributeView> attributesOf(std::span<const AttributeRecord> attributes,
                                            std::uint32_t owner) const {
        std::vector<AttributeView> views;
        auto it = std::partition_point(
            attributes.begin(), attributes.end(),
            [owner](const AttributeRecord& attribute) { return attribute.owner() < owner; });
        for (; it != attributes.end() && it->owner() == owner; ++it) {
            views.push_back({static_cast<AttributeKind>(it->kind()), tables->text(it->text()),
                             it->first(), it->second()});
        }
        return views;
    }

    IdList groupOf(const GroupedIds& list, ScopeId scope) const {
        if (scope != RootScope) at(tables->scopes, scope, "scope");
        return list.group(tables->groupOf(scope));
    }
};

DesignDescription::DesignDescription(std::unique_ptr<const Content> content)
    : m_content(std::move(content)) {}
DesignDescription::~DesignDescription() = default;
DesignDescription::DesignDescription(DesignDescription&& other) noexcept = default;
DesignDescription& DesignDescription::operator=(DesignDescription&& other) noexcept = default;

std::optional<DesignDescription> DesignDescription::fromBytes(std::vector<std::uint8_t> bytes,
                                                              std::string* error) {
    auto content = std::make_unique<Content>();
    content->owned = std::move(bytes);
    content->bytes = content->owned.data();
    content->size = content->owned.size();
    return open(std::move(content), error);
}

std::optional<DesignDescription> DesignDescription::viewing(const void* bytes, std::size_t size,
                                                            std::string* error) {
    const auto* start = static_cast<const std::uint8_t*>(bytes);
    if (reinterpret_cast<std::uintptr_t>(start) % Alignment != 0) {
        return fromBytes({start, start + size}, error);
    }
    auto content = std::make_unique<Content>();
    content->bytes = start;
    content->size = size;
    return open(std::move(content), error);
}

std::optional<DesignDescription> DesignDescription::open(std::unique_ptr<Content> content,
                                                         std::string* error) {
    std::string fault = faultOf(content->bytes, content->size);
    if (!fault.empty()) {
        if (error != nullptr) *error = std::move(fault);
        return std::nullopt;
    }
    content->tables.emplace(*GetDescription(content->bytes));
    content->reach.resize(content->tables->objects.size());
    content->fillReach(0, content->reach.size());
    return DesignDescription(std::move(content));
}

TimeUnit DesignDescription::timeUnit() const {
    const Description& root = *m_content->tables->root;
    return {root.time_exponent(), root.time_multiplier()};
}

std::int64_t DesignDescription::timeZero() const {
    return m_content->tables->root->time_zero();
}

std::string_view DesignDescription::producer() const {
    return m_content->tables->text(m_content->tables->root->producer());
}

std::string_view DesignDescription::date() const {
    return m_content->tables->text(m_content->tables->root->date());
}

std::vector<std::string_view> DesignDescription::comments() const {
    std::vector<std::string_view> texts;
    for (const std::uint32_t id : m_content->tables->comments) {
        texts.push_back(m_content->tables->text(id));
    }
    return texts;
}

std::vector<Blackout> DesignDescription::blackouts() const {
    std::vector<Blackout> periods;
    for (const BlackoutRecord& record : m_content->tables->blackouts) {
        periods.push_back({record.start(), record.end()});
    }
    return periods;
}

std::uint32_t DesignDescription::scopeCount() const {
    return static_cast<std::uint32_t>(m_content->tables->scopes.size());
}

std::uint32_t DesignDescription::objectCount() const {
    return static_cast<std::uint32_t>(m_content->tables->objects.size());
}

std::uint32_t DesignDescription::typeCount() const {
    return static_cast<std::uint32_t>(m_content->tables->types.size());
}

ScopeView DesignDescription::scope(ScopeId id) const {
    const DescriptionTables& tables = *m_content->tables;
    const ScopeRecord& record = at(tables.scopes, id, "scope");
    return {id, record.parent(), static_cast<ScopeKind>(record.kind()), tables.text(record.name()),
            tables.text(record.component())};
}

ObjectView DesignDescription::object(ObjectId id) const {
    const ObjectRecord& record = at(m_content->tables->objects, id, "object");
    ObjectView view;
    view.id = id;
    view.scope = record.scope();
    view.name = m_content->tables->text(record.name());
    view.kind = static_cast<VariableKind>(record.kind());
    view.direction = static_cast<Direction>(record.direction());
    view.representation = static_cast<ValueRepresentation>(record.representation());
    view.range = m_content->rangeOf(record);
    view.width = record.width();
    view.address = record.address();
    view.size = record.size();
    view.type = record.type();
    view.isSigned = (record.flags() & SignedFlag) != 0;
    return view;
}

std::string_view DesignDescription::typeName(TypeId id) const {
    return m_content->tables->text(at(m_content->tables->types, id, "type").name());
}

std::uint32_t DesignDescription::literalCount(TypeId id) const {
    return at(m_content->tables->types, id, "type").literal_count();
}

LiteralView DesignDescription::literal(TypeId id, std::uint32_t index) const {
    const DescriptionTables& tables = *m_content->tables;
    const TypeRecord& type = at(tables.types, id, "type");
    const auto literals = tables.literals.subspan(type.first_literal(), type.literal_count());
    const LiteralRecord& record = at(literals, index, "literal");
    return {tables.text(record.name()), record.position(), tables.text(record.bits())};
}

std::vector<AttributeView> DesignDescription::scopeAttributes(ScopeId id) const {
    at(m_content->tables->scopes, id, "scope");
    return m_content->attributesOf(m_content->tables->scopeAttributes, id);
}

std::vector<AttributeView> DesignDescription::objectAttributes(ObjectId id) const {
    at(m_content->tables->objects, id, "object");
    return m_content->attributesOf(m_content->tables->objectAttributes, id);
}

IdList DesignDescription::childScopes(ScopeId scope) const {
    return m_content->groupOf(m_content->tables->children, scope);
}

IdList DesignDescription::objectsOf(ScopeId scope) const {
    return m_content->groupOf(m_content->tables->objectsOfScopes, scope);
}

std::string DesignDescription::scopePath(ScopeId id) const {
    const DescriptionTables& tables = *m_content->tables;
    std::vector<std::string_view> names;
    for (; id != RootScope; id = tables.scopes[id].parent()) {
        names.push_back(tables.text(at(tables.scopes, id, "scope").name()));
    }
    std::string path;
    for (auto name = names.rbegin(); name != names.rend(); ++name) {
        if (name != names.rbegin()) path += '.';
        path += *name;
    }
    return path;
}

std::string DesignDescription::objectPath(ObjectId id) const {
    const ObjectRecord& record = at(m_content->tables->objects, id, "object");
    std::string path = scopePath(record.scope());
    if (record.scope() != RootScope) path += '.';
    return path += m_content->tables->text(record.name());
}

std::string DesignDescription::objectPathWithRange(ObjectId id) const {
    return objectPath(id) + toString(object(id).range);
}

std::vector<ScopeId> DesignDescription::findScopes(std::string_view path) const {
    std::vector<ScopeId> found;
    m_content->forEachReading(path, [&](ScopeId scope, std::string_view name) {
        const IdList scopes = m_content->scopesNamed(scope, name);
        found.insert(found.end(), scopes.begin(), scopes.end());
    });
    std::sort(found.begin(), found.end());
    return found;
}

std::vector<ObjectId> DesignDescription::findObjects(std::string_view path) const {
    std::vector<ObjectId> found;
    m_content->forEachReading(path, [&](ScopeId scope, std::string_view name) {
        m_content->findObjectsNamed(scope, name, found);
    });
    std::sort(found.begin(), found.end());
    return found;
}

std::vector<ScopeId> DesignDescription::findScopes(
    const std::vector<std::string_view>& path) const {
    std::vector<ScopeId> found;
    if (path.empty()) return found;
    for (const ScopeId scope : m_content->scopesBeforeLast(path)) {
        const IdList scopes = m_content->scopesNamed(scope, path.back());
        found.insert(found.end(), scopes.begin(), scopes.end());
    }
    std::sort(found.begin(), found.end());
    return found;
}

std::vector<ObjectId> DesignDescription::findObjects(
    const std::vector<std::string_view>& path) const {
    std::vector<ObjectId> found;
    if (path.empty()) return found;
    for (const ScopeId scope : m_content->scopesBeforeLast(path)) {
        m_content->findObjectsNamed(scope, path.back(), found);
    }
    std::sort(found.begin(), found.end());
    return found;
}

void DesignDescription::findObjectsAt(std::int64_t begin, std::int64_t end,
                                      std::vector<ObjectId>& found) const {
    if (begin < end) m_content->collect(0, m_content->reach.size(), begin, end, found);
}

IdList DesignDescription::objectsByAddress() const {
    const auto& order = m_content->tables->objectsByAddress;
    return {order.data(), order.size()};
}

}  // namespace Korvel

#include "description/DesignDescriptionWriter.h"

#include "description/DescriptionTables.h"
#include "description/StringPool.h"

#include <algorithm>
#include <limits>
#include <numeric>
#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>

namespace Korvel {

using namespace DescriptionFormat;

namespace {

using Ids = std::vector<std::uint32_t>;

// Table, lengths of the vectors and padding: what a description takes beside its records.
constexpr std::size_t FixedBytes = 1024;

// What one of them takes in the finished bytes, its places in the index lists included.
constexpr std::size_t BytesOfName = sizeof(std::uint32_t);
constexpr std::size_t BytesOfScope = sizeof(ScopeRecord) + 4 * sizeof(std::uint32_t);
constexpr std::size_t BytesOfObject = sizeof(ObjectRecord) + 3 * sizeof(std::uint32_t);

[[noreturn]] void refuseId(const char* what, std::uint32_t id) {
    throw std::out_of_range("the design description has no " + std::string(what) + " " +
                            std::to_string(id));
}

// The beginning of a name as a number that sorts like it: most comparisons end here, without
// touching the texts.
std::uint64_t prefixOf(std::string_view name) {
    std::uint64_t prefix = 0;
    for (std::size_t i = 0; i < sizeof prefix; ++i) {
        prefix = prefix << 8 | (i < name.size() ? static_cast<unsigned char>(name[i]) : 0);
    }
    return prefix;
}

struct NamedId {
    std::uint64_t prefix;
    std::uint32_t name;
    std::uint32_t id;
};

// Records listed by the scope that they lie in, as DesignDescription.fbs lays the lists out.
struct ScopeLists {
    Ids starts;
    Ids asDeclared;
    Ids byName;
};

template <class Record, class ScopeOf>
ScopeLists listByScope(const std::vector<Record>& records, std::size_t scopeCount,
                       const StringPool& names, ScopeOf scopeOf) {
    const auto groupOf = [&](const Record& record) -> std::size_t {
        return scopeOf(record) == RootScope ? scopeCount : scopeOf(record);
    };
    ScopeLists lists;
    lists.starts.assign(scopeCount + 2, 0);
    for (const Record& record : records)
        ++lists.starts[groupOf(record) + 1];
    std::partial_sum(lists.starts.begin(), lists.starts.end(), lists.starts.begin());

    lists.asDeclared.resize(records.size());
    Ids next = lists.starts;
    for (std::uint32_t id = 0; id < records.size(); ++id) {
        lists.asDeclared[next[groupOf(records[id])]++] = id;
    }

    const auto nameLess = [&names](const NamedId& a, const NamedId& b) {
        if (a.prefix != b.prefix) return a.prefix < b.prefix;
        if (a.name != b.name) return names.text(a.name) < names.text(b.name);
        return a.id < b.id;
    };
    lists.byName.reserve(records.size());
    std::vector<NamedId> group;
    for (std::size_t g = 0; g <= scopeCount; ++g) {
        group.clear();
        for (std::uint32_t i = lists.starts[g]; i < lists.starts[g + 1]; ++i) {
            const std::uint32_t id = lists.asDeclared[i];
            const std::uint32_t name = records[id].name();
            group.push_back({prefixOf(names.text(name)), name, id});
        }
        std::sort(group.begin(), group.end(), nameLess);
        for (const NamedId& named : group)
            lists.byName.push_back(named.id);
    }
    return lists;
}

Ids orderByAddress(const std::vector<ObjectRecord>& objects) {
    Ids order(objects.size());
    std::iota(order.begin(), order.end(), 0U);
    const auto less = [&objects](std::uint32_t a, std::uint32_t b) {
        const std::int64_t left = objects[a].address();
        const std::int64_t right = objects[b].address();
        return left < right || (left == right && a < b);
    };
    if (!std::is_sorted(order.begin(), order.end(), less)) {
        std::sort(order.begin(), order.end(), less);
    }
    return order;
}

std::vector<AttributeRecord> orderByOwner(std::vector<AttributeRecord> attributes) {
    std::stable_sort(
        attributes.begin(), attributes.end(),
        [](const AttributeRecord& a, const AttributeRecord& b) { return a.owner() < b.owner(); });
    return attributes;
}

}  // namespace

struct DesignDescriptionWriter::Content {
    std::size_t limit = MaxBytes;
    TimeUnit unit;
    std::int64_t timeZero = 0;
    std::uint32_t producer = 0;
    std::uint32_t date = 0;
    StringPool names;
    Ids comments;
    std::vector<BlackoutRecord> blackouts;
    std::vector<ScopeRecord> scopes;
    std::vector<std::uint16_t> scopeDepths;
    std::vector<TypeRecord> types;
    std::vector<LiteralRecord> literals;
    std::vector<ObjectRecord> objects;
    std::vector<AttributeRecord> scopeAttributes;
    std::vector<AttributeRecord> objectAttributes;

    // An upper bound of the finished size.
    std::size_t size() const {
        const std::size_t attributes = scopeAttributes.size() + objectAttributes.size();
        return FixedBytes + names.bytes().size() + names.ends().size() * BytesOfName +
               comments.size() * sizeof(std::uint32_t) + blackouts.size() * sizeof(BlackoutRecord) +
               scopes.size() * BytesOfScope + types.size() * sizeof(TypeRecord) +
               literals.size() * sizeof(LiteralRecord) + objects.size() * BytesOfObject +
               attributes * sizeof(AttributeRecord);
    }

    // Before anything is added: texts are counted as if they were new.
    void demand(std::size_t recordBytes, std::initializer_list<std::string_view> texts) const {
        std::size_t added = recordBytes;
        for (const std::string_view text : texts)
            added += text.size() + BytesOfName;
        const std::size_t used = size();
        if (used > limit || added > limit - used) {
            throw std::length_error("the design description grows past " + std::to_string(limit) +
                                    " bytes");
        }
    }

    void requireScope(ScopeId scope) const {
        if (scope != RootScope && scope >= scopes.size()) refuseId("scope", scope);
    }

    void addAttribute(std::vector<AttributeRecord>& attributes, std::uint32_t owner,
                      AttributeKind kind, std::string_view text, std::int64_t first,
                      std::int64_t second) {
        demand(sizeof(AttributeRecord), {text});
        attributes.emplace_back(first, second, owner, names.intern(text),
                                static_cast<std::uint8_t>(kind));
    }

    void build(flatbuffers::FlatBufferBuilder& builder) const;
};

// Vectors come before the table that refers to them.
void DesignDescriptionWriter::Content::build(flatbuffers::FlatBufferBuilder& builder) const {
    const auto structs = [&builder](const auto& records) {
        return builder.CreateVectorOfStructs(records);
    };
    const ScopeLists scopeLists = listByScope(
        scopes, scopes.size(), names, [](const ScopeRecord& scope) { return scope.parent(); });
    const auto childStarts = builder.CreateVector(scopeLists.starts);
    const auto children = builder.CreateVector(scopeLists.asDeclared);
    const auto childrenByName = builder.CreateVector(scopeLists.byName);
    const ScopeLists objectLists = listByScope(
        objects, scopes.size(), names, [](const ObjectRecord& object) { return object.scope(); });
    const auto objectStarts = builder.CreateVector(objectLists.starts);
    const auto objectsOfScopes = builder.CreateVector(objectLists.asDeclared);
    const auto objectsByName = builder.CreateVector(objectLists.byName);
    const auto objectsByAddress = builder.CreateVector(orderByAddress(objects));
    const auto commentIds = builder.CreateVector(comments);
    const auto nameEnds = builder.CreateVector(names.ends());
    const auto nameText = builder.CreateVector(
        reinterpret_cast<const std::uint8_t*>(names.bytes().data()), names.bytes().size());
    const auto blackoutRecords = structs(blackouts);
    const auto scopeRecords = structs(scopes);
    const auto objectRecords = structs(objects);
    const auto typeRecords = structs(types);
    const auto literalRecords = structs(literals);
    const auto attributesOfScopes = structs(orderByOwner(scopeAttributes));
    const auto attributesOfObjects = structs(orderByOwner(objectAttributes));

    DescriptionBuilder table(builder);
    table.add_minimum_reader(1);
    table.add_time_multiplier(static_cast<std::uint16_t>(unit.multiplier));
    table.add_time_exponent(static_cast<std::int8_t>(unit.exponent));
    table.add_time_zero(timeZero);
    table.add_producer(producer);
    table.add_date(date);
    table.add_comments(commentIds);
    table.add_blackouts(blackoutRecords);
    table.add_name_ends(nameEnds);
    table.add_name_text(nameText);
    table.add_scopes(scopeRecords);
    table.add_objects(objectRecords);
    table.add_types(typeRecords);
    table.add_literals(literalRecords);
    table.add_scope_attributes(attributesOfScopes);
    table.add_object_attributes(attributesOfObjects);
    table.add_child_starts(childStarts);
    table.add_children(children);
    table.add_children_by_name(childrenByName);
    table.add_object_starts(objectStarts);
    table.add_objects_of_scopes(objectsOfScopes);
    table.add_objects_by_name(objectsByName);
    table.add_objects_by_address(objectsByAddress);
    FinishDescriptionBuffer(builder, table.Finish());
}

DesignDescriptionWriter::DesignDescriptionWriter(std::size_t limit)
    : m_content(std::make_unique<Content>()) {
    m_content->limit = std::min(limit, MaxBytes);
}

DesignDescriptionWriter::~DesignDescriptionWriter() = default;
DesignDescriptionWriter::DesignDescriptionWriter(DesignDescriptionWriter&& other) noexcept =
    default;
DesignDescriptionWriter& DesignDescriptionWriter::operator=(
    DesignDescriptionWriter&& other) noexcept = default;

void DesignDescriptionWriter::setTimeUnit(TimeUnit unit) {
    if (unit.multiplier == 0 || unit.multiplier > std::numeric_limits<std::uint16_t>::max() ||
        unit.exponent < std::numeric_limits<std::int8_t>::min() ||
        unit.exponent > std::numeric_limits<std::int8_t>::max()) {
        throw std::invalid_argument("no time unit: " + toString(unit));
    }
    m_content->unit = unit;
}

void DesignDescriptionWriter::setTimeZero(std::int64_t offset) {
    m_content->timeZero = offset;
}

void DesignDescriptionWriter::setProducer(std::string_view text) {
    m_content->demand(0, {text});
    m_content->producer = m_content->names.intern(text);
}

void DesignDescriptionWriter::setDate(std::string_view text) {
    m_content->demand(0, {text});
    m_content->date = m_content->names.intern(text);
}

void DesignDescriptionWriter::addComment(std::string_view text) {
    m_content->demand(sizeof(std::uint32_t), {text});
    m_content->comments.push_back(m_content->names.intern(text));
}

void DesignDescriptionWriter::addBlackout(const Blackout& blackout) {
    if (blackout.end < blackout.start) {
        throw std::invalid_argument("a blackout ends before it starts");
    }
    m_content->demand(sizeof(BlackoutRecord), {});
    m_content->blackouts.emplace_back(blackout.start, blackout.end);
}

ScopeId DesignDescriptionWriter::addScope(ScopeId parent, ScopeKind kind, std::string_view name,
                                          std::string_view component) {
    Content& content = *m_content;
    content.requireScope(parent);
    const unsigned int depth = parent == RootScope ? 1U : content.scopeDepths[parent] + 1U;
    if (depth > MaxScopeDepth) {
        throw std::out_of_range("scopes lie deeper than " + std::to_string(MaxScopeDepth));
    }
    content.demand(BytesOfScope, {name, component});
    const std::uint32_t nameId = content.names.intern(name);
    content.scopes.emplace_back(nameId, parent, content.names.intern(component),
                                static_cast<std::uint8_t>(kind));
    content.scopeDepths.push_back(static_cast<std::uint16_t>(depth));
    return static_cast<ScopeId>(content.scopes.size() - 1);
}

TypeId DesignDescriptionWriter::addType(std::string_view name) {
    return addEnumeration(name, {});
}

TypeId DesignDescriptionWriter::addEnumeration(std::string_view name,
                                               const std::vector<LiteralDefinition>& literals) {
    Content& content = *m_content;
    std::size_t literalBytes = 0;
    for (const LiteralDefinition& literal : literals) {
        literalBytes += sizeof(LiteralRecord) + 2 * BytesOfName;
        literalBytes += literal.name.size() + literal.bits.size();
    }
    content.demand(sizeof(TypeRecord) + literalBytes, {name});
    content.types.emplace_back(content.names.intern(name),
                               static_cast<std::uint32_t>(content.literals.size()),
                               static_cast<std::uint32_t>(literals.size()));
    for (const LiteralDefinition& literal : literals) {
        const std::uint32_t nameId = content.names.intern(literal.name);
        content.literals.emplace_back(literal.position, nameId, content.names.intern(literal.bits));
    }
    return static_cast<TypeId>(content.types.size() - 1);
}

ObjectId DesignDescriptionWriter::addObject(const ObjectDefinition& object) {
    Content& content = *m_content;
    content.requireScope(object.scope);
    if (object.type != NoType && object.type >= content.types.size()) {
        refuseId("type", object.type);
    }
    const std::uint32_t size =
        object.size != 0 ? object.size : sizeOfWidth(object.representation, object.width);
    if (!isSizeOfWidth(object.representation, object.width, size) || object.address < 0 ||
        object.address > std::numeric_limits<std::int64_t>::max() - size) {
        throw std::invalid_argument("object \"" + std::string(object.name) + "\" of width " +
                                    std::to_string(object.width) + " cannot take " +
                                    std::to_string(size) + " bytes at address " +
                                    std::to_string(object.address));
    }
    content.demand(BytesOfObject, {object.name});
    const auto flags = static_cast<std::uint8_t>(static_cast<unsigned int>(object.range.form) |
                                                 (object.isSigned ? SignedFlag : 0U));
    content.objects.emplace_back(object.address, content.names.intern(object.name), object.scope,
                                 size, object.width, object.range.left, object.range.right,
                                 object.type, static_cast<std::uint8_t>(object.kind),
                                 static_cast<std::uint8_t>(object.direction),
                                 static_cast<std::uint8_t>(object.representation), flags);
    return static_cast<ObjectId>(content.objects.size() - 1);
}

void DesignDescriptionWriter::addScopeAttribute(ScopeId scope, AttributeKind kind,
                                                std::string_view text, std::int64_t first,
                                                std::int64_t second) {
    if (scope >= m_content->scopes.size()) refuseId("scope", scope);
    m_content->addAttribute(m_content->scopeAttributes, scope, kind, text, first, second);
}

void DesignDescriptionWriter::addObjectAttribute(ObjectId object, AttributeKind kind,
                                                 std::string_view text, std::int64_t first,
                                                 std::int64_t second) {
    if (object >= m_content->objects.size()) refuseId("object", object);
    m_content->addAttribute(m_content->objectAttributes, object, kind, text, first, second);
}

std::vector<std::uint8_t> DesignDescriptionWriter::finish() const {
    // Room for everything at once: the builder would otherwise copy what it has at every doubling.
    flatbuffers::FlatBufferBuilder builder(m_content->size());
    m_content->build(builder);
    return {builder.GetBufferPointer(), builder.GetBufferPointer() + builder.GetSize()};
}

}  // namespace Korvel

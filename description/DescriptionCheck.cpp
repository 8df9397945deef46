#include "description/DescriptionCheck.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <vector>

namespace Korvel {

namespace {

using namespace DescriptionFormat;

std::string faultOf(const char* what, std::size_t index, const char* fault) {
    return std::string(what) + " " + std::to_string(index) + ": " + fault;
}

// The verifier looks at the alignment of a vector's length only, which leaves records that hold
// 64-bit numbers four bytes off.
template <class Record>
bool isAligned(std::span<const Record> records) {
    return records.empty() ||
           reinterpret_cast<std::uintptr_t>(records.data()) % alignof(Record) == 0;
}

std::string checkAlignment(const DescriptionTables& tables) {
    const bool aligned = isAligned(tables.objects) && isAligned(tables.literals) &&
                         isAligned(tables.scopeAttributes) && isAligned(tables.objectAttributes) &&
                         isAligned(tables.blackouts);
    return aligned ? "" : "records are not aligned";
}

std::string checkNames(const DescriptionTables& tables) {
    const auto& ends = tables.nameEnds;
    if (ends.empty() || ends.front() != 0) return "name 0 is not the empty text";
    if (!std::is_sorted(ends.begin(), ends.end())) return "names overlap";
    if (ends.back() > tables.nameText.size()) return "names reach past their text";
    return {};
}

std::string checkHead(const DescriptionTables& tables) {
    const std::size_t names = tables.nameEnds.size();
    const Description& root = *tables.root;
    if (root.time_multiplier() == 0) return "time unit of nothing";
    if (root.producer() >= names || root.date() >= names) return "producer or date has no text";
    for (std::size_t i = 0; i < tables.comments.size(); ++i) {
        if (tables.comments[i] >= names) return faultOf("comment", i, "has no text");
    }
    for (std::size_t i = 0; i < tables.blackouts.size(); ++i) {
        const BlackoutRecord& blackout = tables.blackouts[i];
        if (blackout.end() < blackout.start()) return faultOf("blackout", i, "ends too early");
    }
    return {};
}

std::string checkScopes(const DescriptionTables& tables) {
    const std::size_t names = tables.nameEnds.size();
    std::vector<std::uint16_t> depths(tables.scopes.size(), 1);
    for (std::size_t i = 0; i < tables.scopes.size(); ++i) {
        const ScopeRecord& scope = tables.scopes[i];
        if (scope.name() >= names || scope.component() >= names) {
            return faultOf("scope", i, "has no name");
        }
        if (scope.parent() == RootScope) continue;
        if (scope.parent() >= i) return faultOf("scope", i, "comes before its parent");
        depths[i] = static_cast<std::uint16_t>(depths[scope.parent()] + 1);
        if (depths[i] > MaxScopeDepth) return faultOf("scope", i, "lies too deep");
    }
    return {};
}

std::string checkTypes(const DescriptionTables& tables) {
    const std::size_t names = tables.nameEnds.size();
    const std::size_t literals = tables.literals.size();
    for (std::size_t i = 0; i < tables.types.size(); ++i) {
        const TypeRecord& type = tables.types[i];
        if (type.name() >= names) return faultOf("type", i, "has no name");
        if (type.first_literal() > literals ||
            type.literal_count() > literals - type.first_literal()) {
            return faultOf("type", i, "has literals that are not there");
        }
    }
    for (std::size_t i = 0; i < literals; ++i) {
        if (tables.literals[i].name() >= names || tables.literals[i].bits() >= names) {
            return faultOf("literal", i, "has no name");
        }
    }
    return {};
}

std::string checkObjects(const DescriptionTables& tables) {
    for (std::size_t i = 0; i < tables.objects.size(); ++i) {
        const ObjectRecord& object = tables.objects[i];
        if (object.name() >= tables.nameEnds.size()) return faultOf("object", i, "has no name");
        if (object.scope() != RootScope && object.scope() >= tables.scopes.size()) {
            return faultOf("object", i, "lies in no scope");
        }
        if (object.type() != NoType && object.type() >= tables.types.size()) {
            return faultOf("object", i, "has a type that is not there");
        }
        if (object.address() < 0 ||
            object.address() > std::numeric_limits<std::int64_t>::max() - object.size()) {
            return faultOf("object", i, "lies outside the data space");
        }
        const auto representation = static_cast<ValueRepresentation>(object.representation());
        if (!isSizeOfWidth(representation, object.width(), object.size())) {
            return faultOf("object", i, "has a size that does not suit its width");
        }
    }
    return {};
}

std::string checkAttributes(const DescriptionTables& tables, const char* what,
                            std::span<const AttributeRecord> attributes, std::size_t owners) {
    std::uint32_t lastOwner = 0;
    for (std::size_t i = 0; i < attributes.size(); ++i) {
        const AttributeRecord& attribute = attributes[i];
        if (attribute.owner() >= owners || attribute.owner() < lastOwner) {
            return faultOf(what, i, "has no owner or is out of order");
        }
        if (attribute.text() >= tables.nameEnds.size()) return faultOf(what, i, "has no text");
        lastOwner = attribute.owner();
    }
    return {};
}

std::string checkStarts(const char* what, const GroupedIds& list, std::size_t groups,
                        std::size_t records) {
    const auto& starts = list.starts;
    if (list.ids.size() != records || starts.size() != groups + 1 || starts.front() != 0 ||
        starts.back() != records || !std::is_sorted(starts.begin(), starts.end())) {
        return std::string(what) + " do not add up";
    }
    return {};
}

// Each group holds only what belongs to it and strictly ascends, so that nothing is in it twice;
// as the counts agree, nothing is missing either.
template <class GroupOf, class Less>
std::string checkList(const char* what, const GroupedIds& list, std::size_t records,
                      GroupOf groupOf, Less less) {
    for (std::size_t group = 0; group + 1 < list.starts.size(); ++group) {
        for (std::size_t i = list.starts[group]; i < list.starts[group + 1]; ++i) {
            if (list.ids[i] >= records || groupOf(list.ids[i]) != group) {
                return faultOf(what, i, "is in the wrong place");
            }
            if (i > list.starts[group] && !less(list.ids[i - 1], list.ids[i])) {
                return faultOf(what, i, "is out of order");
            }
        }
    }
    return {};
}

// Both orders of what lies in scopes: as declared, and by name.
template <class Record, class GroupOf>
std::string checkLists(const DescriptionTables& tables, const char* what,
                       std::span<const Record> records, const GroupedIds& asDeclared,
                       const GroupedIds& byName, GroupOf groupOf) {
    const auto nameLess = [&](std::uint32_t a, std::uint32_t b) {
        if (records[a].name() == records[b].name()) return a < b;
        const int order = tables.text(records[a].name()).compare(tables.text(records[b].name()));
        return order < 0 || (order == 0 && a < b);
    };
    const std::size_t groups = tables.scopes.size() + 1;
    std::string fault = checkStarts(what, asDeclared, groups, records.size());
    if (fault.empty()) fault = checkStarts(what, byName, groups, records.size());
    if (fault.empty()) {
        fault = checkList(what, asDeclared, records.size(), groupOf,
                          [](std::uint32_t a, std::uint32_t b) { return a < b; });
    }
    if (fault.empty()) fault = checkList(what, byName, records.size(), groupOf, nameLess);
    return fault;
}

std::string checkAddressOrder(const DescriptionTables& tables) {
    const auto& order = tables.objectsByAddress;
    if (order.size() != tables.objects.size()) return "objects by address do not add up";
    for (std::size_t i = 0; i < order.size(); ++i) {
        if (order[i] >= tables.objects.size()) {
            return faultOf("object by address", i, "is not there");
        }
        if (i == 0) continue;
        const std::int64_t before = tables.objects[order[i - 1]].address();
        const std::int64_t address = tables.objects[order[i]].address();
        if (before > address || (before == address && order[i - 1] >= order[i])) {
            return faultOf("object by address", i, "is out of order");
        }
    }
    return {};
}

}  // namespace

std::string checkTables(const DescriptionTables& tables) {
    std::string fault = checkAlignment(tables);
    const auto then = [&fault](auto check) {
        if (fault.empty()) fault = check();
    };
    then([&] { return checkNames(tables); });
    then([&] { return checkHead(tables); });
    then([&] { return checkScopes(tables); });
    then([&] { return checkTypes(tables); });
    then([&] { return checkObjects(tables); });
    then([&] {
        return checkAttributes(tables, "scope attribute", tables.scopeAttributes,
                               tables.scopes.size());
    });
    then([&] {
        return checkAttributes(tables, "object attribute", tables.objectAttributes,
                               tables.objects.size());
    });
    then([&] {
        return checkLists(
            tables, "scope in scope", tables.scopes, tables.children, tables.childrenByName,
            [&](std::uint32_t id) { return tables.groupOf(tables.scopes[id].parent()); });
    });
    then([&] {
        return checkLists(
            tables, "object in scope", tables.objects, tables.objectsOfScopes, tables.objectsByName,
            [&](std::uint32_t id) { return tables.groupOf(tables.objects[id].scope()); });
    });
    then([&] { return checkAddressOrder(tables); });
    return fault;
}

}  // namespace Korvel

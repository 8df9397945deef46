#pragma once

#include "description/DesignDescription.h"

#include "DesignDescription_generated.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace Korvel {

// A run of ids a group: those of group g are ids[starts[g]] up to ids[starts[g + 1]].
struct GroupedIds {
    std::span<const std::uint32_t> starts;
    std::span<const std::uint32_t> ids;

    IdList group(std::size_t index) const {
        return {ids.data() + starts[index], starts[index + 1] - starts[index]};
    }
};

// The vectors of a description as runs of records. Resolving them relies on the FlatBuffers
// verifier having passed; what the numbers in the records refer to is checkTables()'s business, and
// text() and GroupedIds::group() may be called only after it.
struct DescriptionTables {
    explicit DescriptionTables(const DescriptionFormat::Description& root);

    std::string_view text(std::uint32_t id) const;

    // Position of a scope's group in the lists of what lies in scopes.
    std::size_t groupOf(ScopeId scope) const { return scope == RootScope ? scopes.size() : scope; }

    const DescriptionFormat::Description* root;
    std::span<const std::uint32_t> nameEnds;
    std::string_view nameText;
    std::span<const DescriptionFormat::ScopeRecord> scopes;
    std::span<const DescriptionFormat::ObjectRecord> objects;
    std::span<const DescriptionFormat::TypeRecord> types;
    std::span<const DescriptionFormat::LiteralRecord> literals;
    std::span<const DescriptionFormat::AttributeRecord> scopeAttributes;
    std::span<const DescriptionFormat::AttributeRecord> objectAttributes;
    std::span<const DescriptionFormat::BlackoutRecord> blackouts;
    std::span<const std::uint32_t> comments;
    GroupedIds children;
    GroupedIds childrenByName;
    GroupedIds objectsOfScopes;
    GroupedIds objectsByName;
    std::span<const std::uint32_t> objectsByAddress;
};

// Bits of ObjectRecord's flags.
constexpr std::uint8_t RangeFormMask = 3;
constexpr std::uint8_t SignedFlag = 4;

// Readers refuse a description whose minimum_reader is above this number.
constexpr std::uint16_t ReaderVersion = 1;

}  // namespace Korvel

#include "description/DescriptionTables.h"

namespace Korvel {

static_assert(FLATBUFFERS_LITTLEENDIAN, "ids are read in place");
static_assert(sizeof(DescriptionFormat::ScopeRecord) == 16);
static_assert(sizeof(DescriptionFormat::ObjectRecord) == 40);
static_assert(sizeof(DescriptionFormat::TypeRecord) == 12);
static_assert(sizeof(DescriptionFormat::LiteralRecord) == 16);
static_assert(sizeof(DescriptionFormat::AttributeRecord) == 32);
static_assert(sizeof(DescriptionFormat::BlackoutRecord) == 16);

namespace {

// A vector that an older or newer writer left out is an empty one.
template <class Record>
std::span<const Record> records(const flatbuffers::Vector<const Record*>* vector) {
    if (vector == nullptr) return {};
    return {reinterpret_cast<const Record*>(vector->Data()), vector->size()};
}

std::span<const std::uint32_t> numbers(const flatbuffers::Vector<std::uint32_t>* vector) {
    if (vector == nullptr) return {};
    return {vector->data(), vector->size()};
}

}  // namespace

DescriptionTables::DescriptionTables(const DescriptionFormat::Description& description)
    : root(&description),
      nameEnds(numbers(root->name_ends())),
      nameText(reinterpret_cast<const char*>(root->name_text()->data()), root->name_text()->size()),
      scopes(records(root->scopes())),
      objects(records(root->objects())),
      types(records(root->types())),
      literals(records(root->literals())),
      scopeAttributes(records(root->scope_attributes())),
      objectAttributes(records(root->object_attributes())),
      blackouts(records(root->blackouts())),
      comments(numbers(root->comments())),
      children{numbers(root->child_starts()), numbers(root->children())},
      childrenByName{children.starts, numbers(root->children_by_name())},
      objectsOfScopes{numbers(root->object_starts()), numbers(root->objects_of_scopes())},
      objectsByName{objectsOfScopes.starts, numbers(root->objects_by_name())},
      objectsByAddress(numbers(root->objects_by_address())) {}

std::string_view DescriptionTables::text(std::uint32_t id) const {
    const std::uint32_t begin = id == 0 ? 0 : nameEnds[id - 1];
    return {nameText.data() + begin, nameEnds[id] - begin};
}

}  // namespace Korvel

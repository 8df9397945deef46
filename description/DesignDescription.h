#pragma once

#include "description/DescriptionVocabulary.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Korvel {

// Views of what a description holds. Their texts point into the description and live as long.

struct ScopeView {
    ScopeId id = RootScope;
    ScopeId parent = RootScope;  ///< less than id, or RootScope
    ScopeKind kind = ScopeKind::Module;
    std::string_view name;
    std::string_view component;  ///< empty = not known
};

struct ObjectView {
    ObjectId id = 0;
    ScopeId scope = RootScope;
    std::string_view name;
    VariableKind kind = VariableKind::Wire;
    Direction direction = Direction::Implicit;
    ValueRepresentation representation = ValueRepresentation::VerilogFourState;
    DeclaredRange range;
    std::uint32_t width = 0;   ///< elements or bits
    std::int64_t address = 0;  ///< never negative; address + size does not overflow
    std::uint32_t size = 0;    ///< bytes; suits width where the representation is known
    TypeId type = NoType;      ///< NoType, or less than typeCount()
    bool isSigned = false;
};

struct LiteralView {
    std::string_view name;
    std::int64_t position = 0;
    std::string_view bits;  ///< 4-state bits, left to right; empty = told by position alone
};

struct AttributeView {
    AttributeKind kind = AttributeKind::Comment;
    std::string_view text;
    std::int64_t first = 0;
    std::int64_t second = 0;
};

/// A list of scope or object ids inside a description, which must outlive it.
class IdList {
public:
    using value_type = std::uint32_t;
    using const_iterator = const std::uint32_t*;

    IdList() = default;
    IdList(const std::uint32_t* begin, std::size_t size) : m_begin(begin), m_size(size) {}

    const_iterator begin() const { return m_begin; }
    const_iterator end() const { return m_begin + m_size; }
    std::size_t size() const { return m_size; }
    bool empty() const { return m_size == 0; }
    std::uint32_t operator[](std::size_t index) const { return m_begin[index]; }

private:
    const std::uint32_t* m_begin = nullptr;
    std::size_t m_size = 0;
};

/// The names behind a recording's addresses: scopes as a tree, objects, types.
///
/// The bytes come from a file and are not trusted: a description is checked as a whole when it is
/// opened, or refused with a reason. Afterwards every accessor is safe and finite. What a newer
/// writer added is passed over; numbers of enumerations may be unknown (see
/// DescriptionVocabulary.h).
///
/// Opening costs one pass over the bytes. Afterwards a name, the children of a scope and the
/// objects at an address are found by binary search. Ids and indexes past their count throw
/// std::out_of_range. All const members may be called by several threads.
class DesignDescription {
public:
    /// Opens a description and keeps the bytes.
    ///
    /// @param[out] error  Why it was refused, in one line; untouched otherwise. May be null.
    static std::optional<DesignDescription> fromBytes(std::vector<std::uint8_t> bytes,
                                                      std::string* error = nullptr);

    /// Opens a description in memory that the caller keeps unchanged while it is used. Only bytes
    /// that do not start at a multiple of 8 are copied.
    static std::optional<DesignDescription> viewing(const void* bytes, std::size_t size,
                                                    std::string* error = nullptr);

    ~DesignDescription();
    DesignDescription(DesignDescription&& other) noexcept;
    DesignDescription& operator=(DesignDescription&& other) noexcept;

    TimeUnit timeUnit() const;
    std::int64_t timeZero() const;
    std::string_view producer() const;
    std::string_view date() const;
    std::vector<std::string_view> comments() const;
    std::vector<Blackout> blackouts() const;

    std::uint32_t scopeCount() const;
    std::uint32_t objectCount() const;
    std::uint32_t typeCount() const;

    ScopeView scope(ScopeId id) const;
    ObjectView object(ObjectId id) const;
    std::string_view typeName(TypeId id) const;
    /// 0 for a type of which only the name is known.
    std::uint32_t literalCount(TypeId id) const;
    LiteralView literal(TypeId id, std::uint32_t index) const;
    std::vector<AttributeView> scopeAttributes(ScopeId id) const;
    std::vector<AttributeView> objectAttributes(ObjectId id) const;

    /// What lies directly in a scope (or in RootScope), in the order of declaration.
    IdList childScopes(ScopeId scope) const;
    IdList objectsOf(ScopeId scope) const;

    /// "top.cpu", "top.cpu.pc" and "top.cpu.pc[31:0]". Empty for RootScope.
    std::string scopePath(ScopeId id) const;
    std::string objectPath(ObjectId id) const;
    std::string objectPathWithRange(ObjectId id) const;

    /// Everything of this full name, as scopePath() and objectPath() spell it; names may hold dots
    /// themselves. An object is found by its path with range too, which tells the bits of one
    /// vector apart. Siblings may share a name, hence several answers.
    std::vector<ScopeId> findScopes(std::string_view path) const;
    std::vector<ObjectId> findObjects(std::string_view path) const;

    /// The same with one element a name, for names that hold dots.
    std::vector<ScopeId> findScopes(const std::vector<std::string_view>& path) const;
    std::vector<ObjectId> findObjects(const std::vector<std::string_view>& path) const;

    /// Appends to @p found the objects of which a byte lies in [@p begin, @p end), by ascending
    /// address; those of one address in the order of declaration.
    void findObjectsAt(std::int64_t begin, std::int64_t end, std::vector<ObjectId>& found) const;

    /// All objects by ascending address, aliases in the order of declaration.
    IdList objectsByAddress() const;

private:
    struct Content;
    explicit DesignDescription(std::unique_ptr<const Content> content);

    static std::optional<DesignDescription> open(std::unique_ptr<Content> content,
                                                 std::string* error);

    std::unique_ptr<const Content> m_content;
};

}  // namespace Korvel

#pragma once

#include "description/DescriptionVocabulary.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

namespace Korvel {

/// One object as its source declares it. The texts are copied by addObject().
struct ObjectDefinition {
    std::string_view name;  ///< without the range; escaped names without backslash and blank
    ScopeId scope = RootScope;
    VariableKind kind = VariableKind::Wire;
    Direction direction = Direction::Implicit;
    ValueRepresentation representation = ValueRepresentation::VerilogFourState;
    DeclaredRange range;
    std::uint32_t width = 1;   ///< elements or bits, at least what the range spans
    std::int64_t address = 0;  ///< first byte in the data space, as the recording's events have it
    std::uint32_t size = 0;    ///< bytes; 0 = what representation and width need
    TypeId type = NoType;
    bool isSigned = false;
};

/// One literal of an enumeration type.
struct LiteralDefinition {
    std::string_view name;      ///< a character literal without its quotes
    std::int64_t position = 0;  ///< what a VhdlEnumeration byte holds for it
    std::string_view bits;      ///< the 4-state bits that stand for it, left to right, or empty
};

/// Collects the design description of one recording and writes it: the file "torq.dbg", which a
/// recording holds as its section "Pellon DBG".
///
/// Scopes and types are added before what refers to them; children keep the order in which they
/// were added. Several objects may have one address. The same calls give the same bytes.
///
/// Throws std::out_of_range for an id that no earlier call returned (or a scope too deep),
/// std::invalid_argument for an object whose size does not suit its width and address, and
/// std::length_error once the description would grow past the limit. A call that throws has added
/// nothing. One thread at a time.
class DesignDescriptionWriter {
public:
    /// The most that the format can hold: its offsets are signed 32-bit numbers.
    static constexpr std::size_t MaxBytes = 0x7FFF0000;

    /// @param limit  Largest description in bytes, at most MaxBytes.
    explicit DesignDescriptionWriter(std::size_t limit = MaxBytes);
    ~DesignDescriptionWriter();
    DesignDescriptionWriter(DesignDescriptionWriter&& other) noexcept;
    DesignDescriptionWriter& operator=(DesignDescriptionWriter&& other) noexcept;

    void setTimeUnit(TimeUnit unit);
    void setTimeZero(std::int64_t offset);
    void setProducer(std::string_view text);
    void setDate(std::string_view text);
    void addComment(std::string_view text);
    void addBlackout(const Blackout& blackout);

    /// @param component  Name of the module, entity or class that the scope is made from, if known.
    ScopeId addScope(ScopeId parent, ScopeKind kind, std::string_view name,
                     std::string_view component = {});

    /// A type of which only the name is known.
    TypeId addType(std::string_view name);
    TypeId addEnumeration(std::string_view name, const std::vector<LiteralDefinition>& literals);

    ObjectId addObject(const ObjectDefinition& object);

    /// Attributes of one owner keep their order.
    void addScopeAttribute(ScopeId scope, AttributeKind kind, std::string_view text,
                           std::int64_t first = 0, std::int64_t second = 0);
    void addObjectAttribute(ObjectId object, AttributeKind kind, std::string_view text,
                            std::int64_t first = 0, std::int64_t second = 0);

    /// The finished description. The writer stays as it is, more can be added.
    std::vector<std::uint8_t> finish() const;

private:
    struct Content;
    std::unique_ptr<Content> m_content;
};

}  // namespace Korvel

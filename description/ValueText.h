#pragma once

#include "description/DesignDescription.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Korvel {

/// The text of one entry of the recording's string map; nothing for an id that it does not know.
using StringLookup = std::function<std::optional<std::string>(std::uint32_t id)>;

/// Appends an object's value to @p out, as a value-change dump would spell it:
///   VhdlEnumeration   one of "UX01ZWLH-" an element, '?' for another position
///   VerilogFourState  one of "01xz" a bit, left to right, all bits of the width
///   SystemCBytes      one of "01" a bit, left to right
///   Real              the shortest digits that give the same number back; "nan", "inf", "-inf"
///   String            the text; "?" where a piece is not known or no @p strings are given
///   Event             the number of triggers so far, modulo 256
///   anything newer    the bytes in hexadecimal, "0x" first, lowest address first
///
/// @param bytes,size  The value from the object's address on.
/// @return false, with @p out untouched, when @p size is less than the object's size. Bytes past
///         the object's size are not looked at.
bool appendValueText(std::string& out, const ObjectView& object, const void* bytes,
                     std::size_t size, const StringLookup& strings = {});

/// The same for people: where the object's type has a literal for the value, its name. The
/// elements of an array of literals are separated by commas, unless all are single characters.
bool appendLiteralText(std::string& out, const DesignDescription& description,
                       const ObjectView& object, const void* bytes, std::size_t size,
                       const StringLookup& strings = {});

/// The reverse of appendValueText() for all but strings, events and newer representations. Letters
/// may be of either case. Text shorter than the object is extended on the left: 1 by 0, every other
/// digit by itself.
///
/// @return the object's bytes; nothing for text that is too long or no value of the object.
std::optional<std::vector<std::uint8_t>> parseValueText(const ObjectView& object,
                                                        std::string_view text);

/// The same, where the names of the object's literals are values too.
std::optional<std::vector<std::uint8_t>> parseLiteralText(const DesignDescription& description,
                                                          const ObjectView& object,
                                                          std::string_view text);

}  // namespace Korvel

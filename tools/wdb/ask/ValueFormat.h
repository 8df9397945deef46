#pragma once

#include "ask/ViewedObject.h"
#include "description/ValueText.h"

#include <map>
#include <string>
#include <string_view>
#include <utility>

namespace Korvel {

enum class Radix { Default, Binary, Octal, Decimal, SignedDecimal, Hexadecimal, Ascii, Real };

/// The words of the option "-r": bin, oct, dec, sdec, hex, ascii, real.
const std::map<std::string, Radix>& radixNames();

/// Spells values as people read them.
///
/// Without a radix: names of literals; one bit as it is; integers in decimal; wider vectors in
/// hexadecimal. A digit of several bits that are not all known is x, z, or, where they differ, X or
/// Z; for nine states the letter, or ? where they differ. What has no digits is
/// spelled one way whatever the radix, but for the bits of a real.
class ValueFormat {
public:
    /// @param description  Where literals are looked up; null when there is none. Must outlive it.
    ValueFormat(const DesignDescription* description, StringLookup strings, Radix radix)
        : m_description(description), m_strings(std::move(strings)), m_radix(radix) {}

    /// "..." for a dense value; x, U or - where nothing is recorded yet.
    std::string text(const ViewedObject& viewed, const ViewedValue& value) const;

    /// One of "01xz", or of "UX01ZWLH-", a bit or element, left to right; empty for what has no
    /// such digits, or no single value.
    std::string digits(const ViewedObject& viewed, const ViewedValue& value) const;

    /// A known value as the description spells it: literals by name, strings without quotes.
    std::string plainText(const ViewedObject& viewed, const ViewedValue& value) const;

private:
    std::string knownText(const ViewedObject& viewed, const ViewedValue& value) const;

    const DesignDescription* m_description;
    StringLookup m_strings;
    Radix m_radix;
};

}  // namespace Korvel

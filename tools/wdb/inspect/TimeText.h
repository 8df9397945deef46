#pragma once

#include "description/DescriptionVocabulary.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Korvel {

/// The powers of ten of a second that have a name, largest first.
struct NamedUnit {
    const char* name;
    int exponent;
};
constexpr std::array<NamedUnit, 6> NamedUnits{
    {{"s", 0}, {"ms", -3}, {"us", -6}, {"ns", -9}, {"ps", -12}, {"fs", -15}}};

/// "1230ns" for 123 units of 10 ns. Without a unit, or with one that has no name, the plain number
/// of units.
std::string formatTime(std::int64_t time, const std::optional<TimeUnit>& unit);

/// A time between two units of the recording lies after one and before the next.
struct ParsedTime {
    std::int64_t units = 0;  ///< the unit at or before the time
    bool isExact = true;

    std::int64_t roundedUp() const { return isExact ? units : units + 1; }
};

/// Takes "120ns", "1.5 us" and, in units of the recording, "120". Nothing for anything else, for
/// times that 64 bits cannot hold, and for a time with a unit where the recording's is not known.
std::optional<ParsedTime> parseTime(std::string_view text, const std::optional<TimeUnit>& unit);

}  // namespace Korvel

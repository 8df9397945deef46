#pragma once

#include "description/DescriptionVocabulary.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace Korvel {

struct AxisTick {
    long long time = 0;
    std::string label;  ///< with the unit of time
};

/// Round times from @p from to @p to, which is later: multiples of 1, 2 or 5 times a power of ten
/// of the recording's unit, as close as at most @p mostSteps (at least 1) of them cover the range.
///
/// All labels have one unit of time, in which they need few digits. Without a unit that has a
/// name, times are plain numbers.
std::vector<AxisTick> axisTicks(long long from, long long to, std::size_t mostSteps,
                                const std::optional<TimeUnit>& unit);

/// "188.75 us": a time in the largest unit in which it has at most three decimals.
std::string readableTime(long long time, const std::optional<TimeUnit>& unit);

}  // namespace Korvel

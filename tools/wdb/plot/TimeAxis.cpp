#include "plot/TimeAxis.h"

#include "inspect/TimeText.h"

#include <algorithm>
#include <limits>

namespace Korvel {

namespace {

constexpr int MostDecimals = 3;

// Power of ten of seconds that one unit of the recording is; nothing when that has no name.
std::optional<int> exponentOf(const std::optional<TimeUnit>& unit) {
    if (!unit || unit->exponent < NamedUnits.back().exponent || unit->exponent > 0)
        return std::nullopt;
    switch (unit->multiplier) {
        case 1:
            return unit->exponent;
        case 10:
            return unit->exponent + 1;
        case 100:
            return unit->exponent + 2;
        default:
            return std::nullopt;
    }
}

int trailingZeros(long long number) {
    int zeros = 0;
    for (; number != 0 && number % 10 == 0; number /= 10)
        ++zeros;
    return zeros;
}

int digitCount(long long number) {
    return static_cast<int>(std::to_string(number).size());
}

// The largest unit that is not larger than the time, and in which multiples of step have at most
// three decimals.
NamedUnit unitFor(long long time, long long step, int exponent) {
    const int magnitude = exponent + digitCount(time) - 1;
    const int finest = exponent + trailingZeros(step);
    const auto found =
        std::find_if(NamedUnits.begin(), NamedUnits.end(), [&](const NamedUnit& unit) {
            return unit.exponent <= magnitude && unit.exponent - finest <= MostDecimals;
        });
    return found == NamedUnits.end() ? NamedUnits.back() : *found;
}

// number * 10^shift with so many decimals, computed on the digits, so that none is lost. The
// number is not negative.
std::string decimalText(long long number, int shift, int decimals) {
    std::string digits = std::to_string(number);
    if (number == 0) return digits;
    if (shift > 0) digits.append(static_cast<std::size_t>(shift), '0');
    const auto fraction = static_cast<std::size_t>(std::max(0, -shift));
    if (digits.size() <= fraction) digits.insert(0, fraction + 1 - digits.size(), '0');
    const std::size_t point = digits.size() - fraction;
    if (decimals == 0) return digits.substr(0, point);
    return digits.substr(0, point) + "." + digits.substr(point, static_cast<std::size_t>(decimals));
}

// A time as a multiple of step in the unit that suits the time largest.
std::string timeText(long long time, long long step, long long largest,
                     const std::optional<TimeUnit>& unit) {
    const auto exponent = exponentOf(unit);
    if (!exponent) return std::to_string(time);
    const NamedUnit shown = unitFor(largest, step, *exponent);
    const int shift = *exponent - shown.exponent;
    const int decimals = std::max(0, -shift - trailingZeros(step));
    return decimalText(time, shift, decimals) + " " + shown.name;
}

long long roundStep(long long span, std::size_t mostSteps) {
    const long long least = (span - 1) / static_cast<long long>(mostSteps) + 1;
    constexpr long long Largest = std::numeric_limits<long long>::max();
    for (long long power = 1;; power *= 10) {
        for (const long long factor : {1, 2, 5}) {
            if (power > Largest / factor) return Largest;
            if (power * factor >= least) return power * factor;
        }
        if (power > Largest / 10) return Largest;
    }
}

}  // namespace

std::vector<AxisTick> axisTicks(long long from, long long to, std::size_t mostSteps,
                                const std::optional<TimeUnit>& unit) {
    const long long step = roundStep(to - from, mostSteps);
    const long long offset = from % step == 0 ? 0 : step - from % step;
    std::vector<AxisTick> ticks;
    for (long long room = to - from - offset; room >= 0; room -= step) {
        const long long time = to - room;
        ticks.push_back({time, timeText(time, step, to, unit)});
    }
    return ticks;
}

std::string readableTime(long long time, const std::optional<TimeUnit>& unit) {
    return timeText(time, time, time, unit);
}

}  // namespace Korvel

#include "inspect/TimeText.h"

#include <algorithm>
#include <cctype>
#include <limits>

namespace Korvel {

namespace {

// A decimal number: its digits without the point, and how many of them are behind it.
struct Decimal {
    bool isNegative = false;
    std::string digits;
    int fraction = 0;
};

bool isDigit(char c) {
    return std::isdigit(static_cast<unsigned char>(c)) != 0;
}

// Takes the number off the front of the text.
std::optional<Decimal> takeDecimal(std::string_view& text) {
    Decimal number;
    number.isNegative = !text.empty() && text.front() == '-';
    if (number.isNegative) text.remove_prefix(1);
    bool hasPoint = false;
    while (!text.empty() && (isDigit(text.front()) || (text.front() == '.' && !hasPoint))) {
        if (text.front() == '.') {
            hasPoint = true;
        } else {
            number.digits += text.front();
            number.fraction += hasPoint;
        }
        text.remove_prefix(1);
    }
    if (number.digits.empty()) return std::nullopt;
    return number;
}

// number * 10^shift / divisor, rounded downwards, on the digits themselves, so that nothing is lost
// on the way.
std::optional<ParsedTime> scale(Decimal number, int shift, unsigned int divisor) {
    shift -= number.fraction;
    bool isExact = true;
    if (shift > 0) number.digits.append(static_cast<std::size_t>(shift), '0');
    if (shift < 0) {
        const std::size_t dropped =
            std::min(number.digits.size(), static_cast<std::size_t>(-shift));
        const std::size_t kept = number.digits.size() - dropped;
        isExact = number.digits.find_first_not_of('0', kept) == std::string::npos;
        number.digits.resize(kept);
    }
    number.digits.erase(0, number.digits.find_first_not_of('0'));
    if (number.digits.empty()) number.digits = "0";

    constexpr auto Largest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    std::uint64_t quotient = 0;
    std::uint64_t remainder = 0;
    for (const char digit : number.digits) {
        remainder = remainder * 10 + static_cast<std::uint64_t>(digit - '0');
        if (quotient > Largest / 10) return std::nullopt;
        quotient = quotient * 10 + remainder / divisor;
        remainder %= divisor;
        if (quotient > Largest) return std::nullopt;
    }
    isExact = isExact && remainder == 0;
    auto units = static_cast<std::int64_t>(quotient);
    if (number.isNegative) units = isExact ? -units : -units - 1;
    return ParsedTime{units, isExact};
}

}  // namespace

std::string formatTime(std::int64_t time, const std::optional<TimeUnit>& unit) {
    std::string text = std::to_string(time);
    if (!unit || (unit->multiplier != 1 && unit->multiplier != 10 && unit->multiplier != 100)) {
        return text;
    }
    const auto named =
        std::find_if(NamedUnits.begin(), NamedUnits.end(),
                     [&](const NamedUnit& named) { return named.exponent == unit->exponent; });
    if (named == NamedUnits.end()) return text;
    for (unsigned int m = unit->multiplier; m >= 10 && time != 0; m /= 10)
        text += '0';
    return text + named->name;
}

std::optional<ParsedTime> parseTime(std::string_view text, const std::optional<TimeUnit>& unit) {
    const auto number = takeDecimal(text);
    if (!number) return std::nullopt;
    if (text.empty()) {
        if (number->fraction != 0) return std::nullopt;
        return scale(*number, 0, 1);
    }
    if (!unit) return std::nullopt;
    if (text.front() == ' ') text.remove_prefix(1);
    for (const NamedUnit& named : NamedUnits) {
        if (text == named.name) {
            return scale(*number, named.exponent - unit->exponent, unit->multiplier);
        }
    }
    return std::nullopt;
}

}  // namespace Korvel

#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace Korvel {

/// The n-th identifier code: short, and free of characters that begin something else in a dump.
std::string vcdCode(std::uint32_t n);

/// A text as the value of a string variable: one word, whatever bytes it has.
std::string escapeVcdText(std::string_view text);

/// A text for the inside of a command: its words, none of which ends the command.
std::string plainVcdText(std::string_view text);

}  // namespace Korvel

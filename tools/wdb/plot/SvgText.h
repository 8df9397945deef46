#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace Korvel {

/// The characters of a text that may be any bytes. What is no UTF-8, or no character that XML
/// allows, is replaced.
std::u32string displayText(std::string_view bytes);

/// Characters as they stand between tags and in attributes.
std::string escaped(std::u32string_view text);

/// At most @p most characters (at least 3): those around an ellipsis in the middle, behind one at
/// the begin, or before one at the end.
std::u32string cutMiddle(std::u32string text, std::size_t most);
std::u32string cutBegin(std::u32string text, std::size_t most);
std::u32string cutEnd(std::u32string text, std::size_t most);

/// A length or place in pixels, with one decimal where it needs one.
std::string pixels(double value);

}  // namespace Korvel

#include "plot/SvgText.h"

#include <fmt/format.h>
#include <boost/locale/utf.hpp>

#include <iterator>

namespace Korvel {

namespace {

constexpr char32_t Replacement = 0xFFFD;
constexpr char32_t Ellipsis = 0x2026;

bool isAllowedInXml(char32_t c) {
    return c >= 0x20 && c != 0x7F && c != 0xFFFE && c != 0xFFFF;
}

}  // namespace

std::u32string displayText(std::string_view bytes) {
    namespace utf = boost::locale::utf;
    std::u32string text;
    for (const char* place = bytes.data(); place != bytes.data() + bytes.size();) {
        const utf::code_point c = utf::utf_traits<char>::decode(place, bytes.data() + bytes.size());
        const bool isGood = c != utf::illegal && c != utf::incomplete && isAllowedInXml(c);
        text += isGood ? char32_t{c} : Replacement;
    }
    return text;
}

std::string escaped(std::u32string_view text) {
    std::string out;
    for (const char32_t c : text) {
        switch (c) {
            case U'<':
                out += "&lt;";
                break;
            case U'>':
                out += "&gt;";
                break;
            case U'&':
                out += "&amp;";
                break;
            case U'"':
                out += "&quot;";
                break;
            default:
                boost::locale::utf::utf_traits<char>::encode(c, std::back_inserter(out));
        }
    }
    return out;
}

std::u32string cutMiddle(std::u32string text, std::size_t most) {
    if (text.size() <= most) return text;
    // The end of a name tells more than what stands before it.
    const std::size_t head = (most - 1) * 2 / 5;
    return text.replace(head, text.size() - (most - 1), 1, Ellipsis);
}

std::u32string cutBegin(std::u32string text, std::size_t most) {
    if (text.size() <= most) return text;
    return text.replace(0, text.size() - (most - 1), 1, Ellipsis);
}

std::u32string cutEnd(std::u32string text, std::size_t most) {
    if (text.size() <= most) return text;
    return text.replace(most - 1, std::u32string::npos, 1, Ellipsis);
}

std::string pixels(double value) {
    std::string text = fmt::format("{:.1f}", value);
    if (text.ends_with(".0")) text.resize(text.size() - 2);
    return text == "-0" ? "0" : text;
}

}  // namespace Korvel

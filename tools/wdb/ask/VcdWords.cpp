#include "ask/VcdWords.h"

#include <fmt/format.h>

#include <cstddef>

namespace Korvel {

namespace {

bool isBlankByte(char c) {
    return static_cast<unsigned char>(c) <= ' ';
}

}  // namespace

std::string vcdCode(std::uint32_t n) {
    constexpr char First = '%';  // not "!" to "$": some readers take "#" and "$" for something else
    constexpr std::uint32_t Letters = '~' - First + 1;
    std::string code;
    do {
        code += static_cast<char>(First + n % Letters);
        n /= Letters;
    } while (n-- != 0);
    return code;
}

std::string escapeVcdText(std::string_view text) {
    std::string word;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '\\') {
            word += "\\\\";
        } else if (isBlankByte(c) || byte == 0x7F) {
            word += fmt::format("\\{:03o}", byte);
        } else {
            word += c;
        }
    }
    return word;
}

std::string plainVcdText(std::string_view text) {
    std::string plain;
    for (std::size_t at = 0; at < text.size();) {
        std::size_t end = at;
        while (end < text.size() && !isBlankByte(text[end]))
            ++end;
        const std::string_view word = text.substr(at, end - at);
        if (!word.empty()) {
            if (!plain.empty()) plain += ' ';
            plain += word == "$end" ? std::string_view("$_end") : word;
        }
        at = end + 1;
    }
    return plain;
}

}  // namespace Korvel

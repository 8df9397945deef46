#include "vcd/VcdText.h"

#include <algorithm>

namespace Korvel {

namespace {

constexpr unsigned char VhdlZero = 2;
constexpr unsigned char VhdlOne = 3;

constexpr std::array<unsigned char, 256> makeVhdlPositions() {
    std::array<unsigned char, 256> positions{};
    const std::string_view upper = "UX01ZWLH-";
    const std::string_view lower = "ux01zwlh-";
    for (std::size_t i = 0; i < upper.size(); ++i) {
        positions[static_cast<unsigned char>(upper[i])] = static_cast<unsigned char>(i);
        positions[static_cast<unsigned char>(lower[i])] = static_cast<unsigned char>(i);
    }
    return positions;
}

constexpr std::array<unsigned char, 256> VhdlPositions = makeVhdlPositions();

// Sets the bits [first, 32 * count) where @p ones, else leaves them 0.
void extendPlane(VlogWordPair* pairs, std::uint32_t VlogWordPair::*plane, std::uint32_t first,
                 std::uint32_t count) {
    for (std::uint32_t i = first / BitsPerPair; i < count; ++i) {
        const std::uint32_t from = i == first / BitsPerPair ? first % BitsPerPair : 0;
        pairs[i].*plane |= ~std::uint32_t{0} << from;
    }
}

bool isOctal(char c) {
    return c >= '0' && c <= '7';
}

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    const char lower = static_cast<char>(c | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

char controlCharacter(char letter) {
    switch (letter) {
        case 'a':
            return '\a';
        case 'b':
            return '\b';
        case 'f':
            return '\f';
        case 'n':
            return '\n';
        case 'r':
            return '\r';
        case 't':
            return '\t';
        case 'v':
            return '\v';
        default:
            return letter;
    }
}

// The character behind a backslash at @p at, which is moved past it.
char unescapeOne(std::string_view text, std::size_t& at) {
    if (isOctal(text[at])) {
        unsigned int code = 0;
        for (int i = 0; i < 3 && at < text.size() && isOctal(text[at]); ++i, ++at) {
            code = code * 8 + static_cast<unsigned int>(text[at] - '0');
        }
        return static_cast<char>(code);
    }
    if (text[at] == 'x' && at + 1 < text.size() && hexDigit(text[at + 1]) >= 0) {
        int code = 0;
        ++at;
        for (int i = 0; i < 2 && at < text.size() && hexDigit(text[at]) >= 0; ++i, ++at) {
            code = code * 16 + hexDigit(text[at]);
        }
        return static_cast<char>(code);
    }
    return controlCharacter(text[at++]);
}

}  // namespace

void packVlogValue(std::string_view digits, std::uint32_t width, VlogWordPair* pairs) {
    if (digits.size() > width) digits.remove_prefix(digits.size() - width);
    const auto count = static_cast<std::uint32_t>(digits.size());
    const std::uint32_t pairCount = pairsOfBits(width);
    const char* end = digits.data() + count;
    for (std::uint32_t i = 0, done = 0; i < pairCount; ++i) {
        const std::uint32_t taken = std::min(count - done, BitsPerPair);
        pairs[i] = packDigits(end - done, taken);
        done += taken;
    }
    if (count == 0 || count == width || digitClass(digits.front()) != UnknownDigit) return;
    extendPlane(pairs, &VlogWordPair::second, count, pairCount);
    if ((digits.front() | 0x20) == 'x') extendPlane(pairs, &VlogWordPair::value, count, pairCount);
    if (width % BitsPerPair == 0) return;
    const std::uint32_t usedBits = (std::uint32_t{1} << width % BitsPerPair) - 1;
    pairs[pairCount - 1].value &= usedBits;
    pairs[pairCount - 1].second &= usedBits;
}

void packVhdlValue(std::string_view digits, std::uint32_t width, unsigned char* elements) {
    if (digits.size() > width) digits.remove_prefix(digits.size() - width);
    const std::size_t missing = width - digits.size();
    unsigned char extension =
        digits.empty() ? VhdlZero : VhdlPositions[static_cast<unsigned char>(digits.front())];
    if (extension == VhdlOne) extension = VhdlZero;
    std::fill_n(elements, missing, extension);
    std::transform(digits.begin(), digits.end(), elements + missing,
                   [](char digit) { return VhdlPositions[static_cast<unsigned char>(digit)]; });
}

std::string unescapeVcdText(std::string_view text) {
    std::string plain;
    plain.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        if (text[at] == '\\' && at + 1 < text.size()) {
            plain += unescapeOne(text, ++at);
        } else {
            plain += text[at++];
        }
    }
    return plain;
}

}  // namespace Korvel

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

// How value texts are read: eight characters at a time, as one 64-bit number whose lowest byte is
// the first character. Whoever calls these functions owns 8 readable bytes before the first and
// after the last character.

namespace Korvel {

/// What the characters of a value can be. A text's classes are those of its characters, united.
enum VcdDigitClass : std::uint8_t {
    BinaryDigit = 1,   // 0 1
    UnknownDigit = 2,  // x z
    VhdlDigit = 4,     // u w l h -
    NoDigit = 8,
    Blank = 16  // ends every token: all bytes up to the space
};

constexpr std::array<std::uint8_t, 256> makeDigitClasses() {
    std::array<std::uint8_t, 256> classes{};
    classes.fill(NoDigit);
    for (std::size_t byte = 0; byte <= ' '; ++byte)
        classes[byte] = Blank;
    for (const char digit : {'0', '1'})
        classes[static_cast<unsigned char>(digit)] = BinaryDigit;
    for (const char digit : {'x', 'X', 'z', 'Z'}) {
        classes[static_cast<unsigned char>(digit)] = UnknownDigit;
    }
    for (const char digit : {'u', 'U', 'w', 'W', 'l', 'L', 'h', 'H', '-'}) {
        classes[static_cast<unsigned char>(digit)] = VhdlDigit;
    }
    return classes;
}

inline constexpr std::array<std::uint8_t, 256> DigitClasses = makeDigitClasses();

inline std::uint8_t digitClass(char c) {
    return DigitClasses[static_cast<unsigned char>(c)];
}
inline bool isBlank(char c) {
    return static_cast<unsigned char>(c) <= ' ';
}

constexpr std::uint64_t EachByte = 0x0101010101010101U;

inline std::uint64_t loadBytes(const char* from) {
    std::uint64_t bytes = 0;
    std::memcpy(&bytes, from, sizeof bytes);
    return bytes;
}

/// The top bit of each byte that is a blank; bytes behind the first such may be marked wrongly.
inline std::uint64_t blankMarks(std::uint64_t bytes) {
    return (bytes - EachByte * (' ' + 1)) & ~bytes & (EachByte * 0x80);
}

/// First blank at or behind @p text. There must be one.
inline const char* findBlank(const char* text) {
    for (;; text += sizeof(std::uint64_t)) {
        const std::uint64_t marks = blankMarks(loadBytes(text));
        if (marks != 0) return text + (__builtin_ctzll(marks) >> 3);
    }
}

/// Like findBlank(), and unites into @p classes those of all characters before.
inline const char* scanDigits(const char* text, std::uint8_t& classes) {
    for (;;) {
        const std::uint64_t bytes = loadBytes(text);
        if ((bytes & (EachByte * 0xFE)) == EachByte * '0') {
            classes |= BinaryDigit;
            text += sizeof bytes;
            continue;
        }
        for (std::size_t i = 0; i < sizeof bytes; ++i, ++text) {
            const std::uint8_t digit = digitClass(*text);
            if (digit == Blank) return text;
            classes |= digit;
        }
    }
}

/// A pair of words as recordings hold 32 Verilog bits.
struct VlogWordPair {
    std::uint32_t value = 0;
    std::uint32_t second = 0;
};
static_assert(sizeof(VlogWordPair) == 8);

constexpr std::uint32_t BitsPerPair = 32;

inline std::uint32_t pairsOfBits(std::uint32_t bits) {
    return static_cast<std::uint32_t>((std::uint64_t{bits} + BitsPerPair - 1) / BitsPerPair);
}

/// Gathers the lowest bit of each byte; that of the lowest byte becomes bit 7. The factor moves bit
/// 8i to bit 63 - i, and no two of its products meet.
inline std::uint32_t gatherBits(std::uint64_t bytes) {
    return static_cast<std::uint32_t>((bytes * 0x8040201008040201U) >> 56);
}

/// The up to 32 digits "01xz" that end at @p end.
///
/// All four share a code: letters have bit 6 set, which is the second plane; the value bit is bit 0
/// of a figure, and the inverse of bit 1 of a letter. A byte of zero reads as a 0.
inline VlogWordPair packDigits(const char* end, std::size_t count) {
    VlogWordPair pair;
    for (unsigned int shift = 0; count != 0; shift += 8) {
        const std::size_t taken = count < 8 ? count : 8;
        end -= 8;
        count -= taken;
        std::uint64_t bytes = loadBytes(end);
        if (taken != 8) bytes &= ~std::uint64_t{0} << (8 * (8 - taken));
        const std::uint64_t letters = (bytes >> 6) & EachByte;
        const std::uint64_t values = (bytes & EachByte) | (letters & ~(bytes >> 1));
        pair.value |= gatherBits(values & EachByte) << shift;
        pair.second |= gatherBits(letters) << shift;
    }
    return pair;
}

/// Value of @p width bits that the digits "01xz" stand for. Left of them x and z go on, everything
/// else is 0; digits too many are cut off on the left. @p pairs takes pairsOfBits(width).
void packVlogValue(std::string_view digits, std::uint32_t width, VlogWordPair* pairs);

/// The same for nine states: one byte an element, its position in "UX01ZWLH-", the left one first.
/// Left of the digits a 1 becomes 0, everything else goes on.
void packVhdlValue(std::string_view digits, std::uint32_t width, unsigned char* elements);

/// A text as dumps write it: backslash sequences stand for blanks and what else cannot be written.
std::string unescapeVcdText(std::string_view text);

}  // namespace Korvel

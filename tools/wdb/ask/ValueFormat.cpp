#include "ask/ValueFormat.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

namespace Korvel {

namespace {

// Decimal takes time that grows with the square of the width; wider vectors stay hexadecimal.
constexpr std::size_t WidestDecimal = 4096;

bool isOne(char digit) {
    return digit == '1' || digit == 'H';
}
bool isKnown(char digit) {
    return isOne(digit) || digit == '0' || digit == 'L';
}

// One letter for digits that are not all known.
char unknownLetter(std::string_view digits, bool isNineState) {
    const char first = digits.front();
    if (digits.find_first_not_of(first) == std::string_view::npos) return first;
    if (isNineState) return '?';
    return digits.find('x') != std::string_view::npos ? 'X' : 'Z';
}

// The digits in groups from the right, each one digit of the power of two that is the radix.
std::string inGroups(std::string_view digits, std::size_t groupSize, bool isNineState) {
    std::string text;
    std::size_t length = digits.size() % groupSize;
    if (length == 0) length = groupSize;
    for (; !digits.empty(); digits.remove_prefix(length), length = groupSize) {
        const std::string_view group = digits.substr(0, length);
        if (!std::all_of(group.begin(), group.end(), isKnown)) {
            text += unknownLetter(group, isNineState);
            continue;
        }
        unsigned int number = 0;
        for (const char digit : group)
            number = number * 2 + (isOne(digit) ? 1 : 0);
        text += "0123456789abcdef"[number];
    }
    return text;
}

std::string inDecimal(std::string digits, bool isSigned) {
    constexpr std::uint64_t Limb = 1'000'000'000;
    const bool isNegative = isSigned && isOne(digits.front());
    if (isNegative) {  // two's complement: all digits left of the last 1 turn round
        auto last = std::find_if(digits.rbegin(), digits.rend(), isOne);
        for (++last; last != digits.rend(); ++last)
            *last = isOne(*last) ? '0' : '1';
    }
    std::vector<std::uint64_t> limbs{0};  // the lowest first
    for (const char digit : digits) {
        std::uint64_t carry = isOne(digit) ? 1 : 0;
        for (std::uint64_t& limb : limbs) {
            carry += limb * 2;
            limb = carry % Limb;
            carry /= Limb;
        }
        if (carry != 0) limbs.push_back(carry);
    }
    std::string text = (isNegative ? "-" : "") + std::to_string(limbs.back());
    for (auto limb = limbs.rbegin() + 1; limb != limbs.rend(); ++limb)
        text += fmt::format("{:09}", *limb);
    return text;
}

constexpr unsigned char LastAscii = 0x7E;
constexpr unsigned char LastByte = 0xFF;  // a text may be of any alphabet

// In quotes, with everything that could not be printed in one line, or is behind @p last, as a
// backslash sequence.
std::string quoted(std::string_view text, unsigned char last = LastByte) {
    std::string out = "\"";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (c == '\n') {
            out += "\\n";
        } else if (byte < ' ' || byte == 0x7F || byte > last) {
            out += fmt::format("\\x{:02x}", byte);
        } else {
            out += c;
        }
    }
    return out + '"';
}

// Eight digits a character, from the right; leading zero bytes are the padding of a short text.
std::string inCharacters(const std::string& digits) {
    constexpr std::size_t BitsOfByte = 8;
    std::string bits((BitsOfByte - digits.size() % BitsOfByte) % BitsOfByte, '0');
    bits += digits;
    std::string text;
    for (std::size_t at = 0; at < bits.size(); at += BitsOfByte) {
        const std::string_view group = std::string_view(bits).substr(at, BitsOfByte);
        unsigned int byte = 0;
        for (const char digit : group)
            byte = byte * 2 + (isOne(digit) ? 1 : 0);
        if (!std::all_of(group.begin(), group.end(), isKnown)) byte = '?';
        if (byte != 0 || !text.empty()) text += static_cast<char>(byte);
    }
    return quoted(text, LastAscii);
}

// The vector as the pattern of a floating-point number; empty where none is so wide.
std::string asReal(const std::string& digits) {
    constexpr std::size_t BitsOfFloat = 32;
    constexpr std::size_t BitsOfDouble = 64;
    if (digits.size() != BitsOfFloat && digits.size() != BitsOfDouble) return {};
    std::uint64_t bits = 0;
    for (const char digit : digits)
        bits = bits * 2 + (isOne(digit) ? 1 : 0);
    if (digits.size() == BitsOfFloat) {
        const auto half = static_cast<std::uint32_t>(bits);
        float number = 0;
        std::memcpy(&number, &half, sizeof number);
        return fmt::format("{}", number);
    }
    double number = 0;
    std::memcpy(&number, &bits, sizeof number);
    return fmt::format("{}", number);
}

Radix usualRadix(const ObjectView& object) {
    if (object.width == 1) return Radix::Binary;
    switch (object.kind) {
        case VariableKind::Integer:
        case VariableKind::Int:
        case VariableKind::ShortInt:
        case VariableKind::LongInt:
        case VariableKind::Natural:
        case VariableKind::Positive:
        case VariableKind::Time:
            return object.isSigned ? Radix::SignedDecimal : Radix::Decimal;
        default:
            return Radix::Hexadecimal;
    }
}

std::string inRadix(const std::string& digits, Radix radix, bool isNineState) {
    constexpr std::size_t BitsOfOctal = 3;
    constexpr std::size_t BitsOfHexadecimal = 4;
    const bool areKnown = std::all_of(digits.begin(), digits.end(), isKnown);
    std::string text;
    switch (radix) {
        case Radix::Binary:
            return digits;
        case Radix::Octal:
            return inGroups(digits, BitsOfOctal, isNineState);
        case Radix::Decimal:
        case Radix::SignedDecimal:
            if (!areKnown) return {unknownLetter(digits, isNineState)};
            if (digits.size() > WidestDecimal) break;
            // One bit is a truth, not a number from -1 to 0.
            return inDecimal(digits, radix == Radix::SignedDecimal && digits.size() > 1);
        case Radix::Ascii:
            return inCharacters(digits);
        case Radix::Real:
            if (areKnown) text = asReal(digits);
            if (!text.empty()) return text;
            break;
        default:
            break;
    }
    return inGroups(digits, BitsOfHexadecimal, isNineState);
}

}  // namespace

const std::map<std::string, Radix>& radixNames() {
    static const std::map<std::string, Radix> names = {
        {"bin", Radix::Binary},         {"oct", Radix::Octal},       {"dec", Radix::Decimal},
        {"sdec", Radix::SignedDecimal}, {"hex", Radix::Hexadecimal}, {"ascii", Radix::Ascii},
        {"real", Radix::Real}};
    return names;
}

std::string ValueFormat::digits(const ViewedObject& viewed, const ViewedValue& value) const {
    std::string digits;
    if (value.state != ViewedValue::Known || !viewed.hasDigits) return digits;
    if (viewed.isPlainBytes()) {
        for (const std::uint8_t byte : value.bytes)
            digits += fmt::format("{:08b}", byte);
    } else if (viewed.object.representation == ValueRepresentation::VhdlEnumeration) {
        digits = plainText(viewed, value);
    } else {
        appendValueText(digits, viewed.object, value.bytes.data(), value.bytes.size());
    }
    return digits;
}

std::string ValueFormat::plainText(const ViewedObject& viewed, const ViewedValue& value) const {
    std::string text;
    if (m_description != nullptr) {
        appendLiteralText(text, *m_description, viewed.object, value.bytes.data(),
                          value.bytes.size(), m_strings);
    } else {
        appendValueText(text, viewed.object, value.bytes.data(), value.bytes.size(), m_strings);
    }
    return text;
}

std::string ValueFormat::text(const ViewedObject& viewed, const ViewedValue& value) const {
    if (value.state == ViewedValue::Dense) return "...";
    if (value.state == ViewedValue::Known) return knownText(viewed, value);
    if (viewed.object.representation == ValueRepresentation::VerilogFourState) return "x";
    const bool isNineState =
        viewed.object.representation == ValueRepresentation::VhdlEnumeration && viewed.hasDigits;
    return isNineState ? "U" : "-";
}

std::string ValueFormat::knownText(const ViewedObject& viewed, const ViewedValue& value) const {
    const ObjectView& object = viewed.object;
    if (!viewed.hasDigits) {
        const std::string text = plainText(viewed, value);
        return object.representation == ValueRepresentation::String ? quoted(text) : text;
    }
    const std::string digits = this->digits(viewed, value);
    const bool isNineState = object.representation == ValueRepresentation::VhdlEnumeration;
    if (isNineState && digits.size() == 1) return digits;  // its letter says more than a number
    if (m_radix != Radix::Default) return inRadix(digits, m_radix, isNineState);
    if (object.type != NoType && !isNineState) {
        std::string literal = plainText(viewed, value);
        if (literal != digits) return literal;
    }
    return inRadix(digits, usualRadix(object), isNineState);
}

}  // namespace Korvel

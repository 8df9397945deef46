#include "description/ValueText.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>

namespace Korvel {

namespace {

constexpr std::string_view StdULogicDigits = "UX01ZWLH-";
constexpr std::uint32_t BitsOfWord = 32;
constexpr std::size_t BytesOfPair = 8;

char lowered(char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

bool equalsInAnyCase(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char x, char y) { return lowered(x) == lowered(y); });
}

// Views from a description always are; one that a caller filled in itself may not be.
bool isConsistent(const ObjectView& object) {
    return isSizeOfWidth(object.representation, object.width, object.size);
}

template <class Number>
Number load(const std::uint8_t* bytes) {
    Number number;
    std::memcpy(&number, bytes, sizeof number);
    return number;
}

void appendStdULogic(std::string& out, const ObjectView& object, const std::uint8_t* bytes) {
    for (std::uint32_t i = 0; i < object.width; ++i) {
        out += bytes[i] < StdULogicDigits.size() ? StdULogicDigits[bytes[i]] : '?';
    }
}

void appendFourState(std::string& out, const ObjectView& object, const std::uint8_t* bytes) {
    constexpr std::string_view Digits = "01zx";  // second plane * 2 + value
    for (std::uint32_t bit = object.width; bit-- > 0;) {
        const std::uint8_t* pair = bytes + bit / BitsOfWord * BytesOfPair;
        const std::uint32_t value = load<std::uint32_t>(pair) >> bit % BitsOfWord & 1;
        const std::uint32_t second = load<std::uint32_t>(pair + 4) >> bit % BitsOfWord & 1;
        out += Digits[second * 2 + value];
    }
}

void appendTwoState(std::string& out, const ObjectView& object, const std::uint8_t* bytes) {
    for (std::uint32_t bit = object.width; bit-- > 0;) {
        out += (bytes[bit / 8] >> bit % 8 & 1) != 0 ? '1' : '0';
    }
}

void appendReal(std::string& out, double value) {
    // A NaN may carry a sign, which means nothing to anybody.
    if (std::isnan(value)) {
        out += "nan";
        return;
    }
    char digits[32];
    out.append(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
}

// A damaged value may claim four thousand million pieces: the first one that is not known ends it.
void appendPieces(std::string& out, const std::uint8_t* bytes, const StringLookup& strings) {
    const auto first = load<std::uint32_t>(bytes);
    const auto further = load<std::uint32_t>(bytes + 4);
    if (first == 0 && further == 0) return;
    for (std::uint64_t id = first; id <= std::uint64_t{first} + further; ++id) {
        const bool isId = strings && id <= UINT32_MAX;
        const auto piece = isId ? strings(static_cast<std::uint32_t>(id)) : std::nullopt;
        out += piece.value_or("?");
        if (!piece) return;
    }
}

void appendHexadecimal(std::string& out, const std::uint8_t* bytes, std::size_t size) {
    constexpr std::string_view Digits = "0123456789abcdef";
    out += "0x";
    for (std::size_t i = 0; i < size; ++i) {
        out += Digits[bytes[i] >> 4];
        out += Digits[bytes[i] & 15];
    }
}

// The literals of an object's type; none when it has no type or only its name is known.
class Literals {
public:
    Literals(const DesignDescription& description, const ObjectView& object)
        : m_description(description),
          m_type(object.type),
          m_count(m_type == NoType ? 0 : description.literalCount(m_type)) {}

    bool empty() const { return m_count == 0; }

    template <class Condition>
    std::optional<LiteralView> find(Condition condition) const {
        for (std::uint32_t i = 0; i < m_count; ++i) {
            const LiteralView literal = m_description.literal(m_type, i);
            if (condition(literal)) return literal;
        }
        return std::nullopt;
    }

    std::optional<LiteralView> at(std::uint8_t position) const {
        const auto isAt = [position](const LiteralView& l) { return l.position == position; };
        // Literals are mostly listed by their positions.
        if (position < m_count) {
            const LiteralView literal = m_description.literal(m_type, position);
            if (isAt(literal)) return literal;
        }
        return find(isAt);
    }

    std::optional<LiteralView> named(std::string_view name) const {
        const auto exact = find([name](const LiteralView& l) { return l.name == name; });
        if (exact) return exact;
        return find([name](const LiteralView& l) { return equalsInAnyCase(l.name, name); });
    }

    bool areCharacters() const {
        return !find([](const LiteralView& l) { return l.name.size() != 1; });
    }

private:
    const DesignDescription& m_description;
    TypeId m_type;
    std::uint32_t m_count;
};

void appendElements(std::string& out, const Literals& literals, const ObjectView& object,
                    const std::uint8_t* bytes) {
    const bool separate = !literals.areCharacters();
    for (std::uint32_t i = 0; i < object.width; ++i) {
        if (separate && i > 0) out += ',';
        const auto literal = literals.at(bytes[i]);
        out += literal ? literal->name : std::string_view("?");
    }
}

// The literal whose bits these digits are. One that comes without bits stands for its position.
std::optional<LiteralView> literalOfBits(const Literals& literals, std::string_view digits) {
    constexpr std::size_t BitsOfPosition = 64;
    std::uint64_t number = 0;
    const char* end = digits.data() + digits.size();
    const bool isNumber = digits.size() <= BitsOfPosition &&
                          std::from_chars(digits.data(), end, number, 2).ptr == end;
    const std::uint64_t mask = digits.size() < BitsOfPosition
                                   ? (std::uint64_t{1} << digits.size()) - 1
                                   : ~std::uint64_t{0};
    return literals.find([&](const LiteralView& literal) {
        if (!literal.bits.empty()) return equalsInAnyCase(literal.bits, digits);
        return isNumber && (static_cast<std::uint64_t>(literal.position) & mask) == number;
    });
}

// The digits of a position, for literals that come without bits.
std::string bitsOf(std::int64_t position, std::uint32_t width) {
    std::string bits(width, '0');
    for (std::uint32_t bit = 0; bit < width; ++bit) {
        const std::uint32_t shift = std::min(bit, 63U);
        if ((position >> shift & 1) != 0) bits[width - 1 - bit] = '1';
    }
    return bits;
}

bool hasBits(ValueRepresentation representation) {
    return representation == ValueRepresentation::VerilogFourState ||
           representation == ValueRepresentation::SystemCBytes;
}

// One digit an element, leftmost first, extended to the width; nothing for text that is too long.
std::optional<std::string> extended(std::string_view text, std::uint32_t width) {
    if (text.empty() || text.size() > width) return std::nullopt;
    const char filling = text.front() == '1' ? '0' : text.front();
    return std::string(width - text.size(), filling).append(text);
}

bool storeStdULogic(std::vector<std::uint8_t>& bytes, std::string_view digits) {
    for (std::size_t i = 0; i < digits.size(); ++i) {
        const char digit = digits[i];
        const std::size_t position = StdULogicDigits.find(
            digit >= 'a' && digit <= 'z' ? static_cast<char>(digit - 'a' + 'A') : digit);
        if (position == std::string_view::npos) return false;
        bytes[i] = static_cast<std::uint8_t>(position);
    }
    return true;
}

bool storeFourState(std::vector<std::uint8_t>& bytes, std::string_view digits) {
    for (std::size_t i = 0; i < digits.size(); ++i) {
        const std::size_t bit = digits.size() - 1 - i;
        const std::size_t value = bit / BitsOfWord * BytesOfPair + bit % BitsOfWord / 8;
        const auto mask = static_cast<std::uint8_t>(1U << bit % 8);
        const char digit = lowered(digits[i]);
        if (std::string_view("01xz").find(digit) == std::string_view::npos) return false;
        if (digit == '1' || digit == 'x') bytes[value] |= mask;
        if (digit == 'z' || digit == 'x') bytes[value + 4] |= mask;
    }
    return true;
}

bool storeTwoState(std::vector<std::uint8_t>& bytes, std::string_view digits, bool isSigned) {
    if (isSigned && digits.front() == '1') std::fill(bytes.begin(), bytes.end(), 0xFF);
    for (std::size_t i = 0; i < digits.size(); ++i) {
        const std::size_t bit = digits.size() - 1 - i;
        const auto mask = static_cast<std::uint8_t>(1U << bit % 8);
        if (digits[i] != '0' && digits[i] != '1') return false;
        bytes[bit / 8] = static_cast<std::uint8_t>(digits[i] == '1' ? bytes[bit / 8] | mask
                                                                    : bytes[bit / 8] & ~mask);
    }
    return true;
}

bool storeReal(std::vector<std::uint8_t>& bytes, std::string_view text) {
    double value = 0;
    if (text.size() > 1 && text[0] == '+' && text[1] != '-') text.remove_prefix(1);
    const char* end = text.data() + text.size();
    const auto [digitsEnd, failure] = std::from_chars(text.data(), end, value);
    if (failure != std::errc() || digitsEnd != end) return false;
    std::memcpy(bytes.data(), &value, sizeof value);
    return true;
}

// The elements of a VHDL array, each given as a literal: "idle,busy", or "01-" for characters.
bool storeElements(std::vector<std::uint8_t>& bytes, const Literals& literals,
                   std::string_view text) {
    const bool characters = literals.areCharacters();
    for (std::uint8_t& byte : bytes) {
        const std::size_t length = characters ? 1 : std::min(text.find(','), text.size());
        const auto literal = literals.named(text.substr(0, length));
        if (!literal || literal->position < 0 || literal->position > UINT8_MAX) {
            return false;
        }
        byte = static_cast<std::uint8_t>(literal->position);
        text.remove_prefix(std::min(text.size(), characters ? length : length + 1));
    }
    return text.empty();
}

}  // namespace

bool appendValueText(std::string& out, const ObjectView& object, const void* value,
                     std::size_t size, const StringLookup& strings) {
    if (size < object.size || !isConsistent(object)) return false;
    const auto* bytes = static_cast<const std::uint8_t*>(value);
    switch (object.representation) {
        case ValueRepresentation::VhdlEnumeration:
            appendStdULogic(out, object, bytes);
            return true;
        case ValueRepresentation::VerilogFourState:
            appendFourState(out, object, bytes);
            return true;
        case ValueRepresentation::SystemCBytes:
            appendTwoState(out, object, bytes);
            return true;
        case ValueRepresentation::Real:
            appendReal(out, load<double>(bytes));
            return true;
        case ValueRepresentation::String:
            appendPieces(out, bytes, strings);
            return true;
        case ValueRepresentation::Event:
            out += std::to_string(bytes[0]);
            return true;
    }
    appendHexadecimal(out, bytes, object.size);
    return true;
}

bool appendLiteralText(std::string& out, const DesignDescription& description,
                       const ObjectView& object, const void* bytes, std::size_t size,
                       const StringLookup& strings) {
    const Literals literals(description, object);
    if (literals.empty() || size < object.size || !isConsistent(object)) {
        return appendValueText(out, object, bytes, size, strings);
    }
    if (object.representation == ValueRepresentation::VhdlEnumeration) {
        appendElements(out, literals, object, static_cast<const std::uint8_t*>(bytes));
        return true;
    }
    std::string digits;
    appendValueText(digits, object, bytes, size, strings);
    if (hasBits(object.representation)) {
        const auto literal = literalOfBits(literals, digits);
        if (literal) digits = literal->name;
    }
    out += digits;
    return true;
}

std::optional<std::vector<std::uint8_t>> parseValueText(const ObjectView& object,
                                                        std::string_view text) {
    std::vector<std::uint8_t> bytes;
    if (object.representation == ValueRepresentation::Real) {
        bytes.resize(sizeof(double));
        return storeReal(bytes, text) ? std::optional(bytes) : std::nullopt;
    }
    const bool isVhdl = object.representation == ValueRepresentation::VhdlEnumeration;
    // Only where the size bounds the width: a damaged width of a real would be believed below.
    if (!(isVhdl || hasBits(object.representation)) || !isConsistent(object)) return std::nullopt;
    const auto digits = extended(text, object.width);
    if (!digits) return std::nullopt;
    bytes.resize(object.size);
    const bool stored = isVhdl ? storeStdULogic(bytes, *digits)
                        : object.representation == ValueRepresentation::VerilogFourState
                            ? storeFourState(bytes, *digits)
                            : storeTwoState(bytes, *digits, object.isSigned);
    return stored ? std::optional(std::move(bytes)) : std::nullopt;
}

std::optional<std::vector<std::uint8_t>> parseLiteralText(const DesignDescription& description,
                                                          const ObjectView& object,
                                                          std::string_view text) {
    const Literals literals(description, object);
    if (literals.empty()) return parseValueText(object, text);
    if (object.representation == ValueRepresentation::VhdlEnumeration) {
        if (!isConsistent(object)) return std::nullopt;
        std::vector<std::uint8_t> bytes(object.size);
        return storeElements(bytes, literals, text) ? std::optional(std::move(bytes))
                                                    : std::nullopt;
    }
    const auto literal = literals.named(text);
    if (!literal || !hasBits(object.representation)) {
        return parseValueText(object, text);
    }
    return parseValueText(object, literal->bits.empty()
                                      ? std::string_view(bitsOf(literal->position, object.width))
                                      : literal->bits);
}

}  // namespace Korvel

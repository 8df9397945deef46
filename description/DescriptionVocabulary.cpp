#include "description/DescriptionVocabulary.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <span>
#include <utility>

namespace Korvel {

namespace {

// One word an enumerator, in the order of the enumerators.
constexpr std::array<std::string_view, 27> ScopeKindNames = {"module",
                                                             "task",
                                                             "function",
                                                             "begin",
                                                             "fork",
                                                             "generate",
                                                             "struct",
                                                             "union",
                                                             "class",
                                                             "interface",
                                                             "package",
                                                             "program",
                                                             "vhdl_architecture",
                                                             "vhdl_procedure",
                                                             "vhdl_function",
                                                             "vhdl_record",
                                                             "vhdl_process",
                                                             "vhdl_block",
                                                             "vhdl_for_generate",
                                                             "vhdl_if_generate",
                                                             "vhdl_generate",
                                                             "vhdl_package",
                                                             "vhdl_generic",
                                                             "vhdl_array",
                                                             "sv_array",
                                                             "clocking",
                                                             "sc_module"};
static_assert(ScopeKindNames.size() == static_cast<std::size_t>(ScopeKind::SystemCModule) + 1);

constexpr std::array<std::string_view, 42> VariableKindNames = {"event",
                                                                "integer",
                                                                "parameter",
                                                                "real",
                                                                "real_parameter",
                                                                "reg",
                                                                "supply0",
                                                                "supply1",
                                                                "time",
                                                                "tri",
                                                                "triand",
                                                                "trior",
                                                                "trireg",
                                                                "tri0",
                                                                "tri1",
                                                                "wand",
                                                                "wire",
                                                                "wor",
                                                                "port",
                                                                "sparray",
                                                                "realtime",
                                                                "string",
                                                                "bit",
                                                                "logic",
                                                                "int",
                                                                "shortint",
                                                                "longint",
                                                                "byte",
                                                                "enum",
                                                                "shortreal",
                                                                "boolean",
                                                                "bit_vector",
                                                                "std_logic",
                                                                "std_logic_vector",
                                                                "std_ulogic",
                                                                "std_ulogic_vector",
                                                                "unsigned",
                                                                "signed",
                                                                "natural",
                                                                "positive",
                                                                "character",
                                                                "systemc"};
static_assert(VariableKindNames.size() == static_cast<std::size_t>(VariableKind::SystemC) + 1);

constexpr std::array<std::string_view, 6> DirectionNames = {"implicit", "input",  "output",
                                                            "inout",    "buffer", "linkage"};
static_assert(DirectionNames.size() == static_cast<std::size_t>(Direction::Linkage) + 1);

constexpr std::array<std::string_view, 6> RepresentationNames = {
    "vhdl_enumeration", "verilog_four_state", "systemc_bytes", "real", "string", "event"};
static_assert(RepresentationNames.size() ==
              static_cast<std::size_t>(ValueRepresentation::Event) + 1);

constexpr std::array<std::string_view, 8> AttributeKindNames = {
    "comment",   "packed_array", "unpacked_array",  "sparse_array",
    "pack_info", "declared_at",  "instantiated_at", "miscellaneous"};
static_assert(AttributeKindNames.size() ==
              static_cast<std::size_t>(AttributeKind::Miscellaneous) + 1);

// The units that simulators speak of, each a thousandth of the one before.
constexpr std::array<std::string_view, 6> UnitNames = {"s", "ms", "us", "ns", "ps", "fs"};

template <class Enumeration>
std::string_view nameOf(std::span<const std::string_view> names, Enumeration value) {
    const auto index = static_cast<std::size_t>(value);
    return index < names.size() ? names[index] : std::string_view("unknown");
}

char lowered(char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

template <class Enumeration>
std::optional<Enumeration> valueOf(std::span<const std::string_view> names, std::string_view word) {
    const auto isWord = [word](std::string_view name) {
        return std::equal(name.begin(), name.end(), word.begin(), word.end(),
                          [](char a, char b) { return a == lowered(b); });
    };
    const auto found = std::find_if(names.begin(), names.end(), isWord);
    if (found == names.end()) return std::nullopt;
    return static_cast<Enumeration>(found - names.begin());
}

}  // namespace

std::string_view toString(ScopeKind kind) {
    return nameOf(ScopeKindNames, kind);
}
std::string_view toString(VariableKind kind) {
    return nameOf(VariableKindNames, kind);
}
std::string_view toString(Direction direction) {
    return nameOf(DirectionNames, direction);
}
std::string_view toString(ValueRepresentation representation) {
    return nameOf(RepresentationNames, representation);
}
std::string_view toString(AttributeKind kind) {
    return nameOf(AttributeKindNames, kind);
}

std::optional<ScopeKind> parseScopeKind(std::string_view keyword) {
    return valueOf<ScopeKind>(ScopeKindNames, keyword);
}

std::optional<VariableKind> parseVariableKind(std::string_view keyword) {
    return valueOf<VariableKind>(VariableKindNames, keyword);
}

std::optional<Direction> parseDirection(std::string_view keyword) {
    return valueOf<Direction>(DirectionNames, keyword);
}

std::string toString(TimeUnit unit) {
    // A power of ten between two named units is the smaller one with zeros: 10^-10 s is 100ps.
    const int zeros = (unit.exponent % 3 + 3) % 3;
    const int thousandths = (zeros - unit.exponent) / 3;
    if (thousandths < 0 || thousandths >= static_cast<int>(UnitNames.size())) {
        return std::to_string(unit.multiplier) + " * 10^" + std::to_string(unit.exponent) + " s";
    }
    return std::to_string(unit.multiplier) + std::string(static_cast<std::size_t>(zeros), '0') +
           std::string(UnitNames[static_cast<std::size_t>(thousandths)]);
}

std::optional<TimeUnit> parseTimeUnit(std::string_view text) {
    TimeUnit unit;
    const char* end = text.data() + text.size();
    const auto [digitsEnd, failure] = std::from_chars(text.data(), end, unit.multiplier);
    if (failure != std::errc() ||
        (unit.multiplier != 1 && unit.multiplier != 10 && unit.multiplier != 100)) {
        return std::nullopt;
    }
    const char* word = std::find_if(digitsEnd, end, [](char c) { return c != ' ' && c != '\t'; });
    const auto thousandths =
        valueOf<std::uint8_t>(UnitNames, {word, static_cast<std::size_t>(end - word)});
    if (!thousandths) return std::nullopt;
    unit.exponent = -3 * *thousandths;
    return unit;
}

std::string toString(const DeclaredRange& range) {
    std::string text(1, '[');
    text += std::to_string(range.left);
    switch (range.form) {
        case RangeForm::Bounds:
            text += ':';
            text += std::to_string(range.right);
            break;
        case RangeForm::Index:
            break;
        default:
            return {};
    }
    text += ']';
    return text;
}

std::uint32_t sizeOfWidth(ValueRepresentation representation, std::uint32_t width) {
    constexpr std::uint32_t BitsOfPair = 32;
    constexpr std::uint32_t BytesOfPair = 8;
    switch (representation) {
        case ValueRepresentation::VhdlEnumeration:
            return width;
        case ValueRepresentation::VerilogFourState:
            return BytesOfPair * (width / BitsOfPair + (width % BitsOfPair != 0 ? 1 : 0));
        case ValueRepresentation::SystemCBytes:
            return width / 8 + (width % 8 != 0 ? 1 : 0);
        case ValueRepresentation::Real:
        case ValueRepresentation::String:
            return 8;
        case ValueRepresentation::Event:
            return 1;
    }
    return 0;
}

bool isSizeOfWidth(ValueRepresentation representation, std::uint32_t width, std::uint32_t size) {
    const std::uint32_t least = sizeOfWidth(representation, width);
    const bool mayBeMore = representation == ValueRepresentation::SystemCBytes ||
                           representation > ValueRepresentation::Event;
    return mayBeMore ? size >= least : size == least;
}

}  // namespace Korvel

#pragma once

#include "vcd/VcdIdTable.h"
#include "vcd/VcdTokenizer.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Korvel {

/// Widest vector that is taken, so that a declaration cannot claim any memory that it likes.
constexpr std::uint32_t MaxVcdWidth = 1U << 24;

constexpr std::uint32_t VcdNoScope = 0xFFFFFFFFU;

/// What values a declaration promises.
enum class VcdValueKind : std::uint8_t { Vector, Real, Text, Event };

struct VcdScope {
    std::uint32_t parent = VcdNoScope;
    std::string kind;  // keyword as it stands: "module", "vhdl_architecture" ...
    std::string name;
};

struct VcdVariable {
    std::uint32_t scope = VcdNoScope;
    std::uint32_t signal = 0;   // index into signals; variables of one code share it
    std::uint32_t width = 1;    // as declared
    std::uint32_t keyword = 0;  // index into keywords: "wire", "reg" ...
    std::uint64_t nameAt = 0;   // place in the declarations' text
    std::uint32_t nameLength = 0;
    bool hasRange = false;
    bool isIndex = false;  // "[3]": the range is one element
    std::int32_t left = 0;
    std::int32_t right = 0;
};

/// What all variables of one identifier code have in common.
struct VcdSignal {
    std::uint32_t width = 1;                   // of the widest variable
    VcdValueKind kind = VcdValueKind::Vector;  // of the first variable
};

/// An "$attrbegin", which speaks of the scope or variable that is declared next.
struct VcdAttribute {
    bool isOfScope = false;
    std::uint32_t owner = 0;  // index into scopes or variables
    std::string text;         // "misc 02 STD_LOGIC 1030"
};

/// All that a dump says before its first value change.
struct VcdDeclarations {
    std::string timescale;  // without blanks; empty = not stated
    std::int64_t timeZero = 0;
    std::string date;
    std::string version;
    std::vector<std::string> comments;

    std::vector<VcdScope> scopes;  // a parent before its children
    std::vector<std::string> keywords;
    std::vector<VcdVariable> variables;
    std::vector<VcdSignal> signals;  // in the order of their first declaration
    std::vector<VcdAttribute> attributes;
    std::string names;  // of all variables, one behind the other
    VcdIdTable ids;     // built
    std::vector<std::string> warnings;

    std::uint64_t endOffset = 0;  // where value changes begin

    std::string_view nameOf(const VcdVariable& variable) const {
        return std::string_view(names).substr(variable.nameAt, variable.nameLength);
    }
};

/// Reads a dump's declarations. Throws VcdError when they are damaged, end before
/// "$enddefinitions", or there is nothing that could be one.
VcdDeclarations readVcdDeclarations(VcdTokenizer& tokens);

}  // namespace Korvel

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Korvel {

// The words that a design description is made of, shared by its writer and its reader.
//
// Every enumerator's number is stored in recordings: numbers are never reused, new ones are added
// at the end. A reader may meet a number that it does not know yet; it keeps it as it is, and
// toString() calls it "unknown".

/// Index of a scope, an object or a type, counted from 0 in the order in which they were added.
using ScopeId = std::uint32_t;
using ObjectId = std::uint32_t;
using TypeId = std::uint32_t;

/// Parent of the outermost scopes, and scope of an object that lies in none.
constexpr ScopeId RootScope = 0xFFFFFFFFU;
/// Type of an object that has none.
constexpr TypeId NoType = 0xFFFFFFFFU;
/// Deepest nesting of scopes, so that a client may walk the tree by recursion.
constexpr unsigned int MaxScopeDepth = 1000;
/// End of a blackout that lasts to the end of the recording.
constexpr std::int64_t OpenEnd = INT64_MAX;

enum class ScopeKind : std::uint8_t {
    Module,
    Task,
    Function,
    Begin,
    Fork,
    Generate,
    Struct,
    Union,
    Class,
    Interface,
    Package,
    Program,
    VhdlArchitecture,
    VhdlProcedure,
    VhdlFunction,
    VhdlRecord,
    VhdlProcess,
    VhdlBlock,
    VhdlForGenerate,
    VhdlIfGenerate,
    VhdlGenerate,
    VhdlPackage,
    VhdlGeneric,
    VhdlArray,
    Array,
    Clocking,
    SystemCModule
};

/// What the source declared the object as. How its bytes are read is ValueRepresentation's
/// business.
enum class VariableKind : std::uint8_t {
    Event,
    Integer,
    Parameter,
    Real,
    RealParameter,
    Reg,
    Supply0,
    Supply1,
    Time,
    Tri,
    TriAnd,
    TriOr,
    TriReg,
    Tri0,
    Tri1,
    WireAnd,
    Wire,
    WireOr,
    Port,
    SparseArray,
    RealTime,
    String,
    Bit,
    Logic,
    Int,
    ShortInt,
    LongInt,
    Byte,
    Enum,
    ShortReal,
    Boolean,
    BitVector,
    StdLogic,
    StdLogicVector,
    StdULogic,
    StdULogicVector,
    Unsigned,
    Signed,
    Natural,
    Positive,
    Character,
    SystemC
};

enum class Direction : std::uint8_t { Implicit, Input, Output, InOut, Buffer, Linkage };

/// How an object's value lies in the data space, from the object's address on. All integers are
/// little-endian.
enum class ValueRepresentation : std::uint8_t {
    /// One byte an element, the leftmost element at the lowest address. The byte is a position in
    /// the object's enumeration type. A type without literals, or no type, means std_ulogic:
    /// positions 0 to 8 are "UX01ZWLH-". Size = width.
    VhdlEnumeration,
    /// Pairs of 32-bit words, one pair for 32 bits, the pair of the rightmost bits at the lowest
    /// address: first the value word, then the second-plane word. Bit 0 of the first pair is the
    /// rightmost bit; bits past the width are 0.
    /// (value, second plane): 0 = (0,0), 1 = (1,0), Z = (0,1), X = (1,1).
    /// Size = 8 * ceil(width / 32).
    VerilogFourState,
    /// The bytes of a two's complement integer. Size >= ceil(width / 8); bytes and bits past the
    /// width repeat the sign, or are 0 for an unsigned object.
    SystemCBytes,
    /// An IEEE 754 double. Size = 8.
    Real,
    /// Low 32 bits: id of the text's first piece in the recording's string map. High 32 bits: how
    /// many further pieces follow under consecutive ids (a text too long for one entry is cut).
    /// Eight zero bytes: no value yet, or the empty text. Size = 8.
    String,
    /// A counter of triggers, modulo 256. Size = 1.
    Event
};

/// What an attribute's text, first and second number mean.
enum class AttributeKind : std::uint8_t {
    Comment,         ///< text
    PackedArray,     ///< bounds: first = left, second = right; text empty. One a dimension,
    UnpackedArray,   ///< outermost dimension first. The object's own declared range is the
    SparseArray,     ///< innermost one and is not repeated here.
    PackInfo,        ///< text = how the members are packed; first = number of members
    DeclaredAt,      ///< text = source file; first = line, 0 = unknown
    InstantiatedAt,  ///< text = source file; first = line, 0 = unknown
    Miscellaneous    ///< text as the producer gave it; first = its number, if any
};

/// How the range behind a name is written, and whether there is one.
enum class RangeForm : std::uint8_t {
    None,    ///< "clk"
    Bounds,  ///< "pc[31:0]"
    Index    ///< "pc[3]": one element of something larger, left == right
};

struct DeclaredRange {
    RangeForm form = RangeForm::None;
    std::int32_t left = 0;
    std::int32_t right = 0;
};

/// One unit of simulation time is multiplier * 10^exponent seconds.
struct TimeUnit {
    int exponent = -9;            ///< -15 = femtosecond ... 0 = second
    unsigned int multiplier = 1;  ///< 1, 10 or 100
};

/// Dumping was switched off from @p start (values unknown from there) until @p end (exclusive).
struct Blackout {
    std::int64_t start = 0;
    std::int64_t end = OpenEnd;
};

/// "module", "vhdl_architecture", "reg", "real_parameter", "std_logic_vector", "input" ...: the
/// keywords of value-change dumps where these have one. A number without a name gives "unknown".
std::string_view toString(ScopeKind kind);
std::string_view toString(VariableKind kind);
std::string_view toString(Direction direction);
std::string_view toString(ValueRepresentation representation);
std::string_view toString(AttributeKind kind);
/// "10ps"; "100 * 10^-20 s" for an exponent without a name.
std::string toString(TimeUnit unit);
/// "[31:0]", "[3]" or "".
std::string toString(const DeclaredRange& range);

/// The reverse of toString, in any case of letters. Nothing for a word that is not known.
std::optional<ScopeKind> parseScopeKind(std::string_view keyword);
std::optional<VariableKind> parseVariableKind(std::string_view keyword);
std::optional<Direction> parseDirection(std::string_view keyword);
/// Takes "10ps" and "10 ps", units "s" to "fs".
std::optional<TimeUnit> parseTimeUnit(std::string_view text);

/// Whether an object of this width (elements or bits) may take @p size bytes. True for a
/// representation that is not known.
bool isSizeOfWidth(ValueRepresentation representation, std::uint32_t width, std::uint32_t size);
/// Bytes that an object of this width takes: the fewest that isSizeOfWidth() allows.
std::uint32_t sizeOfWidth(ValueRepresentation representation, std::uint32_t width);

}  // namespace Korvel

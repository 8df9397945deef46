#include "import/ImportDescription.h"

#include "description/DesignDescriptionWriter.h"
#include "vcd/VcdText.h"
#include "vcd/VhdlKinds.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <iterator>
#include <map>
#include <string>
#include <string_view>

namespace Korvel {

namespace {

using Words = std::vector<std::string_view>;

Words splitWords(std::string_view text) {
    Words words;
    while (!text.empty()) {
        const std::size_t blank = std::min(text.find(' '), text.size());
        words.push_back(text.substr(0, blank));
        text.remove_prefix(std::min(blank + 1, text.size()));
    }
    return words;
}

// 0 where it is no number.
std::int64_t toNumber(std::string_view text, int base = 10) {
    std::int64_t number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number, base);
    return number;
}

// The number that a supplementary variable attribute gives the VHDL type, in its low ten bits.
constexpr std::int64_t VhdlTypeMask = 0x3FF;

bool isSignedKind(VariableKind kind) {
    switch (kind) {
        case VariableKind::Integer:
        case VariableKind::Int:
        case VariableKind::ShortInt:
        case VariableKind::LongInt:
        case VariableKind::Byte:
        case VariableKind::Signed:
            return true;
        default:
            return false;
    }
}

// Subtypes of "misc" attributes, in hexadecimal in the dump.
enum MiscellaneousKind : std::int64_t {
    CommentText = 0,
    SupplementaryType = 2,  // name, number
    SourcePath = 3,         // path, its index
    Declaration = 4,        // index of the path, line
    Instantiation = 5,      // the same
    EnumerationTable = 7    // name, count, literals, their bits, handle; or "" and the handle
};

class ImportDescriber {
public:
    ImportDescriber(VcdDeclarations& declarations, const RecordingLayout& layout)
        : m_declarations(declarations), m_layout(layout) {}

    std::vector<std::uint8_t> describe(TimeUnit timeUnit, const std::vector<Blackout>& blackouts);

private:
    struct Attribute {
        AttributeKind kind = AttributeKind::Miscellaneous;
        std::string text;
        std::int64_t first = 0;
        std::int64_t second = 0;
    };

    // What the attributes before a declaration add to it.
    struct Extras {
        std::vector<Attribute> attributes;
        TypeId type = NoType;
        bool hasLiterals = false;   // the type's
        std::int64_t vhdlType = 0;  // 0 = none
    };

    void readAttributes();
    void readMiscellaneous(const Words& words, const std::string& text, Extras& extras);
    void readEnumeration(const Words& words, Extras& extras);
    void addScopes();
    void addObjects();
    void placeObject(ObjectDefinition& object, const VcdVariable& variable) const;
    static void applyType(ObjectDefinition& object, const Extras& extras);
    TypeId typeNamed(std::string_view name);

    VcdDeclarations& m_declarations;
    const RecordingLayout& m_layout;
    DesignDescriptionWriter m_writer;
    std::map<std::uint32_t, Extras> m_scopeExtras;
    std::map<std::uint32_t, Extras> m_variableExtras;
    std::map<std::int64_t, std::string> m_paths;         // by index
    std::map<std::int64_t, TypeId> m_enumerations;       // by handle
    std::map<std::string, TypeId, std::less<>> m_types;  // of which only the name is known
};

std::vector<std::uint8_t> ImportDescriber::describe(TimeUnit timeUnit,
                                                    const std::vector<Blackout>& blackouts) {
    m_writer.setTimeUnit(timeUnit);
    m_writer.setTimeZero(m_declarations.timeZero);
    m_writer.setProducer(m_declarations.version);
    m_writer.setDate(m_declarations.date);
    for (const std::string& comment : m_declarations.comments)
        m_writer.addComment(comment);
    for (const Blackout& blackout : blackouts)
        m_writer.addBlackout(blackout);
    readAttributes();
    addScopes();
    addObjects();
    m_variableExtras.clear();
    m_declarations.attributes = {};
    m_declarations.scopes = {};
    m_declarations.variables = {};
    m_declarations.names = {};
    return m_writer.finish();
}

void ImportDescriber::readAttributes() {
    for (const VcdAttribute& attribute : m_declarations.attributes) {
        Extras& extras = (attribute.isOfScope ? m_scopeExtras : m_variableExtras)[attribute.owner];
        const Words words = splitWords(attribute.text);
        const std::int64_t number = words.empty() ? 0 : toNumber(words.back());
        const std::string_view subtype = words.size() > 1 ? words[1] : std::string_view();
        if (words.size() > 2 && words[0] == "misc") {
            readMiscellaneous(words, attribute.text, extras);
        } else if (words.size() > 2 && words[0] == "array" && subtype != "none") {
            const AttributeKind kind = subtype == "packed"   ? AttributeKind::PackedArray
                                       : subtype == "sparse" ? AttributeKind::SparseArray
                                                             : AttributeKind::UnpackedArray;
            extras.attributes.push_back(
                {kind, "", number >> 32, static_cast<std::int32_t>(number & 0xFFFFFFFF)});
        } else if (words.size() > 2 && words[0] == "pack") {
            extras.attributes.push_back({AttributeKind::PackInfo, std::string(subtype), number, 0});
        } else {
            extras.attributes.push_back({AttributeKind::Miscellaneous, attribute.text, number, 0});
        }
    }
}

void ImportDescriber::readMiscellaneous(const Words& words, const std::string& text,
                                        Extras& extras) {
    const std::int64_t kind = toNumber(words[1], 16);
    const std::int64_t number = toNumber(words.back());
    const char* begin = words[2].data();
    const auto length = static_cast<std::size_t>(words.back().data() - begin);
    const std::string content(begin, length == 0 ? 0 : length - 1);  // without the number
    const bool hasContent = words.size() > 3;
    if (kind == SupplementaryType && hasContent) {
        extras.type = typeNamed(content);
        extras.vhdlType = number & VhdlTypeMask;
    } else if (kind == SourcePath && hasContent) {
        m_paths[number] = content;
    } else if ((kind == Declaration || kind == Instantiation) && hasContent) {
        extras.attributes.push_back(
            {kind == Declaration ? AttributeKind::DeclaredAt : AttributeKind::InstantiatedAt,
             m_paths[toNumber(words[2])], number, 0});
    } else if (kind == EnumerationTable && hasContent) {
        readEnumeration(words, extras);
    } else if (kind == CommentText) {
        extras.attributes.push_back({AttributeKind::Comment, hasContent ? content : "", 0, 0});
    } else {
        extras.attributes.push_back({AttributeKind::Miscellaneous, text, number, 0});
    }
}

void ImportDescriber::readEnumeration(const Words& words, Extras& extras) {
    constexpr std::size_t countIndex = 3;
    constexpr std::size_t firstLiteral = 4;
    const std::int64_t handle = toNumber(words.back());
    const auto known = m_enumerations.find(handle);
    if (words.size() == firstLiteral) {
        extras.hasLiterals = known != m_enumerations.end();
        if (extras.hasLiterals) extras.type = known->second;
        return;
    }
    const auto count = static_cast<std::uint64_t>(toNumber(words[countIndex]));
    if (count > words.size() || words.size() != firstLiteral + 2 * count + 1) return;
    std::vector<std::string> names;
    std::vector<LiteralDefinition> literals;
    for (std::size_t i = 0; i < count; ++i)
        names.push_back(unescapeVcdText(words[firstLiteral + i]));
    for (std::size_t i = 0; i < count; ++i) {
        literals.push_back(
            {names[i], static_cast<std::int64_t>(i), words[firstLiteral + count + i]});
    }
    m_enumerations[handle] = m_writer.addEnumeration(unescapeVcdText(words[2]), literals);
}

TypeId ImportDescriber::typeNamed(std::string_view name) {
    const auto known = m_types.find(name);
    if (known != m_types.end()) return known->second;
    const TypeId type = m_writer.addType(name);
    m_types.emplace(name, type);
    return type;
}

// Scopes get the ids that are their indexes in the declarations.
void ImportDescriber::addScopes() {
    for (std::uint32_t i = 0; i < m_declarations.scopes.size(); ++i) {
        const VcdScope& scope = m_declarations.scopes[i];
        const ScopeId parent = scope.parent == VcdNoScope ? RootScope : scope.parent;
        const ScopeId id = m_writer.addScope(
            parent, parseScopeKind(scope.kind).value_or(ScopeKind::Module), scope.name);
        const auto extras = m_scopeExtras.find(i);
        if (extras == m_scopeExtras.end()) continue;
        for (const Attribute& attribute : extras->second.attributes) {
            m_writer.addScopeAttribute(id, attribute.kind, attribute.text, attribute.first,
                                       attribute.second);
        }
    }
}

void ImportDescriber::placeObject(ObjectDefinition& object, const VcdVariable& variable) const {
    const RecordedSignal& signal = m_layout.signals[variable.signal];
    const bool isElements = signal.representation == ValueRepresentation::VhdlEnumeration;
    const bool isBits = signal.representation == ValueRepresentation::VerilogFourState;
    const auto span =
        static_cast<std::uint32_t>(std::abs(std::int64_t{variable.left} - variable.right) + 1);
    object.representation = signal.representation;
    object.width = std::max(variable.width, 1U);
    object.address = signal.address;
    if (variable.hasRange && (span <= object.width || !(isElements || isBits))) {
        object.range = {variable.isIndex ? RangeForm::Index : RangeForm::Bounds, variable.left,
                        variable.right};
        object.width = std::max(object.width, span);
    }
    // The rightmost elements are those that a narrower name has of a shared value.
    if (isElements) object.address += signal.width - object.width;
}

// The elements of a VHDL enumeration are std_ulogic here, whatever literals a type may have.
void ImportDescriber::applyType(ObjectDefinition& object, const Extras& extras) {
    const bool isElements = object.representation == ValueRepresentation::VhdlEnumeration;
    if (!(isElements && extras.hasLiterals)) object.type = extras.type;
    const auto vhdlType = static_cast<std::size_t>(extras.vhdlType);
    if (vhdlType != 0 && vhdlType <= NumberedVhdlKinds.size()) {
        object.kind = NumberedVhdlKinds[vhdlType - 1];
    }
}

void ImportDescriber::addObjects() {
    std::vector<VariableKind> kinds;
    for (const std::string& keyword : m_declarations.keywords) {
        kinds.push_back(parseVariableKind(keyword).value_or(VariableKind::Wire));
    }
    auto extras = m_variableExtras.begin();
    for (std::uint32_t i = 0; i < m_declarations.variables.size(); ++i) {
        const VcdVariable& variable = m_declarations.variables[i];
        const bool hasExtras = extras != m_variableExtras.end() && extras->first == i;
        ObjectDefinition object;
        object.name = m_declarations.nameOf(variable);
        object.scope = variable.scope == VcdNoScope ? RootScope : variable.scope;
        object.kind = kinds[variable.keyword];
        placeObject(object, variable);
        if (hasExtras) applyType(object, extras->second);
        object.isSigned = isSignedKind(object.kind);
        const ObjectId id = m_writer.addObject(object);
        if (!hasExtras) continue;
        for (const Attribute& attribute : extras->second.attributes) {
            m_writer.addObjectAttribute(id, attribute.kind, attribute.text, attribute.first,
                                        attribute.second);
        }
        ++extras;
    }
}

}  // namespace

std::vector<std::uint8_t> describeImport(VcdDeclarations& declarations,
                                         const RecordingLayout& layout, TimeUnit timeUnit,
                                         const std::vector<Blackout>& blackouts) {
    return ImportDescriber(declarations, layout).describe(timeUnit, blackouts);
}

}  // namespace Korvel

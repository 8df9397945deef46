#include "ask/VcdHeader.h"

#include "ask/VcdWords.h"
#include "description/ValueText.h"
#include "vcd/VhdlKinds.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <optional>
#include <string_view>
#include <tuple>
#include <utility>

namespace Korvel {

namespace {

// In the attribute that numbers a VHDL type, above the number.
constexpr unsigned int VhdlSignal = 1U << 10;

std::int64_t spanOf(const DeclaredRange& range) {
    return std::abs(std::int64_t{range.left} - range.right) + 1;
}

// Whether readers would take the end of the name for a range that fits the width.
bool endsLikeRange(std::string_view name, std::uint32_t width) {
    const std::size_t bracket = name.rfind('[');
    if (bracket == std::string_view::npos || bracket == 0 || name.back() != ']') return false;
    const bool isIndex = name.find(':', bracket) == std::string_view::npos;
    return isIndex ? width == 1 : true;
}

// A name as one word, because most readers take no more. A backslash in front is left out by them,
// unless another one ends the name.
std::string writtenName(std::string_view name, bool isEscaped) {
    std::string written = plainVcdText(name);
    std::replace(written.begin(), written.end(), ' ', '_');
    if (written.empty()) written = "_";
    const bool startsEscaped =
        written.size() > 1 && written.front() == '\\' && written.back() != '\\';
    return isEscaped || startsEscaped ? '\\' + written : written;
}

// A text that has to be exactly one word.
std::string wordOf(std::string_view text) {
    return text.empty() ? "_" : escapeVcdText(text);
}

std::string bitsOf(std::int64_t position, std::uint32_t width) {
    const std::string bits = fmt::format("{:064b}", static_cast<std::uint64_t>(position));
    return width < bits.size() ? bits.substr(bits.size() - width)
                               : std::string(width - bits.size(), bits.front()) + bits;
}

std::string_view keywordOf(const ViewedObject& viewed) {
    const VariableKind kind = viewed.object.kind;
    const bool isReal = kind == VariableKind::Real || kind == VariableKind::RealParameter ||
                        kind == VariableKind::RealTime || kind == VariableKind::ShortReal;
    switch (vcdFormOf(viewed)) {
        case VcdValueForm::Real:
            return isReal ? toString(kind) : "real";
        case VcdValueForm::Text:
            return "string";
        case VcdValueForm::Event:
            return "event";
        default:
            break;
    }
    const bool isOfVector = !isReal && kind != VariableKind::Event &&
                            kind != VariableKind::String && kind != VariableKind::Port &&
                            kind < VariableKind::Boolean;
    return isOfVector ? toString(kind) : viewed.isPlainBytes() ? "wire" : "logic";
}

class HeaderWriter {
public:
    HeaderWriter(OutputFile& output, const ViewedRecording& recording,
                 const std::vector<ViewedObject>& objects, const VcdSignals& signals)
        : m_output(output),
          m_description(recording.description()),
          m_objects(objects),
          m_signals(signals) {}

    void write(bool hasAllScopes);

private:
    void command(std::string_view keyword, std::string_view text);
    void writeOrigin();
    void chooseScopes(bool hasAllScopes);
    void writeScope(ScopeId scope);
    void writeContents(ScopeId scope);
    void writeVariable(std::uint32_t index);
    void writeType(const ViewedObject& viewed);
    void writeEnumeration(const ViewedObject& viewed);
    void writeAttributes(const std::vector<AttributeView>& attributes);
    void writePlace(const AttributeView& attribute);

    OutputFile& m_output;
    const DesignDescription* m_description;
    const std::vector<ViewedObject>& m_objects;
    const VcdSignals& m_signals;
    std::vector<std::pair<ObjectId, std::uint32_t>> m_byObject;  // object, position; sorted
    std::vector<bool> m_isScopeWanted;
    std::map<std::string, std::size_t, std::less<>> m_paths;  // of source files: their numbers
    std::map<TypeId, std::size_t> m_tables;                   // of literals: their numbers
};

void HeaderWriter::command(std::string_view keyword, std::string_view text) {
    m_output.put(fmt::format("${}{}{} $end\n", keyword, text.empty() ? "" : " ", text));
}

void HeaderWriter::write(bool hasAllScopes) {
    writeOrigin();
    for (std::uint32_t i = 0; i < m_objects.size(); ++i)
        m_byObject.emplace_back(m_objects[i].object.id, i);
    std::sort(m_byObject.begin(), m_byObject.end());
    if (m_description != nullptr) {
        chooseScopes(hasAllScopes);
        writeContents(RootScope);
    }
    for (std::uint32_t i = 0; i < m_objects.size(); ++i) {
        if (m_objects[i].isPlainBytes()) writeVariable(i);
    }
    command("enddefinitions", "");
}

void HeaderWriter::writeOrigin() {
    std::optional<TimeUnit> unit;
    if (m_description != nullptr) {
        const std::string date = plainVcdText(m_description->date());
        const std::string producer = plainVcdText(m_description->producer());
        if (!date.empty()) command("date", date);
        if (!producer.empty()) command("version", producer);
        for (const std::string_view comment : m_description->comments())
            command("comment", plainVcdText(comment));
        unit = parseTimeUnit(toString(m_description->timeUnit()));
    }
    command("timescale", toString(unit.value_or(TimeUnit{})));
    if (m_description != nullptr && m_description->timeZero() != 0) {
        command("timezero", std::to_string(m_description->timeZero()));
    }
}

void HeaderWriter::chooseScopes(bool hasAllScopes) {
    m_isScopeWanted.assign(m_description->scopeCount(), hasAllScopes);
    for (const ViewedObject& viewed : m_objects) {
        if (viewed.isPlainBytes()) continue;
        ScopeId scope = viewed.object.scope;
        while (scope != RootScope && !m_isScopeWanted[scope]) {
            m_isScopeWanted[scope] = true;
            scope = m_description->scope(scope).parent;
        }
    }
}

void HeaderWriter::writeScope(ScopeId scope) {
    const ScopeView view = m_description->scope(scope);
    writeAttributes(m_description->scopeAttributes(scope));
    const bool isKnown = parseScopeKind(toString(view.kind)).has_value();
    command("scope", fmt::format("{} {}", isKnown ? toString(view.kind) : "module",
                                 writtenName(view.name, false)));
    writeContents(scope);
    command("upscope", "");
}

// Scopes are not nested deeper than a description allows, which recursion can take.
void HeaderWriter::writeContents(ScopeId scope) {
    for (const ObjectId id : m_description->objectsOf(scope)) {
        auto entry = std::lower_bound(m_byObject.begin(), m_byObject.end(), std::pair(id, 0U));
        for (; entry != m_byObject.end() && entry->first == id; ++entry)
            writeVariable(entry->second);
    }
    for (const ScopeId child : m_description->childScopes(scope)) {
        if (m_isScopeWanted[child]) writeScope(child);
    }
}

void HeaderWriter::writeVariable(std::uint32_t index) {
    const ViewedObject& viewed = m_objects[index];
    const ObjectView& object = viewed.object;
    const VcdValueForm form = vcdFormOf(viewed);
    const bool isDigits = form == VcdValueForm::Digits;
    const bool isPlain = viewed.isPlainBytes();
    if (!isPlain) {
        writeAttributes(m_description->objectAttributes(object.id));
        writeType(viewed);
    }
    const bool hasRange =
        object.range.form != RangeForm::None &&
        (isDigits ? spanOf(object.range) == object.width : object.range.form == RangeForm::Bounds);
    const std::string_view name = isPlain ? std::string_view(viewed.name) : object.name;
    const bool isEscaped = !hasRange && endsLikeRange(name, isDigits ? object.width : 0);
    const std::uint32_t width = isDigits ? object.width : form == VcdValueForm::Real ? 64 : 1;
    command("var", fmt::format("{} {} {} {}{}{}", keywordOf(viewed), width,
                               vcdCode(m_signals.ofObject[index]), writtenName(name, isEscaped),
                               hasRange ? " " : "", hasRange ? toString(object.range) : ""));
}

void HeaderWriter::writeType(const ViewedObject& viewed) {
    const ObjectView& object = viewed.object;
    const bool hasType = object.type != NoType;
    const bool isVhdl = object.representation == ValueRepresentation::VhdlEnumeration;
    if (hasType && !isVhdl && m_description->literalCount(object.type) != 0) {
        writeEnumeration(viewed);
        return;
    }
    // Verilog's own kinds have their keyword; what else the table has, dumps know by number only.
    const auto* known =
        object.kind >= VariableKind::Boolean || (hasType && isVhdl)
            ? std::find(NumberedVhdlKinds.begin(), NumberedVhdlKinds.end(), object.kind)
            : NumberedVhdlKinds.end();
    const bool isNumbered = known != NumberedVhdlKinds.end();
    std::string name = hasType ? plainVcdText(m_description->typeName(object.type)) : "";
    if (name.empty() && isNumbered) name = toString(object.kind);
    if (name.empty()) return;
    const auto number = isNumbered ? VhdlSignal + (known - NumberedVhdlKinds.begin()) + 1 : 0;
    command("attrbegin", fmt::format("misc 02 {} {}", name, number));
}

// The table comes once, with the first variable; all refer to it by its number.
void HeaderWriter::writeEnumeration(const ViewedObject& viewed) {
    const TypeId type = viewed.object.type;
    const auto [table, isNew] = m_tables.emplace(type, m_tables.size() + 1);
    if (isNew) {
        std::string names;
        std::string bits;
        const std::uint32_t count = m_description->literalCount(type);
        for (std::uint32_t i = 0; i < count; ++i) {
            const LiteralView literal = m_description->literal(type, i);
            names += ' ' + wordOf(literal.name);
            bits += ' ' + (literal.bits.empty() ? bitsOf(literal.position, viewed.object.width)
                                                : wordOf(literal.bits));
        }
        const std::string name = wordOf(m_description->typeName(type));
        command("attrbegin",
                fmt::format("misc 07 {} {}{}{} {}", name, count, names, bits, table->second));
    }
    command("attrbegin", fmt::format("misc 07 \"\" {}", table->second));
}

void HeaderWriter::writeAttributes(const std::vector<AttributeView>& attributes) {
    for (const AttributeView& attribute : attributes) {
        const std::string text = plainVcdText(attribute.text);
        const std::uint64_t bounds = static_cast<std::uint64_t>(attribute.first) << 32 |
                                     (static_cast<std::uint64_t>(attribute.second) & 0xFFFFFFFFU);
        const auto array = [&](std::string_view kind) {
            command("attrbegin",
                    fmt::format("array {} bounds {}", kind, static_cast<std::int64_t>(bounds)));
        };
        switch (attribute.kind) {
            case AttributeKind::Comment:
                command("attrbegin", fmt::format("misc 00 {} 0", text));
                break;
            case AttributeKind::PackedArray:
                array("packed");
                break;
            case AttributeKind::UnpackedArray:
                array("unpacked");
                break;
            case AttributeKind::SparseArray:
                array("sparse");
                break;
            case AttributeKind::PackInfo:
                command("attrbegin", fmt::format("pack {} members {}", text, attribute.first));
                break;
            case AttributeKind::DeclaredAt:
            case AttributeKind::InstantiatedAt:
                writePlace(attribute);
                break;
            default:
                if (!text.empty()) command("attrbegin", text);
        }
    }
}

void HeaderWriter::writePlace(const AttributeView& attribute) {
    const std::string path = plainVcdText(attribute.text);
    if (path.empty()) return;
    const auto [known, isNew] = m_paths.emplace(path, m_paths.size() + 1);
    if (isNew) command("attrbegin", fmt::format("misc 03 {} {}", path, known->second));
    const bool isDeclaration = attribute.kind == AttributeKind::DeclaredAt;
    command("attrbegin",
            fmt::format("misc 0{} {} {}", isDeclaration ? 4 : 5, known->second, attribute.first));
}

}  // namespace

VcdValueForm vcdFormOf(const ViewedObject& viewed) {
    if (viewed.object.representation == ValueRepresentation::Real) return VcdValueForm::Real;
    if (viewed.object.representation == ValueRepresentation::Event) return VcdValueForm::Event;
    return viewed.hasDigits ? VcdValueForm::Digits : VcdValueForm::Text;
}

VcdSignals::VcdSignals(const std::vector<ViewedObject>& objects) {
    // Literals spell VHDL values, so that one of another type is another signal.
    using Key = std::tuple<std::int64_t, std::uint32_t, std::uint32_t, ValueRepresentation, TypeId>;
    std::map<Key, std::uint32_t> known;
    for (const ViewedObject& viewed : objects) {
        const ObjectView& object = viewed.object;
        const bool isVhdl = object.representation == ValueRepresentation::VhdlEnumeration;
        const Key key{object.address, viewed.firstBit, object.width, object.representation,
                      isVhdl ? object.type : NoType};
        const auto next = static_cast<std::uint32_t>(signals.size());
        const auto [entry, isNew] = known.emplace(key, next);
        ofObject.push_back(entry->second);
        if (!isNew) continue;
        signals.push_back(viewed);
        signals.back().name.clear();
    }
}

void writeVcdHeader(OutputFile& output, const ViewedRecording& recording,
                    const std::vector<ViewedObject>& objects, const VcdSignals& signals,
                    bool hasAllScopes) {
    HeaderWriter(output, recording, objects, signals).write(hasAllScopes);
}

}  // namespace Korvel

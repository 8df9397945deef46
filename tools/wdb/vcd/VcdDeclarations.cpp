#include "vcd/VcdDeclarations.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <unordered_map>
#include <utility>

namespace Korvel {

namespace {

constexpr std::string_view EndKeyword = "$end";

template <class Integer>
bool parseInteger(std::string_view text, Integer& number) {
    const char* end = text.data() + text.size();
    const auto [last, error] = std::from_chars(text.data(), end, number);
    return error == std::errc{} && last == end;
}

struct Range {
    std::int32_t left = 0;
    std::int32_t right = 0;
    bool isIndex = false;

    std::int64_t span() const {
        return (left < right ? std::int64_t{right} - left : std::int64_t{left} - right) + 1;
    }
};

// "[31:0]" or "[3]".
std::optional<Range> parseRange(std::string_view text) {
    if (text.size() < 3 || text.front() != '[' || text.back() != ']') return std::nullopt;
    text = text.substr(1, text.size() - 2);
    const std::size_t colon = text.find(':');
    Range range;
    range.isIndex = colon == std::string_view::npos;
    if (!parseInteger(text.substr(0, colon), range.left)) return std::nullopt;
    range.right = range.left;
    if (!range.isIndex && !parseInteger(text.substr(colon + 1), range.right)) return std::nullopt;
    return range;
}

VcdValueKind kindOfKeyword(std::string_view keyword) {
    if (keyword == "real" || keyword == "realtime" || keyword == "real_parameter" ||
        keyword == "shortreal") {
        return VcdValueKind::Real;
    }
    if (keyword == "string") return VcdValueKind::Text;
    return keyword == "event" ? VcdValueKind::Event : VcdValueKind::Vector;
}

class DeclarationParser {
public:
    explicit DeclarationParser(VcdTokenizer& tokens) : m_tokens(tokens) {}

    VcdDeclarations parse();

private:
    bool parseCommand(const std::string& command);
    std::string textUntilEnd(bool isVariable);
    void parseScope();
    void parseVariable();
    void parseTimeZero();
    std::uint32_t parseWidth(const std::string& text);
    void nameVariable(VcdVariable& variable, VcdValueKind kind);
    std::uint32_t signalOf(std::string_view code, std::uint32_t width, VcdValueKind kind);
    std::uint32_t keywordIndex(const std::string& keyword);
    void giveAttributesTo(bool isOfScope, std::size_t owner);
    [[noreturn]] void fail(const std::string& reason) const { throw VcdError(m_at, reason); }
    void warnOnce(const std::string& text);

    VcdTokenizer& m_tokens;
    VcdDeclarations m_result;
    std::vector<std::string> m_words;  // of the command that is being read, without "$end"
    std::uint64_t m_at = 0;            // where that command begins
    std::uint32_t m_scope = VcdNoScope;
    std::vector<std::string> m_attributes;  // waiting for what they speak of
    std::unordered_map<std::string, std::uint32_t> m_scopesByName;  // parent, kind and name
    std::unordered_map<std::string, std::uint32_t> m_keywordIndexes;
};

VcdDeclarations DeclarationParser::parse() {
    std::string_view token;
    bool isEnded = false;
    while (!isEnded && m_tokens.next(token)) {
        m_at = m_tokens.tokenOffset();
        const bool isCommand = token.size() > 1 && token.front() == '$';
        const bool isDump = token.substr(0, 5) == "$dump";
        if (isCommand && !isDump) {
            isEnded = parseCommand(std::string(token));
            m_result.endOffset = m_tokens.offset();
        } else if (m_result.variables.empty()) {
            fail("is no value-change dump: a declaration is expected");
        } else {
            warnOnce("value changes begin without $enddefinitions");
            m_result.endOffset = m_at;
            isEnded = true;
        }
    }
    m_at = m_tokens.tokenOffset();
    if (!isEnded && m_result.variables.empty())
        fail("is no value-change dump: nothing is declared");
    if (!isEnded) fail("the declarations end before $enddefinitions");
    m_result.ids.build();
    return std::move(m_result);
}

// Returns true at the end of the declarations.
bool DeclarationParser::parseCommand(const std::string& command) {
    if (command == EndKeyword) return false;  // one too many does no harm
    const std::string text = textUntilEnd(command == "$var");
    if (command == "$enddefinitions") return true;
    if (command == "$var") {
        parseVariable();
    } else if (command == "$scope") {
        parseScope();
    } else if (command == "$upscope") {
        if (m_scope == VcdNoScope) {
            warnOnce("an $upscope has no $scope");
        } else {
            m_scope = m_result.scopes[m_scope].parent;
        }
    } else if (command == "$timescale") {
        for (const std::string& word : m_words)
            m_result.timescale += word;
    } else if (command == "$date") {
        m_result.date = text;
    } else if (command == "$version") {
        m_result.version = text;
    } else if (command == "$comment") {
        m_result.comments.push_back(text);
    } else if (command == "$timezero") {
        parseTimeZero();
    } else if (command == "$attrbegin") {
        m_attributes.push_back(text);
    } else if (command != "$attrend") {
        warnOnce("unknown command " + command + " skipped");
    }
    return false;
}

// The command's words, a blank between them, and one by one in m_words. Identifier codes may be
// spelled "$end": the third word of a variable is taken as it is.
std::string DeclarationParser::textUntilEnd(bool isVariable) {
    constexpr std::size_t CodeIndex = 2;
    std::string text;
    std::string_view token;
    m_words.clear();
    while (m_tokens.next(token)) {
        const bool isEnd = token == EndKeyword;
        if (isEnd && !(isVariable && m_words.size() == CodeIndex)) return text;
        if (!text.empty()) text += ' ';
        text += token;
        m_words.emplace_back(token);
        if (text.size() > VcdTokenizer::MaxItemBytes) fail("a command is too long");
    }
    fail("the dump ends within a command: $end is missing");
}

void DeclarationParser::parseScope() {
    if (m_words.empty()) fail("a $scope has no name");
    VcdScope scope;
    scope.parent = m_scope;
    scope.kind = m_words.size() > 1 ? m_words.front() : "module";
    for (std::size_t i = m_words.size() > 1 ? 1 : 0; i < m_words.size(); ++i) {
        if (!scope.name.empty()) scope.name += ' ';
        scope.name += m_words[i];
    }
    if (scope.name.front() == '\\' && scope.name.back() != '\\') scope.name.erase(0, 1);
    const std::string key = std::to_string(m_scope) + ' ' + scope.kind + ' ' + scope.name;
    const auto next = static_cast<std::uint32_t>(m_result.scopes.size());
    const auto [entry, isNew] = m_scopesByName.emplace(key, next);
    m_scope = entry->second;
    giveAttributesTo(true, m_scope);
    if (isNew) m_result.scopes.push_back(std::move(scope));
}

void DeclarationParser::parseVariable() {
    constexpr std::size_t LeastWords = 4;
    if (m_words.size() < LeastWords) fail("a $var needs type, width, identifier code and name");
    const VcdValueKind kind = kindOfKeyword(m_words[0]);
    VcdVariable variable;
    variable.scope = m_scope;
    variable.keyword = keywordIndex(m_words[0]);
    variable.width = parseWidth(m_words[1]);
    variable.signal = signalOf(m_words[2], variable.width, kind);
    nameVariable(variable, kind);
    giveAttributesTo(false, m_result.variables.size());
    m_result.variables.push_back(variable);
}

// Ports of extended dumps may give "[7:0]" for 8.
std::uint32_t DeclarationParser::parseWidth(const std::string& text) {
    std::uint64_t width = 0;
    if (!parseInteger(std::string_view(text), width)) {
        const std::optional<Range> range = parseRange(text);
        if (!range) fail("\"" + text + "\" is no width");
        width = static_cast<std::uint64_t>(range->span());
    }
    if (width > MaxVcdWidth) fail("a variable of " + std::to_string(width) + " bits is too wide");
    return static_cast<std::uint32_t>(width);
}

// A trailing "[l:r]" or "[i]", attached or apart, is the range where it fits the width. Otherwise,
// as for elements of arrays, it belongs to the name; so it does when attached to an escaped name.
void DeclarationParser::nameVariable(VcdVariable& variable, VcdValueKind kind) {
    constexpr std::size_t NameIndex = 3;
    std::string name = m_words[NameIndex];
    std::string apart;
    for (std::size_t i = NameIndex + 1; i < m_words.size(); ++i) {
        const bool isRange = !apart.empty() || m_words[i].front() == '[';
        if (!isRange) name += ' ';
        (isRange ? apart : name) += m_words[i];
    }
    const bool isEscaped = name.size() > 1 && name.front() == '\\' && name.back() != '\\';
    if (isEscaped) name.erase(0, 1);
    if (apart.empty() && !isEscaped) {
        const std::size_t bracket = name.rfind('[');
        if (bracket != std::string::npos && bracket != 0) {
            apart = name.substr(bracket);
            name.resize(bracket);
        }
    }
    const std::optional<Range> range = parseRange(apart);
    const bool isVector = kind == VcdValueKind::Vector;
    variable.hasRange = range && (isVector ? range->span() == variable.width : !range->isIndex) &&
                        range->span() <= MaxVcdWidth;
    if (variable.hasRange) {
        variable.left = range->left;
        variable.right = range->right;
        variable.isIndex = range->isIndex;
    } else {
        name += apart;
    }
    variable.nameAt = m_result.names.size();
    variable.nameLength = static_cast<std::uint32_t>(name.size());
    m_result.names += name;
}

std::uint32_t DeclarationParser::signalOf(std::string_view code, std::uint32_t width,
                                          VcdValueKind kind) {
    const auto next = static_cast<std::uint32_t>(m_result.signals.size());
    const std::uint32_t signal = m_result.ids.add(code, next);
    if (signal == next) {
        m_result.signals.push_back({width, kind});
        return signal;
    }
    VcdSignal& known = m_result.signals[signal];
    if (known.width != width) warnOnce("an identifier code is declared with different widths");
    if (known.kind != kind) warnOnce("an identifier code is declared with different types");
    known.width = std::max(known.width, width);
    return signal;
}

std::uint32_t DeclarationParser::keywordIndex(const std::string& keyword) {
    const auto next = static_cast<std::uint32_t>(m_result.keywords.size());
    const auto [entry, isNew] = m_keywordIndexes.emplace(keyword, next);
    if (isNew) m_result.keywords.push_back(keyword);
    return entry->second;
}

void DeclarationParser::giveAttributesTo(bool isOfScope, std::size_t owner) {
    for (std::string& text : m_attributes) {
        m_result.attributes.push_back(
            {isOfScope, static_cast<std::uint32_t>(owner), std::move(text)});
    }
    m_attributes.clear();
}

void DeclarationParser::parseTimeZero() {
    if (m_words.size() != 1 || !parseInteger(std::string_view(m_words[0]), m_result.timeZero)) {
        warnOnce("a $timezero is no number");
    }
}

void DeclarationParser::warnOnce(const std::string& text) {
    const std::vector<std::string>& said = m_result.warnings;
    if (std::find(said.begin(), said.end(), text) == said.end()) m_result.warnings.push_back(text);
}

}  // namespace

VcdDeclarations readVcdDeclarations(VcdTokenizer& tokens) {
    return DeclarationParser(tokens).parse();
}

}  // namespace Korvel

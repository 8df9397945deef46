#pragma once

#include "vcd/VcdIdTable.h"
#include "vcd/VcdText.h"
#include "vcd/VcdTokenizer.h"

#include <charconv>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

namespace Korvel {

/// How the reading of value changes came to its end.
struct VcdOutcome {
    enum Kind { AtEnd, Stopped, Damaged };

    Kind kind = AtEnd;
    std::uint64_t offset = 0;  // behind the last item that was passed on
    std::string reason;        // what is wrong with the item at offset
};

/// What was passed over, for warnings.
struct VcdSkipped {
    std::uint64_t undeclared = 0;  // changes of identifier codes that no variable has
    std::string firstUndeclared;
    std::uint64_t ports = 0;     // changes of ports of extended dumps
    std::uint64_t commands = 0;  // commands that are not known
};

/// Reads a dump's value changes and passes them on to a handler, which has
///
///   bool onTime(long long time)          Time has risen to this (or begins with it). False stops.
///   void onScalar(signal, char digit)    One of the digits that VcdText.h knows.
///   void onVector(signal, digits, classes)
///   void onReal(signal, text)            Text as it stands, also where it is no number.
///   void onText(signal, text)            Not unescaped yet.
///   void onDumping(bool isOn)            $dumpon and $dumpoff.
///   bool onProgress(offset)              Now and then. False stops.
///
/// Changes before the first time belong to time 0. Texts are valid during the call.
///
/// Reading ends before the first item that is damaged: nothing of it has reached the handler then.
/// Two readers of the same bytes make the same calls.
template <class Handler>
class VcdReader {
public:
    /// The window must be empty or at the first value change.
    VcdReader(VcdTokenizer& tokens, const VcdIdTable& ids, Handler& handler)
        : m_tokens(tokens), m_ids(ids), m_handler(handler) {}

    VcdOutcome read();
    const VcdSkipped& skipped() const { return m_skipped; }

private:
    bool moveOn(const char* at);
    const char* readItem(const char* at);
    const char* readTime(const char* at);
    const char* readVector(const char* at);
    const char* readReal(const char* at);
    const char* readText(const char* at);
    const char* readPort(const char* at);
    const char* readCommand(const char* at);
    const char* skipCommand(const char* at);
    std::uint32_t readCode(const char* at, const char*& end);
    const char* skipBlanks(const char* at) const;
    const char* lineWithBlanks(const char* text, const char*& code) const;
    const char* damaged(std::string reason);
    const char* stopped();

    VcdTokenizer& m_tokens;
    const VcdIdTable& m_ids;
    Handler& m_handler;
    const char* m_end = nullptr;  // of the window
    long long m_time = -1;        // -1 = none yet
    bool m_isSkipping = false;    // in a command that began in an earlier window
    bool m_isEnding = false;      // m_outcome is final but for its offset
    VcdOutcome m_outcome;
    VcdSkipped m_skipped;
};

// An item that the window does not hold to its end is read again once more of the dump is there:
// functions return where the item ends, or null for that case and for every end of reading.

template <class Handler>
VcdOutcome VcdReader<Handler>::read() {
    for (;;) {
        const char* at = m_tokens.begin();
        m_end = m_tokens.end();
        while ((at = skipBlanks(at)) != m_end) {
            const char* next = m_isSkipping ? skipCommand(at) : readItem(at);
            if (next == nullptr) break;
            at = next;
        }
        m_outcome.offset = m_tokens.offsetOf(at);
        if (!m_isEnding && !m_handler.onProgress(m_outcome.offset)) stopped();
        if (!m_isEnding && !moveOn(at)) return m_outcome;
        if (m_isEnding) return m_outcome;
    }
}

// Returns false at the end of an undamaged dump.
template <class Handler>
bool VcdReader<Handler>::moveOn(const char* at) {
    try {
        if (m_tokens.refill(at)) return true;
        if (at == m_end && !m_isSkipping) return false;
        damaged(m_isSkipping ? "the dump ends within a command: $end is missing"
                             : "the dump ends within a value change");
    } catch (const VcdError& error) {
        damaged(error.what());
    }
    return true;
}

template <class Handler>
const char* VcdReader<Handler>::skipBlanks(const char* at) const {
    while (at != m_end && isBlank(*at))
        ++at;
    return at;
}

template <class Handler>
const char* VcdReader<Handler>::damaged(std::string reason) {
    m_outcome.kind = VcdOutcome::Damaged;
    m_outcome.reason = std::move(reason);
    m_isEnding = true;
    return nullptr;
}

template <class Handler>
const char* VcdReader<Handler>::stopped() {
    m_outcome.kind = VcdOutcome::Stopped;
    m_isEnding = true;
    return nullptr;
}

// ---- Once per value change
// -----------------------------------------------------------------------

template <class Handler>
const char* VcdReader<Handler>::readItem(const char* at) {
    constexpr std::uint8_t anyDigit = BinaryDigit | UnknownDigit | VhdlDigit;
    if ((digitClass(*at) & anyDigit) != 0) {
        const char* end = nullptr;
        const char* code = isBlank(at[1]) ? skipBlanks(at + 1) : at + 1;
        if (code == m_end) return nullptr;
        const std::uint32_t signal = readCode(code, end);
        if (m_isEnding) return nullptr;
        if (signal != VcdIdTable::None) m_handler.onScalar(signal, *at);
        return end;
    }
    switch (*at) {
        case '#':
            return readTime(at);
        case 'b':
        case 'B':
            return readVector(at);
        case 'r':
        case 'R':
            return readReal(at);
        case 's':
        case 'S':
            return readText(at);
        case 'p':
        case 'P':
            return readPort(at);
        case '$':
            return readCommand(at);
        default:
            return damaged("a value change is expected");
    }
}

// A code that ends with the dump counts only where it cannot be the beginning of a longer one.
template <class Handler>
std::uint32_t VcdReader<Handler>::readCode(const char* at, const char*& end) {
    const std::uint32_t signal = m_ids.find(at, end);
    if (m_tokens.endsUnfinished(end)) {
        const std::string_view code(at, static_cast<std::size_t>(end - at));
        if (signal == VcdIdTable::None || m_ids.isPrefixOfAnother(code)) {
            damaged("the dump ends within a value change");
            return VcdIdTable::None;
        }
    }
    if (signal == VcdIdTable::None && m_skipped.undeclared++ == 0) {
        m_skipped.firstUndeclared.assign(at, end);
    }
    return signal;
}

template <class Handler>
const char* VcdReader<Handler>::readTime(const char* at) {
    const char* end = findBlank(at);
    const char* digits = at + 1;
    long long time = 0;
    const auto [last, error] = std::from_chars(digits, end, time);
    if (error == std::errc::result_out_of_range) return damaged("the time is beyond 2^63 - 1");
    if (error != std::errc{} || last != end || *digits == '-') {
        return damaged("the time is no number");
    }
    if (time < m_time) {
        return damaged(m_tokens.endsUnfinished(end)
                           ? "the dump ends within a time"
                           : "time goes back from " + std::to_string(m_time) + " to " +
                                 std::to_string(time));
    }
    if (time == m_time) return end;
    m_time = time;
    return m_handler.onTime(time) ? end : stopped();
}

template <class Handler>
const char* VcdReader<Handler>::readVector(const char* at) {
    std::uint8_t classes = 0;
    const char* digits = at + 1;
    const char* end = scanDigits(digits, classes);
    const char* code = skipBlanks(end);
    if (code == m_end) return nullptr;
    if ((classes & NoDigit) != 0) return damaged("a vector value has a character that is no digit");
    const char* next = nullptr;
    const std::uint32_t signal = readCode(code, next);
    if (m_isEnding) return nullptr;
    if (signal != VcdIdTable::None) {
        m_handler.onVector(signal, std::string_view(digits, static_cast<std::size_t>(end - digits)),
                           classes);
    }
    return next;
}

// ---- Everything else
// -----------------------------------------------------------------------------

template <class Handler>
const char* VcdReader<Handler>::readReal(const char* at) {
    const char* end = findBlank(at);
    const char* code = skipBlanks(end);
    if (code == m_end) return nullptr;
    const char* next = nullptr;
    const std::uint32_t signal = readCode(code, next);
    if (m_isEnding) return nullptr;
    if (signal != VcdIdTable::None) m_handler.onReal(signal, std::string_view(at + 1, end));
    return next;
}

template <class Handler>
const char* VcdReader<Handler>::readText(const char* at) {
    const char* end = findBlank(at);
    const char* code = skipBlanks(end);
    if (code == m_end) return nullptr;
    const char* next = nullptr;
    if (m_ids.find(code, next) == VcdIdTable::None) {
        const bool isLineThere =
            std::memchr(code, '\n', static_cast<std::size_t>(m_end - code)) != nullptr;
        if (!isLineThere && m_tokens.hasMore()) return nullptr;
        end = lineWithBlanks(end, code);
    }
    const std::uint32_t signal = readCode(code, next);
    if (m_isEnding) return nullptr;
    if (signal != VcdIdTable::None) m_handler.onText(signal, std::string_view(at + 1, end));
    return next;
}

// Some producers write texts with their blanks. If the last token of the line is a code, the text
// is all before it. Returns its end; @p code stays where it is otherwise.
template <class Handler>
const char* VcdReader<Handler>::lineWithBlanks(const char* text, const char*& code) const {
    const auto rest = static_cast<std::size_t>(m_end - text);
    const auto* lineEnd = static_cast<const char*>(std::memchr(text, '\n', rest));
    if (lineEnd == nullptr) return text;
    while (lineEnd != text && isBlank(lineEnd[-1]))
        --lineEnd;
    const char* last = lineEnd;
    while (last != text && !isBlank(last[-1]))
        --last;
    const char* end = nullptr;
    if (last <= code || m_ids.find(last, end) == VcdIdTable::None) return text;
    code = last;
    while (isBlank(last[-1]))
        --last;
    return last;
}

// "pSTATES STRENGTH0 STRENGTH1 CODE".
template <class Handler>
const char* VcdReader<Handler>::readPort(const char* at) {
    constexpr int furtherTokens = 3;
    for (int i = 0; i < furtherTokens; ++i) {
        at = skipBlanks(findBlank(at));
        if (at == m_end) return nullptr;
    }
    ++m_skipped.ports;
    return findBlank(at);
}

template <class Handler>
const char* VcdReader<Handler>::readCommand(const char* at) {
    const char* end = findBlank(at);
    const std::string_view command(at, static_cast<std::size_t>(end - at));
    if (command == "$dumpoff" || command == "$dumpportsoff") {
        m_handler.onDumping(false);
    } else if (command == "$dumpon" || command == "$dumpportson") {
        m_handler.onDumping(true);
    } else if (command != "$end" && command != "$dumpvars" && command != "$dumpall" &&
               command != "$dumpports" && command != "$dumpportsall") {
        if (m_tokens.endsUnfinished(end)) return damaged("the dump ends within a command");
        if (command != "$comment") ++m_skipped.commands;
        m_isSkipping = true;
    }
    return end;
}

// Goes on within a command of which nothing is of interest.
template <class Handler>
const char* VcdReader<Handler>::skipCommand(const char* at) {
    constexpr std::string_view endKeyword = "$end";
    for (; at != m_end; at = skipBlanks(at)) {
        const char* end = findBlank(at);
        const bool isEnd = std::string_view(at, static_cast<std::size_t>(end - at)) == endKeyword;
        at = end;
        if (isEnd) {
            m_isSkipping = false;
            return at;
        }
    }
    return at;
}

}  // namespace Korvel

#include "vcd/VcdTokenizer.h"

#include "vcd/VcdText.h"

#include <algorithm>
#include <cstring>

namespace Korvel {

namespace {

// Bytes kept free on both sides of the window, for reads of eight bytes.
constexpr std::size_t Margin = 16;

}  // namespace

VcdTokenizer::VcdTokenizer(VcdSource& source, std::uint64_t begin, std::uint64_t end,
                           std::size_t chunk)
    : m_source(source),
      m_limit(std::min(end, source.size())),
      m_offset(begin),
      m_buffer(chunk + 2 * Margin),
      m_begin(bufferBegin()),
      m_end(m_begin),
      m_position(m_begin),
      m_tokenOffset(begin) {}

const char* VcdTokenizer::bufferBegin() const {
    return m_buffer.data() + Margin;
}
char* VcdTokenizer::bufferBegin() {
    return m_buffer.data() + Margin;
}

bool VcdTokenizer::refill(const char* keepFrom) {
    if (m_isAtEnd && keepFrom == m_end) return false;
    const auto keptAt = static_cast<std::size_t>(keepFrom - bufferBegin());
    const std::size_t kept = m_size - std::min(m_size, keptAt);
    if (m_isAtEnd) return false;
    if (kept > MaxItemBytes) throw VcdError(offsetOf(keepFrom), "is too long to be a value");

    std::memmove(bufferBegin(), keepFrom, kept);
    m_offset += keptAt;
    m_size = kept;
    do {
        const std::size_t capacity = m_buffer.size() - 2 * Margin;
        if (m_size * 2 > capacity) m_buffer.resize(capacity * 2 + 2 * Margin);
        const std::size_t space = m_buffer.size() - 2 * Margin - m_size;
        const std::uint64_t from = m_offset + m_size;
        const std::uint64_t wanted =
            from < m_limit ? std::min<std::uint64_t>(space, m_limit - from) : 0;
        const std::size_t count =
            wanted == 0 ? 0 : m_source.read(from, bufferBegin() + m_size, wanted);
        m_isAtEnd = count == 0;
        m_size += count;
        if (m_size > 2 * MaxItemBytes) throw VcdError(m_offset, "is too long to be a value");
        findWindowEnd();
    } while (m_end == m_begin && !m_isAtEnd);
    return m_end != m_begin;
}

void VcdTokenizer::findWindowEnd() {
    char* end = bufferBegin() + m_size;
    m_begin = bufferBegin();
    if (m_isAtEnd && m_size != 0 && !isBlank(end[-1])) {
        *end++ = '\n';
        m_addedBlank = end - 1;
    }
    while (end != m_begin && !isBlank(end[-1]))
        --end;
    m_end = end;
}

bool VcdTokenizer::next(std::string_view& token) {
    for (;;) {
        while (m_position != m_end && isBlank(*m_position))
            ++m_position;
        if (m_position != m_end) break;
        const bool hasMore = refill(m_position);
        m_position = hasMore ? m_begin : m_end;
        m_tokenOffset = offset();
        if (!hasMore) return false;
    }
    const char* end = findBlank(m_position);
    token = {m_position, static_cast<std::size_t>(end - m_position)};
    m_tokenOffset = offset();
    m_position = end;
    return true;
}

}  // namespace Korvel

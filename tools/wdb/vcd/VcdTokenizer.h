#pragma once

#include "vcd/VcdSource.h"

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace Korvel {

/// The dump is not as dumps are; the message says what is wrong with what lies at the offset.
class VcdError : public std::runtime_error {
public:
    VcdError(std::uint64_t offset, const std::string& reason)
        : std::runtime_error(reason), m_offset(offset) {}

    std::uint64_t offset() const { return m_offset; }

private:
    std::uint64_t m_offset;  // of the first byte of the item that is wrong
};

/// A window that moves over a dump, and the dump's blank-separated tokens.
///
/// Invariants
///   1. A window that is not empty ends in a blank, so a token that begins in it ends in it. Behind
///      a dump that ends without a blank lies one that is not in the dump.
///   2. 8 bytes before the window and behind it can be read.
///
/// Memory stays at the chunk size, unless one item that is kept by refill() is longer.
class VcdTokenizer {
public:
    static constexpr std::size_t DefaultChunk = 256 * 1024;
    /// Longest item, which is what memory can be claimed for.
    static constexpr std::size_t MaxItemBytes = 32 * 1024 * 1024;

    /// Begins with an empty window at @p begin. What lies at @p end and behind is not seen.
    explicit VcdTokenizer(VcdSource& source, std::uint64_t begin = 0,
                          std::uint64_t end = UINT64_MAX, std::size_t chunk = DefaultChunk);

    const char* begin() const { return m_begin; }
    const char* end() const { return m_end; }

    /// Moves the window on: it then starts with what lay at @p keepFrom and holds more than before.
    /// Returns false, with the window unmoved, when there is no more. Throws VcdError when what
    /// would be kept is too long.
    bool refill(const char* keepFrom);

    /// Whether the dump goes on behind the window.
    bool hasMore() const { return !m_isAtEnd; }

    /// Offset in the dump of a byte in the window; that of the dump's end for an added blank.
    std::uint64_t offsetOf(const char* position) const {
        const auto at = static_cast<std::size_t>(position - bufferBegin());
        return m_offset + (at < m_size ? at : m_size);
    }

    /// Whether the token that ends before @p blank is the dump's last one, with no blank behind it,
    /// so that part of it may be missing.
    bool endsUnfinished(const char* blank) const { return blank == m_addedBlank; }

    /// Next token, valid until the next call. False at the end of the dump.
    bool next(std::string_view& token);
    /// Offset of the token that next() gave last, or of the end.
    std::uint64_t tokenOffset() const { return m_tokenOffset; }
    /// Offset behind that token.
    std::uint64_t offset() const { return offsetOf(m_position); }

private:
    const char* bufferBegin() const;
    char* bufferBegin();
    void findWindowEnd();

    VcdSource& m_source;
    std::uint64_t m_limit;          // offset behind the last byte that is looked at
    std::uint64_t m_offset;         // of the buffer's first byte
    std::vector<char> m_buffer;     // the window between two margins
    std::size_t m_size = 0;         // bytes of the dump in the buffer
    const char* m_begin = nullptr;  // window
    const char* m_end = nullptr;
    const char* m_addedBlank = nullptr;  // blank that is not in the dump, or null
    const char* m_position = nullptr;    // where next() goes on
    std::uint64_t m_tokenOffset = 0;
    bool m_isAtEnd = false;  // the source has given all it has
};

}  // namespace Korvel

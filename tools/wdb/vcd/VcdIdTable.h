#pragma once

#include "vcd/VcdText.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace Korvel {

/// Finds the signal of an identifier code.
///
/// Three ways, fastest first, of which build() chooses one for the short codes. Codes of up to four
/// printable characters that are dense, as most simulators hand them out, are read as numbers of
/// base 94 (first character lowest) and index a table. Other codes of up to seven bytes go through
/// a hash table keyed by the bytes themselves. Longer ones, which nobody writes, go through a map
/// of strings.
class VcdIdTable {
public:
    static constexpr std::uint32_t None = 0xFFFFFFFFU;

    /// Adds a code of at least one byte, none of them a blank. Returns its signal, @p signal if the
    /// code is new.
    std::uint32_t add(std::string_view code, std::uint32_t signal);

    /// Chooses the way for short codes. To be called once, after the last add().
    void build();

    /// Signal of the code that begins at @p text and ends before the next blank, or None; @p end
    /// becomes that blank. 8 bytes from the code's last one on can be read.
    std::uint32_t find(const char* text, const char*& end) const {
        const std::uint64_t bytes = loadBytes(text);
        const std::uint64_t marks = blankMarks(bytes);
        if (marks == 0) return findLong(text, end);
        const unsigned int bits = static_cast<unsigned int>(__builtin_ctzll(marks)) & ~7U;
        end = text + bits / 8;
        const std::uint64_t key = bytes & ~(~std::uint64_t{0} << bits);
        if (m_direct.empty()) return findHashed(key);
        if (bits > 8 * MaxDirectLength || !isPrintable(key, bits)) return None;
        const std::uint64_t number = numberOf(key, bits);
        return number < m_direct.size() ? m_direct[number] : None;
    }

    /// Whether another code begins with all of @p code.
    bool isPrefixOfAnother(std::string_view code) const;

private:
    static constexpr unsigned int MaxDirectLength = 4;
    static constexpr unsigned int Base = 94;

    struct Entry {
        std::uint64_t key = 0;  // code, first character lowest; 0 = free
        std::uint32_t signal = None;
    };

    // Not for codes with DEL or bytes of 128 and more, which would be taken for others.
    static bool isPrintable(std::uint64_t key, unsigned int bits) {
        const std::uint64_t ones = EachByte & ~(~std::uint64_t{0} << bits);
        return (((key + ones) | key) & (EachByte * 0x80)) == 0;
    }

    static std::uint64_t numberOf(std::uint64_t key, unsigned int bits) {
        const std::uint64_t digits = key - (EachByte * ' ' & ~(~std::uint64_t{0} << bits));
        return (digits & 0xFF) + (digits >> 8 & 0xFF) * Base + (digits >> 16 & 0xFF) * Base * Base +
               (digits >> 24 & 0xFF) * Base * Base * Base;
    }

    static std::string codeOfNumber(std::uint64_t number);

    std::uint32_t findHashed(std::uint64_t key) const {
        if (m_hashed.empty()) return None;
        for (std::size_t at = (key * HashFactor) >> m_hashShift;; ++at) {
            const Entry& entry = m_hashed[at & (m_hashed.size() - 1)];
            if (entry.key == key) return entry.signal;
            if (entry.key == 0) return None;
        }
    }

    static constexpr std::uint64_t HashFactor = 0x9E3779B97F4A7C15U;  // 2^64 / golden ratio, odd

    std::uint32_t findLong(const char* text, const char*& end) const;
    Entry& placeOf(std::uint64_t key);
    void grow();

    std::vector<Entry> m_hashed;  // power of two entries, at most half of them used
    unsigned int m_hashShift = 0;
    std::size_t m_hashedCount = 0;
    std::vector<std::uint32_t> m_direct;  // by number; empty = not used, else m_hashed is empty
    std::unordered_map<std::string, std::uint32_t> m_long;  // eight bytes and more
};

}  // namespace Korvel

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Korvel {

// Each distinct text once, numbered in the order of first use. Text 0 is the empty one.
//
// The texts lie back to back in one run of bytes and the hash table holds numbers only: a design
// of a million signals has a million names, and a node apiece would cost more than the names.
class StringPool {
public:
    StringPool();

    // The number of a text, which is added if it is new.
    std::uint32_t intern(std::string_view text);

    std::string_view text(std::uint32_t id) const;

    const std::string& bytes() const { return m_bytes; }
    // Text i ends before byte ends()[i].
    const std::vector<std::uint32_t>& ends() const { return m_ends; }

private:
    void rehash(std::size_t slotCount);

    std::string m_bytes;
    std::vector<std::uint32_t> m_ends;
    std::vector<std::uint32_t> m_hashes;  // one a text, low 32 bits
    std::vector<std::uint32_t> m_slots;   // text number + 1, 0 = free; power of two, half free
};

}  // namespace Korvel

#include "vcd/VcdIdTable.h"

#include <algorithm>
#include <cstring>

namespace Korvel {

namespace {

constexpr std::size_t MaxKeyLength = 7;

// A table may have this many places a code, and always as many as two-character codes need.
constexpr std::size_t PlacesPerCode = 16;
constexpr std::size_t LeastPlaces = 94 * 95 + 1;

constexpr std::size_t LeastEntries = 16;

std::uint64_t keyOf(std::string_view code) {
    std::uint64_t key = 0;
    std::memcpy(&key, code.data(), code.size());
    return key;
}

std::string_view codeOf(const std::uint64_t& key) {
    const auto* bytes = reinterpret_cast<const char*>(&key);
    return {bytes, strnlen(bytes, sizeof key)};
}

}  // namespace

std::uint32_t VcdIdTable::add(std::string_view code, std::uint32_t signal) {
    if (code.size() > MaxKeyLength) return m_long.emplace(code, signal).first->second;
    if (2 * m_hashedCount >= m_hashed.size()) grow();
    const std::uint64_t key = keyOf(code);
    Entry& entry = placeOf(key);
    if (entry.key == 0) {
        entry = {key, signal};
        ++m_hashedCount;
    }
    return entry.signal;
}

// The entry of the key, or the free one where it belongs.
VcdIdTable::Entry& VcdIdTable::placeOf(std::uint64_t key) {
    std::size_t at = (key * HashFactor) >> m_hashShift;
    while (m_hashed[at].key != 0 && m_hashed[at].key != key)
        at = (at + 1) & (m_hashed.size() - 1);
    return m_hashed[at];
}

void VcdIdTable::grow() {
    std::vector<Entry> old(std::max(LeastEntries, 2 * m_hashed.size()));
    old.swap(m_hashed);
    m_hashShift = 64 - static_cast<unsigned int>(__builtin_ctzll(m_hashed.size()));
    for (const Entry& entry : old) {
        if (entry.key != 0) placeOf(entry.key) = entry;
    }
}

void VcdIdTable::build() {
    std::uint64_t last = 0;
    for (const Entry& entry : m_hashed) {
        const std::size_t length = codeOf(entry.key).size();
        const auto bits = static_cast<unsigned int>(8 * length);
        if (length > MaxDirectLength || !isPrintable(entry.key, bits)) return;
        last = std::max(last, numberOf(entry.key, bits));
    }
    if (last == 0 || last >= std::max(LeastPlaces, PlacesPerCode * m_hashedCount)) return;
    m_direct.assign(last + 1, None);
    for (const Entry& entry : m_hashed) {
        const auto bits = static_cast<unsigned int>(8 * codeOf(entry.key).size());
        if (entry.key != 0) m_direct[numberOf(entry.key, bits)] = entry.signal;
    }
    m_hashed = {};
}

std::uint32_t VcdIdTable::findLong(const char* text, const char*& end) const {
    end = findBlank(text);
    const auto found = m_long.find(std::string(text, end));
    return found == m_long.end() ? None : found->second;
}

bool VcdIdTable::isPrefixOfAnother(std::string_view code) const {
    const auto continues = [code](std::string_view other) {
        return other.size() > code.size() && other.substr(0, code.size()) == code;
    };
    for (std::size_t number = 1; number < m_direct.size(); ++number) {
        if (m_direct[number] != None && continues(codeOfNumber(number))) return true;
    }
    return std::any_of(m_hashed.begin(), m_hashed.end(),
                       [&](const Entry& entry) { return continues(codeOf(entry.key)); }) ||
           std::any_of(m_long.begin(), m_long.end(),
                       [&](const auto& entry) { return continues(entry.first); });
}

// The reverse of numberOf(): base 94 without a zero, digits 1 to 94.
std::string VcdIdTable::codeOfNumber(std::uint64_t number) {
    std::string code;
    for (; number != 0; number = (number - 1) / Base) {
        code += static_cast<char>('!' + (number - 1) % Base);
    }
    return code;
}

}  // namespace Korvel

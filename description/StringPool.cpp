#include "description/StringPool.h"

#include <functional>

namespace Korvel {

StringPool::StringPool() {
    constexpr std::size_t FirstSlotCount = 64;
    rehash(FirstSlotCount);
    intern({});
}

std::uint32_t StringPool::intern(std::string_view added) {
    const auto hash = static_cast<std::uint32_t>(std::hash<std::string_view>{}(added));
    const std::size_t mask = m_slots.size() - 1;
    std::size_t slot = hash & mask;
    for (; m_slots[slot] != 0; slot = (slot + 1) & mask) {
        const std::uint32_t id = m_slots[slot] - 1;
        if (m_hashes[id] == hash && text(id) == added) return id;
    }
    const auto id = static_cast<std::uint32_t>(m_ends.size());
    m_bytes.append(added);
    m_ends.push_back(static_cast<std::uint32_t>(m_bytes.size()));
    m_hashes.push_back(hash);
    m_slots[slot] = id + 1;
    if (m_ends.size() * 2 > m_slots.size()) rehash(m_slots.size() * 2);
    return id;
}

std::string_view StringPool::text(std::uint32_t id) const {
    const std::uint32_t begin = id == 0 ? 0 : m_ends[id - 1];
    return std::string_view(m_bytes).substr(begin, m_ends[id] - begin);
}

void StringPool::rehash(std::size_t slotCount) {
    m_slots.assign(slotCount, 0);
    const std::size_t mask = slotCount - 1;
    for (std::uint32_t id = 0; id < m_hashes.size(); ++id) {
        std::size_t slot = m_hashes[id] & mask;
        while (m_slots[slot] != 0)
            slot = (slot + 1) & mask;
        m_slots[slot] = id + 1;
    }
}

}  // namespace Korvel

#include "readers/WdbStringCache.h"

namespace Korvel {

const std::string* WdbStringCache::find(long long id) {
    const auto entry = m_entries.find(id);
    if (entry == m_entries.end()) return nullptr;
    m_recency.splice(m_recency.end(), m_recency, entry->second.position);
    return &entry->second.text;
}

void WdbStringCache::add(long long id, const std::string& text) {
    if (m_entries.size() >= Capacity) {
        m_entries.erase(m_recency.front());
        m_recency.pop_front();
    }
    m_recency.push_back(id);
    m_entries[id] = {text, std::prev(m_recency.end())};
}

void WdbStringCache::clear() {
    m_entries.clear();
    m_recency.clear();
}

}  // namespace Korvel

#include "container/WdbLRUFileBlockCache.h"

#include <cstring>
#include <utility>

namespace Korvel {
namespace {

const char WriteBackFailed[] =
    "WDB FATAL ERROR: failed to write LRU file block cache for the following reason: ";

}  // namespace

WdbLRUFileBlockCache::WdbLRUFileBlockCache(std::fstream& stream, std::size_t capacity)
    : m_pStream(&stream), m_capacity(capacity) {}

WdbLRUFileBlockCache::~WdbLRUFileBlockCache() {
    for (Items::value_type& item : m_items)
        writeBack(item);
}

void WdbLRUFileBlockCache::add(long long handle, void* data, unsigned long long size, bool dirty) {
    WdbBlockCopy copy(static_cast<char*>(data));
    const auto cached = m_items.find(handle);
    if (cached != m_items.end()) {
        markMostRecent(cached);
        return;
    }
    if (m_items.size() >= m_capacity) evictOldest();
    const auto position = m_recency.insert(m_recency.end(), handle);
    m_items.emplace(handle, LRUDataItem{std::move(copy), size, dirty, position});
}

void WdbLRUFileBlockCache::saveCacheLRUItem(const Items::value_type& item) {
    orFatal(WriteBackFailed, [&] {
        writeToStream(*m_pStream, item.first, item.second.data.get(), item.second.size);
    });
}

bool WdbLRUFileBlockCache::read(long long handle, char* buffer, unsigned long long size) {
    const auto cached = m_items.find(handle);
    if (cached == m_items.end()) return false;
    if (size > cached->second.size) {
        writeBack(*cached);
        return false;
    }
    markMostRecent(cached);
    std::memcpy(buffer, cached->second.data.get(), size);
    return true;
}

bool WdbLRUFileBlockCache::replace(long long handle, const char* data, unsigned long long size) {
    const auto cached = m_items.find(handle);
    if (cached == m_items.end()) return false;
    LRUDataItem& item = cached->second;
    // The bytes of a longer copy behind the new ones exist nowhere else yet.
    if (size < item.size) writeBack(*cached);
    item.data = copyBlock(data, size);
    item.size = size;
    item.dirty = true;
    markMostRecent(cached);
    return true;
}

void WdbLRUFileBlockCache::markMostRecent(Items::iterator item) {
    m_recency.splice(m_recency.end(), m_recency, item->second.position);
}

void WdbLRUFileBlockCache::evictOldest() {
    if (m_recency.empty()) return;
    const auto oldest = m_items.find(m_recency.front());
    writeBack(*oldest);
    m_items.erase(oldest);
    m_recency.pop_front();
}

void WdbLRUFileBlockCache::writeBack(Items::value_type& item) {
    if (!item.second.dirty) return;
    saveCacheLRUItem(item);
    item.second.dirty = false;
}

}  // namespace Korvel

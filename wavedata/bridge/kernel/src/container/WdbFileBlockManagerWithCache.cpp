#include "container/WdbFileBlockManagerWithCache.h"

#include <cstring>
#include <utility>

namespace Korvel {
namespace {

const char AddBlockFailed[] =
    "WDB FATAL ERROR: failed to add file block (WdbFileBlockManagerWithCache) for the following "
    "reason: ";
const char GetBlockFailed[] =
    "WDB FATAL ERROR: failed to get file block (WdbFileBlockManagerWithCache) for the following "
    "reason: ";
const char PutBlockFailed[] =
    "WDB FATAL ERROR: failed to put file block (WdbFileBlockManagerWithCache) for the following "
    "reason: ";

}  // namespace

WdbFileBlockManagerWithCache::WdbFileBlockManagerWithCache(std::fstream& stream,
                                                           std::size_t capacity)
    : m_pStream(&stream), m_capacity(capacity) {
    m_pStream->exceptions(std::ios::badbit | std::ios::failbit);
}

long long WdbFileBlockManagerWithCache::addBlock(const char* data, unsigned long long size) {
    return orFatal(AddBlockFailed, [&] { return appendToStream(*m_pStream, data, size); });
}

void WdbFileBlockManagerWithCache::getBlock(long long handle, char* buffer,
                                            unsigned long long size) const {
    const auto cached = m_cache.find(handle);
    if (cached != m_cache.end() && size <= cached->second.size) {
        m_recency.splice(m_recency.end(), m_recency, cached->second.position);
        std::memcpy(buffer, cached->second.data.get(), size);
        return;
    }
    WdbBlockCopy copy = copyBlock(nullptr, size);
    orFatal(GetBlockFailed, [&] { readFromStream(*m_pStream, handle, copy.get(), size); });
    std::memcpy(buffer, copy.get(), size);
    keep(handle, std::move(copy), size);
}

void WdbFileBlockManagerWithCache::putBlock(long long handle, const char* data,
                                            unsigned long long size) {
    orFatal(PutBlockFailed, [&] { writeToStream(*m_pStream, handle, data, size); });
    if (m_cache.count(handle) != 0) keep(handle, copyBlock(data, size), size);
}

void WdbFileBlockManagerWithCache::freeBlock(long long handle, unsigned long long size) {
    m_freeExtents.emplace(size, handle);
}

bool WdbFileBlockManagerWithCache::mayFollow(long long handle, unsigned long long size) const {
    return orFatal(GetBlockFailed,
                   [&] { return isBlockInFile(handle, size, streamSize(*m_pStream)); });
}

// Makes the copy the most recently used one, in place of an older copy of the same block.
void WdbFileBlockManagerWithCache::keep(long long handle, WdbBlockCopy data,
                                        unsigned long long size) const {
    const auto cached = m_cache.find(handle);
    if (cached != m_cache.end()) {
        m_recency.splice(m_recency.end(), m_recency, cached->second.position);
        cached->second.data = std::move(data);
        cached->second.size = size;
        return;
    }
    if (m_cache.size() >= m_capacity) evictOldest();
    const auto position = m_recency.insert(m_recency.end(), handle);
    m_cache.emplace(handle, CachedBlock{std::move(data), size, position});
}

void WdbFileBlockManagerWithCache::evictOldest() const {
    if (m_recency.empty()) return;
    m_cache.erase(m_recency.front());
    m_recency.pop_front();
}

}  // namespace Korvel

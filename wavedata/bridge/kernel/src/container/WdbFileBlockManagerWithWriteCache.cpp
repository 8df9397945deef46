#include "container/WdbFileBlockManagerWithWriteCache.h"

#include <cstring>

namespace Korvel {
namespace {

const char AddBlockFailed[] =
    "WDB FATAL ERROR: failed to add file block (WdbFileBlockManagerWithWriteCache) for the "
    "following reason: ";
const char GetBlockFailed[] =
    "WDB FATAL ERROR: failed to get file block (WdbFileBlockManagerWithWriteCache) for the "
    "following reason: ";

}  // namespace

WdbFileBlockManagerWithWriteCache::WdbFileBlockManagerWithWriteCache(std::fstream& stream,
                                                                     std::size_t capacity)
    : m_pStream(&stream), m_cache(stream, capacity) {
    m_pStream->exceptions(std::ios::badbit | std::ios::failbit);
}

long long WdbFileBlockManagerWithWriteCache::addBlock(const char* data, unsigned long long size) {
    // The block gets its place in the file at once, so that its handle never changes.
    const long long handle =
        orFatal(AddBlockFailed, [&] { return appendToStream(*m_pStream, data, size); });
    m_cache.add(handle, copyBlock(data, size).release(), size, /*dirty=*/false);
    return handle;
}

void WdbFileBlockManagerWithWriteCache::getBlock(long long handle, char* buffer,
                                                 unsigned long long size) const {
    if (m_cache.read(handle, buffer, size)) return;
    WdbBlockCopy copy = copyBlock(nullptr, size);
    orFatal(GetBlockFailed, [&] { readFromStream(*m_pStream, handle, copy.get(), size); });
    std::memcpy(buffer, copy.get(), size);
    m_cache.add(handle, copy.release(), size, /*dirty=*/false);
}

void WdbFileBlockManagerWithWriteCache::putBlock(long long handle, const char* data,
                                                 unsigned long long size) {
    if (m_cache.replace(handle, data, size)) return;
    m_cache.add(handle, copyBlock(data, size).release(), size, /*dirty=*/true);
}

void WdbFileBlockManagerWithWriteCache::freeBlock(long long handle, unsigned long long size) {
    m_freeExtents.emplace(size, handle);
}

bool WdbFileBlockManagerWithWriteCache::mayFollow(long long handle, unsigned long long size) const {
    return orFatal(GetBlockFailed,
                   [&] { return isBlockInFile(handle, size, streamSize(*m_pStream)); });
}

}  // namespace Korvel

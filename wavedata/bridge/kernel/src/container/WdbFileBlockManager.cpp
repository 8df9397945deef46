#include "container/WdbFileBlockManager.h"

namespace Korvel {

const char FileAddBlockFailed[] =
    "WDB FATAL ERROR: failed to add file block (WdbFileBlockManager) for the following reason: ";
const char FileGetBlockFailed[] =
    "WDB FATAL ERROR: failed to get file block (WdbFileBlockManager) for the following reason: ";
const char FilePutBlockFailed[] =
    "WDB FATAL ERROR: failed to put file block (WdbFileBlockManager) for the following reason: ";

using Lock = boost::unique_lock<boost::recursive_mutex>;

WdbFileBlockManager::WdbFileBlockManager(std::fstream& stream) : m_pStream(&stream) {}

long long WdbFileBlockManager::addBlock(const char* data, unsigned long long size) {
    const Lock lock(m_mutex);
    return orFatal(FileAddBlockFailed, [&] { return appendToStream(*m_pStream, data, size); });
}

void WdbFileBlockManager::getBlock(long long handle, char* buffer, unsigned long long size) const {
    const Lock lock(m_mutex);
    orFatal(FileGetBlockFailed, [&] { readFromStream(*m_pStream, handle, buffer, size); });
}

void WdbFileBlockManager::putBlock(long long handle, const char* data, unsigned long long size) {
    const Lock lock(m_mutex);
    orFatal(FilePutBlockFailed, [&] { writeToStream(*m_pStream, handle, data, size); });
}

void WdbFileBlockManager::freeBlock(long long handle, unsigned long long size) {
    const Lock lock(m_mutex);
    m_freeExtents.emplace(size, handle);
}

bool WdbFileBlockManager::mayFollow(long long handle, unsigned long long size) const {
    const Lock lock(m_mutex);
    if (isBlockInFile(handle, size, m_knownSize)) return true;
    // Another process may have appended since; a refusal costs a look at the file each time.
    m_knownSize = orFatal(FileGetBlockFailed, [&] { return streamSize(*m_pStream); });
    return isBlockInFile(handle, size, m_knownSize);
}

void WdbFileBlockManager::flushStream() {
    const Lock lock(m_mutex);
    orFatal(FilePutBlockFailed, [&] { m_pStream->flush(); });
}

void WdbFileBlockManager::forgetSize() {
    const Lock lock(m_mutex);
    m_knownSize = 0;
}

}  // namespace Korvel

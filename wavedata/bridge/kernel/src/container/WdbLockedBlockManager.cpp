#include "container/WdbLockedBlockManager.h"

#include "container/WdbFileBlockManager.h"

namespace Korvel {

using Lock = boost::unique_lock<boost::recursive_mutex>;

long long WdbLockedBlockManager::addBlock(const char* data, unsigned long long size) {
    const Lock lock(m_pFile->getMutex());
    return m_pStore->addBlock(data, size);
}

void WdbLockedBlockManager::getBlock(long long handle, char* buffer,
                                     unsigned long long size) const {
    const Lock lock(m_pFile->getMutex());
    m_pStore->getBlock(handle, buffer, size);
}

void WdbLockedBlockManager::putBlock(long long handle, const char* data, unsigned long long size) {
    const Lock lock(m_pFile->getMutex());
    m_pStore->putBlock(handle, data, size);
}

void WdbLockedBlockManager::freeBlock(long long handle, unsigned long long size) {
    const Lock lock(m_pFile->getMutex());
    m_pStore->freeBlock(handle, size);
}

// The file's own store knows without a look at the file as long as it does not have to grow.
bool WdbLockedBlockManager::mayFollow(long long handle, unsigned long long size) const {
    return m_pFile->mayFollow(handle, size);
}

}  // namespace Korvel

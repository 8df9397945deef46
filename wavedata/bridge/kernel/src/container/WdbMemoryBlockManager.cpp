#include "container/WdbMemoryBlockManager.h"

#include <cstdint>
#include <cstring>

#include "container/WdbBlockStream.h"

namespace Korvel {
namespace {

char* memoryOf(long long handle) {
    return reinterpret_cast<char*>(static_cast<std::uintptr_t>(handle));
}

using Lock = boost::unique_lock<boost::recursive_mutex>;

}  // namespace

long long WdbMemoryBlockManager::addBlock(const char* data, unsigned long long size) {
    const Lock lock(m_mutex);
    return static_cast<long long>(
        reinterpret_cast<std::uintptr_t>(copyBlock(data, size).release()));
}

void WdbMemoryBlockManager::getBlock(long long handle, char* buffer,
                                     unsigned long long size) const {
    const Lock lock(m_mutex);
    std::memcpy(buffer, memoryOf(handle), size);
}

void WdbMemoryBlockManager::putBlock(long long handle, const char* data, unsigned long long size) {
    const Lock lock(m_mutex);
    std::memcpy(memoryOf(handle), data, size);
}

void WdbMemoryBlockManager::freeBlock(long long handle, unsigned long long) {
    const Lock lock(m_mutex);
    std::free(memoryOf(handle));
}

}  // namespace Korvel

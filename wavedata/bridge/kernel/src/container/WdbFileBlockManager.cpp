#include "container/WdbFileBlockManager.h"

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

namespace Korvel {

const char FileAddBlockFailed[] =
    "WDB FATAL ERROR: failed to add file block (WdbFileBlockManager) for the following reason: ";
const char FileGetBlockFailed[] =
    "WDB FATAL ERROR: failed to get file block (WdbFileBlockManager) for the following reason: ";
const char FilePutBlockFailed[] =
    "WDB FATAL ERROR: failed to put file block (WdbFileBlockManager) for the following reason: ";

using Lock = boost::unique_lock<boost::recursive_mutex>;

namespace {

// Whether all bytes could be read.
bool readWhole(int file, long long offset, char* buffer, unsigned long long size) {
    while (size > 0) {
        const ssize_t part = ::pread(file, buffer, size, offset);
        if (part == 0 || (part < 0 && errno != EINTR)) return false;
        if (part < 0) continue;
        buffer += part;
        offset += part;
        size -= static_cast<unsigned long long>(part);
    }
    return true;
}

}  // namespace

WdbFileBlockManager::WdbFileBlockManager(std::fstream& stream) : m_pStream(&stream) {}

WdbFileBlockManager::~WdbFileBlockManager() {
    if (m_beside >= 0) ::close(m_beside);
}

long long WdbFileBlockManager::addBlock(const char* data, unsigned long long size) {
    const Lock lock(m_mutex);
    return orFatal(FileAddBlockFailed, [&] { return appendToStream(*m_pStream, data, size); });
}

void WdbFileBlockManager::getBlock(long long handle, char* buffer, unsigned long long size) const {
    if (m_beside >= 0) {
        if (!readWhole(m_beside, handle, buffer, size)) wdbFatalError(FileGetBlockFailed);
        return;
    }
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
    if (isBlockInFile(handle, size, m_knownSize)) return true;
    // Another process may have appended since; a refusal costs a look at the file each time.
    const Lock lock(m_mutex);
    m_knownSize = orFatal(FileGetBlockFailed, [&] { return streamSize(*m_pStream); });
    return isBlockInFile(handle, size, m_knownSize);
}

void WdbFileBlockManager::flushStream() {
    const Lock lock(m_mutex);
    orFatal(FilePutBlockFailed, [&] { m_pStream->flush(); });
}

void WdbFileBlockManager::readBeside(const std::string& path) {
    const Lock lock(m_mutex);
    // Where this fails, the stream goes on reading.
    m_beside = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
}

void WdbFileBlockManager::forgetFile() {
    const Lock lock(m_mutex);
    if (m_beside >= 0) ::close(m_beside);
    m_beside = -1;
    m_knownSize = 0;
}

}  // namespace Korvel

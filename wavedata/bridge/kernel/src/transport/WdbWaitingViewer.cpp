#include "transport/WdbWaitingViewer.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace Korvel {
namespace {

int openDirectory(const std::string& directory) {
    return ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

}  // namespace

WdbWaitingViewer::WdbWaitingViewer(const std::string& directory)
    : m_directory(openDirectory(directory)) {
    // May be refused while a simulator looks, or for as long as somebody else uses the lock; then
    // the viewer is not seen.
    if (m_directory >= 0) ::flock(m_directory, LOCK_SH | LOCK_NB);
}

WdbWaitingViewer::~WdbWaitingViewer() {
    if (m_directory >= 0) ::close(m_directory);
}

bool WdbWaitingViewer::isThere(const std::string& directory) {
    const int file = openDirectory(directory);
    if (file < 0) return false;
    const bool isLocked = ::flock(file, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    ::close(file);
    return isLocked;
}

}  // namespace Korvel

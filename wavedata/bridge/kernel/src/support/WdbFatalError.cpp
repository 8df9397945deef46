#include "support/WdbFatalError.h"

#include <cerrno>
#include <cstring>

#include <unistd.h>

namespace Korvel {

void wdbFatalError(const std::string& textBeforeReason) {
    const std::string line = textBeforeReason + std::strerror(errno) + '\n';
    // One system call, so that the line stays whole among the lines of other threads. Where even
    // that fails nothing is left to tell anybody.
    const ssize_t written = ::write(STDERR_FILENO, line.data(), line.size());
    static_cast<void>(written);
    ::_exit(1);
}

}  // namespace Korvel

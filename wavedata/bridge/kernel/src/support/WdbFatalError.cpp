#include "support/WdbFatalError.h"

#include <cerrno>
#include <cstring>
#include <iterator>

#include <sys/uio.h>
#include <unistd.h>

namespace Korvel {

void wdbFatalError(const char* textBeforeReason) {
    const auto part = [](const char* text) {
        return iovec{const_cast<char*>(text), std::strlen(text)};
    };
    const iovec line[] = {part(textBeforeReason), part(std::strerror(errno)), part("\n")};
    // One system call, so that the line stays whole among the lines of other threads. Where even
    // that fails nothing is left to tell anybody.
    const ssize_t written = ::writev(STDERR_FILENO, line, std::size(line));
    static_cast<void>(written);
    ::_exit(1);
}

}  // namespace Korvel

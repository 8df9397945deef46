#include "support/WdbErrorPrint.h"

#include <cerrno>
#include <cstring>
#include <iterator>

#include <sys/uio.h>
#include <unistd.h>

namespace Korvel {
namespace {

void printLine(const char* text, const char* separator) {
    const auto part = [](const char* bytes) {
        return iovec{const_cast<char*>(bytes), std::strlen(bytes)};
    };
    const iovec line[] = {part(text), part(separator), part(std::strerror(errno)), part("\n")};
    // Where even this fails nothing is left to tell anybody.
    const ssize_t written = ::writev(STDERR_FILENO, line, std::size(line));
    static_cast<void>(written);
}

}  // namespace

void wdbErrorPrint(const char* text) {
    printLine(text, ": ");
}

void wdbErrorPrintWithoutColon(const char* textBeforeReason) {
    printLine(textBeforeReason, "");
}

void wdbTellOnce(bool& hasTold, std::string line) {
    if (hasTold) return;
    hasTold = true;
    line += '\n';
    const ssize_t written = ::write(STDERR_FILENO, line.data(), line.size());
    static_cast<void>(written);
}

}  // namespace Korvel

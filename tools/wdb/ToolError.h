#pragma once

#include <cerrno>
#include <stdexcept>
#include <string>
#include <system_error>

namespace Korvel {

// How a verb ends otherwise than well. main() turns these into a line and an exit status.

/// Ends the tool with "wdb: FILE: REASON" on standard error and exit status 1.
class ToolError : public std::runtime_error {
public:
    ToolError(const std::string& file, const std::string& reason)
        : std::runtime_error(file + ": " + reason) {}

    /// The reason is what was tried, followed by the system's text for the current errno.
    static ToolError fromErrno(const std::string& file, const std::string& operation) {
        return {file, operation + ": " + std::generic_category().message(errno)};
    }
};

/// Ends the tool with this exit status; everything has been said already.
struct ToolExit {
    int status = 0;
};

constexpr int ExitFailure = 1;
constexpr int ExitWrongUsage = 2;
constexpr int ExitInterrupted = 130;  // 128 + SIGINT, as shells count it
constexpr int ExitBrokenPipe = 141;   // 128 + SIGPIPE

}  // namespace Korvel

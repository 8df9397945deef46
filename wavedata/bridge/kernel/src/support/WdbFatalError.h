#pragma once

#include <string>

namespace Korvel {

/// Ends the process because the recording cannot go on: writes @p textBeforeReason, the system's
/// text for the current error number and an end of line to standard error, then leaves with exit
/// status 1 without running exit handlers or destructors, which would touch the broken file again.
///
/// Alone in its object file, so that a program that must survive (a fuzz target) can link another.
[[noreturn]] void wdbFatalError(const std::string& textBeforeReason);

}  // namespace Korvel

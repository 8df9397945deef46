#pragma once

namespace Korvel {

/// Ends the process because the recording cannot go on: writes @p textBeforeReason, the system's
/// text for the current error number and an end of line to standard error, then leaves with exit
/// status 1 without running exit handlers or destructors, which would touch the broken file again.
/// Allocates nothing: memory may be what has run out.
///
/// Alone in its object file, so that a program that must survive (a fuzz target) can link another.
[[noreturn]] void wdbFatalError(const char* textBeforeReason);

}  // namespace Korvel

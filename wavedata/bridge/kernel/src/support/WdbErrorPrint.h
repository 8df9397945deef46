#pragma once

#include <string>

namespace Korvel {

/// Writes one line to standard error: @p text, a colon, and the system's text for the current error
/// number. One system call, so that the line stays whole among those of other threads and
/// processes. Allocates nothing.
void wdbErrorPrint(const char* text);

/// The same for a text that leads to the reason in its own words: nothing is put between the two.
void wdbErrorPrintWithoutColon(const char* textBeforeReason);

/// Writes @p line, which gets its end here, to standard error unless @p hasTold says that it was
/// told before, and notes that it was.
void wdbTellOnce(bool& hasTold, std::string line);

}  // namespace Korvel

#pragma once

#include <string>

namespace Korvel {

/// Throws Veld::OpenException with the component and the revision that all our exceptions carry.
///
/// @param sourceFile  The throwing class's source, named as releases name it, without extension.
[[noreturn]] void throwOpenException(const char* sourceFile, int line, const std::string& message);

}  // namespace Korvel

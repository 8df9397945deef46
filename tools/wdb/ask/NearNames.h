#pragma once

#include "description/DesignDescription.h"

#include <string>
#include <string_view>
#include <vector>

namespace Korvel {

/// Full names of objects that somebody who wrote @p name may have meant, the nearest first, at most
/// three: those that end with it, differ in few letters, or have the same last part.
std::vector<std::string> findNearNames(const DesignDescription& description, std::string_view name);

}  // namespace Korvel

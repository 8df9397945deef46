#pragma once

#include "description/DesignDescription.h"

#include <string>
#include <string_view>
#include <vector>

namespace Korvel {

/// Whether a whole text matches a pattern in which "*" stands for any characters, dots included,
/// and "?" for one. Brackets mean themselves, because names have them.
bool matchesGlob(std::string_view pattern, std::string_view text);

/// Objects, in the order of declaration, whose full name with or without range one of the patterns
/// names or matches. No pattern at all means all objects.
///
/// @param[out] unmatched  The first pattern that nothing matches; empty otherwise.
std::vector<ObjectId> selectObjects(const DesignDescription& description,
                                    const std::vector<std::string>& patterns,
                                    std::string& unmatched);

}  // namespace Korvel

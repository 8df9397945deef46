#pragma once

#include "description/DescriptionVocabulary.h"
#include "import/RecordingLayout.h"
#include "vcd/VcdDeclarations.h"

#include <cstdint>
#include <vector>

namespace Korvel {

/// The design description of what a dump declares, recorded as @p layout says.
/// Throws what DesignDescriptionWriter throws.
std::vector<std::uint8_t> describeImport(const VcdDeclarations& declarations,
                                         const RecordingLayout& layout, TimeUnit timeUnit,
                                         const std::vector<Blackout>& blackouts);

}  // namespace Korvel

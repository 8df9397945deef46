#pragma once

#include "description/DescriptionVocabulary.h"
#include "import/RecordingLayout.h"
#include "vcd/VcdDeclarations.h"

#include <cstdint>
#include <vector>

namespace Korvel {

/// The design description of what a dump declares, recorded as @p layout says.
/// Takes scopes and variables out of @p declarations: they are not needed a second time, and a
/// large design in both forms at once is the most memory that an import takes.
/// Throws what DesignDescriptionWriter throws.
std::vector<std::uint8_t> describeImport(VcdDeclarations& declarations,
                                         const RecordingLayout& layout, TimeUnit timeUnit,
                                         const std::vector<Blackout>& blackouts);

}  // namespace Korvel

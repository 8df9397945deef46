#pragma once

#include "inspect/OpenRecording.h"

#include <cstdint>
#include <limits>
#include <optional>

namespace Korvel {

/// What of the stored blocks and events is printed, and how.
struct StoredDumpOptions {
    bool hasBlocks = true;
    bool hasEvents = true;
    bool isJson = false;
    bool isRaw = false;  ///< the block's own dump text
    std::int64_t from = std::numeric_limits<std::int64_t>::min();
    std::int64_t to = std::numeric_limits<std::int64_t>::max();
    std::optional<std::int64_t> address;                              ///< only changes of this one
    std::uint64_t limit = std::numeric_limits<std::uint64_t>::max();  ///< lines or raw blocks
};

/// Prints blocks and events as they are stored: bucket by bucket, each in the order of its list.
void dumpStored(OpenRecording& recording, const StoredDumpOptions& options);

}  // namespace Korvel

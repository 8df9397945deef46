#pragma once

#include "OutputFile.h"
#include "ask/ViewedObject.h"
#include "ask/ViewedRecording.h"

#include <cstdint>
#include <functional>
#include <vector>

namespace Korvel {

struct ExportResult {
    std::uint64_t variables = 0;
    std::uint64_t changes = 0;
    long long endTime = 0;
    bool isInterrupted = false;  // the dump ends at endTime
};

/// Writes objects as a value-change dump. A dump knows no times before 0: what is recorded there
/// shows at 0. An object without a value is left out until it has one.
///
/// Memory grows with the number of objects, not with that of changes.
///
/// @param hasAllScopes  Declare scopes without exported objects, too.
/// @param onProgress    Told now and then how far all is, from 0 to 1.
ExportResult exportVcd(OutputFile& output, const ViewedRecording& recording,
                       const std::vector<ViewedObject>& objects, bool hasAllScopes,
                       const std::function<void(double)>& onProgress);

}  // namespace Korvel

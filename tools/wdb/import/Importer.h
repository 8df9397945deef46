#pragma once

#include "description/DescriptionVocabulary.h"
#include "korvel/IWdbWriter.h"
#include "vcd/VcdSource.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace Korvel {

/// What an import came to.
struct ImportResult {
    std::uint64_t scopes = 0;
    std::uint64_t objects = 0;
    std::uint64_t changes = 0;
    long long endTime = 0;
    TimeUnit timeUnit;
    std::vector<std::string> warnings;
    /// Where and why the dump was not read to its end; empty if it was. What came before is
    /// recorded.
    std::string damage;
    bool isInterrupted = false;
    bool isRecorded = false;  // there is a recording
};

/// Records a value-change dump.
///
/// The dump is read twice: first for what the design description says, which lies before the
/// recorded changes in the file, then to record them. Memory does not grow with the dump's length.
///
/// @param inputName   What messages call the dump.
/// @param writer      Not open. It is closed when the function returns or throws.
/// @param onProgress  Told now and then how far all is, from 0 to 1.
/// Throws ToolError when there is nothing to record or the recording cannot be written.
ImportResult importVcd(VcdSource& dump, const std::string& inputName, const std::string& outputName,
                       IWdbWriter& writer, const std::function<void(double)>& onProgress);

}  // namespace Korvel

#pragma once

#include "inspect/Inspection.h"

#include <cstdint>
#include <functional>

namespace Korvel {

/// What a whole recording holds, as far as it can be read.
struct VerifySummary {
    std::uint64_t sections = 0;
    std::uint64_t blocks = 0;
    std::uint64_t events = 0;
    std::uint64_t strings = 0;
    std::uint64_t objects = 0;
};

/// Reads every structure of a recording and judges it. Ends on any bytes, with memory in
/// proportion to them at most, and reports no error for what the library's writers leave, a killed
/// one included.
///
/// @param progress  Called now and then with the part that is done, 0 to 1. May be empty.
VerifySummary verifyRecording(Inspection& inspection,
                              const std::function<void(double)>& progress = {});

}  // namespace Korvel

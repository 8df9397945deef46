#pragma once

#include "korvel/WdbIEventReader.h"

namespace Korvel {

/// Makes readers. One for the process; any thread may use it.
class __attribute__((visibility("default"))) WdbEventReaderFactory {
public:
    enum ReaderType : int {
        STATIC_READER = 0,  ///< of a recording on disk
        LIVE_READER = 1     ///< of a simulation that is running
    };

    static WdbEventReaderFactory& getInstance();

    /// A new reader, which the caller deletes; null for any other type.
    WdbIEventReader* create(ReaderType type);

private:
    WdbEventReaderFactory() = default;
};

}  // namespace Korvel

#pragma once

#include "korvel/IWdbWriter.h"

namespace Korvel {

/// The library's own way to a writer of recordings on disk.
class WriterFactory {
public:
    /// The factory's one writer, made on the first call and owned by the factory. Making it also
    /// makes it the writer that the stand-alone trace functions record through, in place of the one
    /// that korvelApi_getStandAloneWdbWriter() returns.
    static IWdbWriter* getWdbWriter();
};

}  // namespace Korvel

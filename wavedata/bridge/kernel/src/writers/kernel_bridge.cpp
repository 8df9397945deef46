// Where a simulator kernel enters the library.

#include "korvel/korvelApi.h"
#include "writers/WdbLiveWriter.h"
#include "writers/WdbStandAloneWriter.h"

namespace {

// Made when the library is loaded and destroyed at process exit, which finishes a recording that a
// simulator left open.
Korvel::WdbLiveWriter s_liveWriter;
Korvel::WdbStandAloneWriter s_standAloneWriter;

}  // namespace

void* korvelApi_getWdbWriter(void) {
    return static_cast<Korvel::IWdbWriter*>(&s_liveWriter);
}

void* korvelApi_getStandAloneWdbWriter(void) {
    return static_cast<Korvel::IWdbWriter*>(&s_standAloneWriter);
}

#include "fuzz/ThrowingFatalError.h"

#include "support/WdbFatalError.h"

namespace Korvel {

void wdbFatalError(const char*) {
    throw FatalError();
}

}  // namespace Korvel

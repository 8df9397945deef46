#include "support/WdbFatalError.h"

#include <unistd.h>

#include "support/WdbErrorPrint.h"

namespace Korvel {

void wdbFatalError(const char* textBeforeReason) {
    wdbErrorPrintWithoutColon(textBeforeReason);
    ::_exit(1);
}

}  // namespace Korvel

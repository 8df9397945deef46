#include "support/WdbOpenFailure.h"

#include "veld/OpenException.h"

namespace Korvel {
namespace {

// The host's own component name for everything that reads and writes waveforms.
const char Component[] = "Tarn";
const char Revision[] = "$Revision: 1.0 $";

}  // namespace

void throwOpenException(const char* sourceFile, int line, const std::string& message) {
    throw Veld::OpenException(Component, sourceFile, Revision, line, message);
}

}  // namespace Korvel

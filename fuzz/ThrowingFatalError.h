#pragma once

namespace Korvel {

// Thrown where the library would end the process.
struct FatalError {};

}  // namespace Korvel

#pragma once

namespace CLI {
class App;
}

namespace Korvel {

/// Adds "wdb value".
void addValueVerb(CLI::App& tool);

}  // namespace Korvel

#pragma once

namespace CLI {
class App;
}

namespace Korvel {

/// Adds "wdb export".
void addExportVerb(CLI::App& tool);

}  // namespace Korvel

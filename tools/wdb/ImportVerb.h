#pragma once

namespace CLI {
class App;
}

namespace Korvel {

/// Adds "import IN.vcd OUT.wdb" to the tool.
void addImportVerb(CLI::App& tool);

}  // namespace Korvel

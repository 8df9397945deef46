#pragma once

namespace CLI {
class App;
}

namespace Korvel {

/// Adds "dump FILE [OBJECT...]" to the tool.
void addDumpVerb(CLI::App& tool);

}  // namespace Korvel

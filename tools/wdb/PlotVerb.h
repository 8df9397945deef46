#pragma once

namespace CLI {
class App;
}

namespace Korvel {

/// Adds "plot FILE [OBJECT...]" to the tool.
void addPlotVerb(CLI::App& tool);

}  // namespace Korvel

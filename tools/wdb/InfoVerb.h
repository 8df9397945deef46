#pragma once

namespace CLI {
class App;
}

namespace Korvel {

/// Adds "info FILE" to the tool.
void addInfoVerb(CLI::App& tool);

}  // namespace Korvel
